// The parser's listing lines: PARSE_LOG() << text, written when the log level is at or above ParseLevel.
#ifndef IMAGE_PARSELOG_H
#define IMAGE_PARSELOG_H

#include "common/VexStreamLog.h"
#include "image/ZempParser.h"
#include <algorithm>

// The priority is within the level, so that a lowered ParseLevel really shows the lines.
#define PARSE_LOG()                                                                                          \
    if (static_cast<int>(VexStreamLog::getLevel()) < ParseLevel) {                                           \
    } else                                                                                                   \
        LogLine(static_cast<LogPriority>(std::clamp<int>(ParseLevel, LogEmergency, LogDebug))).stream()

#endif
