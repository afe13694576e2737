// The daemon's master with its queues in reach, for whoever stands in for its workers and its event loop: a
// tick of the master is a call of onFdLoopTimerTimeout(), after which requests wait in the workers' queues
// and are put on the master queue once they have a result. A queue's reader owns nothing: requests stay with
// the update handler. Used by one thread.
#ifndef PLAN_OPENDAEMON_H
#define PLAN_OPENDAEMON_H

#include "update/FwDownloadDaemon.h"

namespace plan {

class OpenDaemon : public FwDownloadDaemon {
  public:
    using FwDownloadDaemon::firstConfigDbStatus;
    using FwDownloadDaemon::FwDownloadDaemon;
    using FwDownloadDaemon::isTerminated;
    using FwDownloadDaemon::knownSuuInfo;
    using FwDownloadDaemon::mConfigDbQueue;
    using FwDownloadDaemon::mDownloaderQueue;
    using FwDownloadDaemon::mMasterQueue;
    using FwDownloadDaemon::mUpdateHandler;
    using FwDownloadDaemon::mZempHandlerQueue;

    // Unspecified before the first wanted version is known.
    FwAction::NextAction action() const {
        return mUpdateHandler ? mUpdateHandler->getNextAction() : FwAction::Unspecified;
    }
};

} // namespace plan

#endif
