// No log lines of the daemon's code between a tool's own. Not beside threads that log.
#ifndef PLAN_QUIETLOG_H
#define PLAN_QUIETLOG_H

#include "common/VexStreamLog.h"

namespace plan {

class QuietLog {
  public:
    QuietLog() { VexStreamLog::setLevel(static_cast<LogPriority>(-1)); }
    ~QuietLog() { VexStreamLog::setLevel(mLevel); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

  private:
    const LogPriority mLevel = VexStreamLog::getLevel();
};

} // namespace plan

#endif
