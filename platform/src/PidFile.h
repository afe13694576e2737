// The file that says which process is the daemon, locked as long as it runs.
#ifndef PLATFORM_PIDFILE_H
#define PLATFORM_PIDFILE_H

#include <string>

class PidFile {
  public:
    PidFile() = default;

    // Gives the lock up if no other process has the same file from a fork. The file stays.
    ~PidFile();
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;

    // Makes the file if absent and locks it; a fork shares the lock. False with the reason in `error`, in
    // particular when another process holds it.
    [[nodiscard]] bool lock(const char* path, std::string& error);

    // Writes the calling process's id. False with the reason in `error`.
    [[nodiscard]] bool record(std::string& error);

    // Removes the file if it is still the locked one, and gives up the lock.
    void remove();

  private:
    bool isCurrent() const;
    std::string holder() const;

    std::string mPath;
    int mFd = -1;
};

#endif
