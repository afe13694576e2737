// A directory of a test's own, removed with everything in it.
#ifndef SUPPORT_TEMPORARYDIRECTORY_H
#define SUPPORT_TEMPORARYDIRECTORY_H

#include <string>
#include <sys/types.h>

namespace support {

class TemporaryDirectory {
  public:
    // Makes it below the system's directory for temporary files. Throws std::runtime_error when it cannot.
    TemporaryDirectory();

    // Only the process that made it removes it, so a forked child may end as it likes.
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    // Absolute, without a slash at the end.
    const std::string& path() const { return mPath; }

    // path() + "/" + name.
    std::string file(const std::string& name) const { return mPath + "/" + name; }

  private:
    const pid_t mOwner;
    std::string mPath;
};

} // namespace support

#endif
