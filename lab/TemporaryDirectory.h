// A directory of its own for a test or a lab run, removed with everything in it.
#ifndef LAB_TEMPORARYDIRECTORY_H
#define LAB_TEMPORARYDIRECTORY_H

#include <string>
#include <sys/types.h>

namespace lab {

class TemporaryDirectory {
  public:
    // Makes it below the system's directory for temporary files, under a name that begins with `prefix`.
    // Throws std::runtime_error when it cannot.
    explicit TemporaryDirectory(const std::string& prefix = "fwtest");

    // Only the process that made it removes it, so a forked child may end as it likes.
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    // Absolute, without a slash at the end.
    const std::string& path() const { return mPath; }

    // path() + "/" + name.
    std::string file(const std::string& name) const { return mPath + "/" + name; }

    // Writes a file and returns its path. A new file each time: some file systems sync one that is
    // overwritten. Throws std::runtime_error when it cannot be written.
    std::string write(const std::string& name, const std::string& content) const;

    // The content of any file; empty when it cannot be read.
    static std::string read(const std::string& path);

    // Lets the directory stay.
    void keep() { mKept = true; }

  private:
    const pid_t mOwner;
    std::string mPath;
    bool mKept = false;
};

} // namespace lab

#endif
