// What the workers last saw, for a report on the running daemon: the configuration's values and the last
// failure of each kind. Nobody decides by it. Any thread may post and read; nothing here waits but for the
// board's own lock.
#ifndef COMMON_NOTICEBOARD_H
#define COMMON_NOTICEBOARD_H

#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <string>

class Noticeboard {
  public:
    enum class Failure {
        Http,     // the server's status
        Transfer, // the HTTP library's text
        File,     // a file that cannot be written
        Compile,
        Bus,
        Database,
        Record, // the host configuration record
        Seal
    };

    struct Notice {
        std::string text;
        time_t time; // when it was posted, seconds since 1970
        bool isOver; // the same has succeeded since
    };

    struct Transfer {
        std::string filename; // empty: there is none
        std::string range;    // asked for, "first-last"; empty: everything
        uint64_t total;       // bytes that the file is to have in the end; 0: unknown
    };

    struct Content {
        std::map<std::string, std::string> values; // by key
        std::map<Failure, Notice> failures;
        Transfer transfer = {"", "", 0}; // the last that began
    };

    // The process's own.
    static Noticeboard& instance();

    // The value of a key as it was read or written last.
    void postValue(const std::string& key, const std::string& value);

    void postFailure(Failure kind, const std::string& text);

    // The kind's failure, if there was one, is over.
    void postSuccess(Failure kind);

    void postTransfer(const Transfer& transfer);

    void clear();

    Content content() const;

  private:
    mutable std::mutex mMutex;
    Content mContent; // guarded by mMutex
};

#endif
