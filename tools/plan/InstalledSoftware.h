// What a terminal has installed, for one who plans in its place: while the object lives, the daemon's
// installed-software view loads the given record instead of the flash partition's.
#ifndef PLAN_INSTALLEDSOFTWARE_H
#define PLAN_INSTALLEDSOFTWARE_H

#include "installed/SuuInfo.h"
#include <string>
#include <vector>

namespace plan {

class InstalledSoftware {
  public:
    // Throws std::runtime_error with the file's name and the reason when the daemon would not accept the
    // record. An empty name stands for a terminal that has nothing installed.
    explicit InstalledSoftware(const std::string& recordFile);
    ~InstalledSoftware();
    InstalledSoftware(const InstalledSoftware&) = delete;
    InstalledSoftware& operator=(const InstalledSoftware&) = delete;

    const SuuInfo& info() const { return mInfo; }

    // A partition of a pool, and the version installed on it.
    struct Partition {
        std::string mountPoint;
        std::string version; // for example "1.02-3"
    };
    std::vector<Partition> partitionsOf(const std::string& pool) const;

  private:
    void load(const std::string& recordFile);

    const std::string mPrimary = SuuInfo::sPrimaryPath;
    const std::string mSecondary = SuuInfo::sSecondaryPath;
    int mFd = -1; // the record, in memory
    SuuInfo mInfo;
    suu_data_t mData{};
};

} // namespace plan

#endif
