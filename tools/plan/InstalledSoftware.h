// What a terminal has installed, for one who plans in its place: the daemon's view of a record that need not
// be on flash.
#ifndef PLAN_INSTALLEDSOFTWARE_H
#define PLAN_INSTALLEDSOFTWARE_H

#include "imagefile/Descriptor.h"
#include "installed/SuuInfo.h"
#include <string>
#include <vector>

namespace plan {

class InstalledSoftware {
  public:
    // Throws std::runtime_error with the file's name and the reason when the daemon would not accept the
    // record. An empty name stands for a terminal that has nothing installed.
    explicit InstalledSoftware(const std::string& recordFile);

    const SuuInfo& info() const { return mInfo; }

    // Where the daemon's code finds this record while the object lives.
    const RecordPaths& paths() const { return mPaths; }

    // The version of the active set's release, with a blank before the build as the system writes it, for
    // example "1.05 7"; empty when no set is active.
    std::string release() const;

    // A partition of a pool, and the version installed on it.
    struct Partition {
        std::string mountPoint;
        std::string version; // for example "1.02-3"
    };
    std::vector<Partition> partitionsOf(const std::string& pool) const;

  private:
    const imagefile::Descriptor mFd; // of the record, in memory
    const RecordPaths mPaths;
    SuuInfo mInfo;
    suu_data_t mData{};
};

} // namespace plan

#endif
