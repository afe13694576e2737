#include "common/VexStreamLog.h"

#include "common/Thread.h"
#include "common/printable.h"
#include "vex/concurrency.h"
#include <cstdio>
#include <iostream>
#include <syslog.h>

using vex::concurrency::scoped_lock;

namespace {

pthread_mutex_t sLineMutex = PTHREAD_MUTEX_INITIALIZER; // held while one line goes through std::clog

} // namespace

std::atomic<LogPriority> VexStreamLog::mLevel{LogNotice};

const char* getPriorityName(LogPriority priority) {
    switch (priority) {
    case LogEmergency:
        return "LOG_EMERG";
    case LogAlert:
        return "LOG_ALERT";
    case LogCritical:
        return "LOG_CRIT";
    case LogError:
        return "LOG_ERR";
    case LogWarning:
        return "LOG_WARNING";
    case LogNotice:
        return "LOG_NOTICE";
    case LogInfo:
        return "LOG_INFO";
    case LogDebug:
        return "LOG_DEBUG";
    }
    return "";
}

VexStreamLog::VexStreamLog(const char* ident, Type type, LogPriority level)
    : mType(type), mIdent(ident), mPriority(level), mMutex(PTHREAD_MUTEX_INITIALIZER) {
    if (mType == Syslog) {
        openlog(ident, LOG_PID, LOG_USER);
        setLevel(level);
    } else {
        mLevel = level;
    }
}

void VexStreamLog::setLevel(LogPriority level) {
    setlogmask(LOG_UPTO(level));
    mLevel = level;
}

void VexStreamLog::setPriority(LogPriority priority) {
    scoped_lock lock(mMutex);
    mPriority = priority;
}

int VexStreamLog::overflow(int c) {
    if (c != traits_type::eof()) {
        scoped_lock lock(mMutex);
        mBuffer.push_back(traits_type::to_char_type(c));
    }
    return c;
}

std::streamsize VexStreamLog::xsputn(const char* text, std::streamsize size) {
    scoped_lock lock(mMutex);
    mBuffer.append(text, static_cast<size_t>(size));
    return size;
}

int VexStreamLog::sync() {
    scoped_lock lock(mMutex);
    if (mBuffer.empty())
        return 0;
    if (mPriority <= getLevel()) {
        if (mType == Syslog)
            syslog(mPriority, "%s", mBuffer.c_str());
        else
            fprintf(stdout, "%s(%s): %s", mIdent != nullptr ? mIdent : "", getPriorityName(mPriority),
                    mBuffer.c_str());
    }
    mBuffer.clear();
    return 0;
}

std::ostream& operator<<(std::ostream& os, const LogPriority& priority) {
    if (auto* log = dynamic_cast<VexStreamLog*>(os.rdbuf()))
        log->setPriority(priority);
    return os;
}

LogLine::~LogLine() {
    const CancellationBlock block;
    const std::string text = printable(mText.str());
    scoped_lock lock(sLineMutex);
    std::clog << mPriority << text << std::endl;
}
