// The log stream: the buffer behind std::clog, and the line that every caller writes through it.
//
// Any thread may log. A line is built outside of all locks and handed to the stream whole, so lines of two
// threads never mix. Logging is not a cancellation point.
#ifndef COMMON_VEXSTREAMLOG_H
#define COMMON_VEXSTREAMLOG_H

#include <atomic>
#include <ostream>
#include <pthread.h>
#include <sstream>
#include <streambuf>
#include <string>

// The syslog priorities with their standard values.
enum LogPriority : int {
    LogEmergency = 0,
    LogAlert = 1,
    LogCritical = 2,
    LogError = 3,
    LogWarning = 4,
    LogNotice = 5,
    LogInfo = 6,
    LogDebug = 7
};

// Printed name, for example "LOG_INFO"; an empty text outside 0 to 7.
const char* getPriorityName(LogPriority priority);

// Collects characters up to a flush and emits them as one line, to syslog or to standard output.
class VexStreamLog : public std::streambuf {
  public:
    enum Type : int { Syslog = 0, Console = 1 }; // any value but 0 means standard output

    // `ident` is not copied and must live as long as the buffer; null prints as an empty text. Sets the
    // level; for the syslog type also opens the system log under `ident` and sets its mask.
    VexStreamLog(const char* ident, Type type, LogPriority level);

    // Sets the highest priority that is emitted, and the system log's mask.
    static void setLevel(LogPriority level);
    static LogPriority getLevel() { return mLevel.load(std::memory_order_relaxed); }

    // The priority of the line being collected; it stays until the next call.
    void setPriority(LogPriority priority);

  protected:
    // Emits what was collected if its priority is within the level, and forgets it. Always 0.
    int sync() override;
    int overflow(int c) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override; // a whole text under one lock

  private:
    const Type mType;
    const char* const mIdent;
    LogPriority mPriority;  // guarded by mMutex
    std::string mBuffer;    // guarded by mMutex
    pthread_mutex_t mMutex; // guards mPriority, mBuffer and emission

    static std::atomic<LogPriority> mLevel;
};

// Sets the priority of the stream's log buffer; does nothing on a stream with another buffer. Writes no text.
std::ostream& operator<<(std::ostream& os, const LogPriority& priority);

// One log line: collects the text and, at the end of the statement, writes priority, text and line end to
// std::clog under one lock. Control characters of the text, which may come from an image, a server or the
// bus, become "?": nobody else writes lines of this log. Used through VEX_LOG.
class LogLine {
  public:
    explicit LogLine(LogPriority priority) : mPriority(priority) {}
    ~LogLine();
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    std::ostream& stream() { return mText; }

  private:
    const LogPriority mPriority;
    std::ostringstream mText;
};

// Turns the stream expression of VEX_LOG into a statement.
struct LogStatement {
    void operator&(const std::ostream&) const {}
};

// VEX_LOG(LogInfo) << "Class::method() text"; what stands behind it is evaluated only when the level admits
// the priority.
#define VEX_LOG(priority)                                                                                    \
    VexStreamLog::getLevel() < (priority) ? static_cast<void>(0) : LogStatement() & LogLine(priority).stream()

#endif
