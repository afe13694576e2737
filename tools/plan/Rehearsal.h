// One update played through by the daemon's master, with stand-ins for its workers. See UpdatePlan.h.
#ifndef PLAN_REHEARSAL_H
#define PLAN_REHEARSAL_H

#include "plan/OpenDaemon.h"
#include "plan/UpdatePlan.h"
#include <map>
#include <sstream>

namespace plan {

class Rehearsal {
  public:
    // Plays, with what the record there tells as installed, until the update is ready, or nothing goes on at
    // once any more. Notes requests, parts, result and complaints in `plan`, whose release is the version to
    // be configured.
    Rehearsal(imagefile::ImageSource& image, const RecordPaths& record, UpdatePlan& plan);
    ~Rehearsal();
    Rehearsal(const Rehearsal&) = delete;
    Rehearsal& operator=(const Rehearsal&) = delete;

    void run(const std::function<bool()>& isStopped);

    // As the daemon read it; null if it did not come to it. Valid while the rehearsal lives.
    const SuumBlob* manifest() const;

  private:
    // What each worker does with the next item of its queue; false when there is none.
    bool serveDownloader();
    bool serveFileHandler();
    bool serveMonitor();

    void download(DownloadRequest& request);
    void parse(ParseFileRequest& request);
    bool parsePart(ParseFileRequest& request);
    bool compile(const CompileUpdateZempRequest& request);

    imagefile::ImageSource& mImage;
    UpdatePlan& mPlan;
    const std::string mSavedDirectory; // of the daemon's settings
    const std::string mSavedTempFile;  // of the compiler
    std::string mDirectory;            // for the daemon's files, which stay empty but for the image start
    std::ostringstream mLog;           // what the daemon complains of
    std::streambuf* const mSavedLog;
    std::map<const FileFragment*, size_t> mRequestOf; // the last of each, in the plan
    OpenDaemon mDaemon;
};

} // namespace plan

#endif
