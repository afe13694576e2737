// An open file that closes itself. It has no buffer: each call goes to the system, in whole where the system
// does it in pieces. Used by one thread at a time; nothing here throws.
#ifndef COMMON_FILE_H
#define COMMON_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>

class File {
  public:
    static constexpr unsigned PublicMode = 0666; // less the process's mask
    static constexpr unsigned PrivateMode = 0600;

    File() = default;

    // Closes without a check; whoever writes calls close().
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // False with errno set. Links are followed.
    [[nodiscard]] bool openForReading(const std::string& filename);

    enum class Links { Follow, Refuse };

    // The same for a name that may be anything: nothing is waited for, and what is no regular file is refused
    // with EINVAL, or ELOOP for a link.
    [[nodiscard]] bool openRegularForReading(const std::string& filename, Links links);

    // Makes a new, empty file, to be written and read, in place of whatever has the name: a file, link or
    // pipe goes, and is never opened. False with errno set, EISDIR for a directory.
    [[nodiscard]] bool createAnew(const std::string& filename, unsigned mode);

    // Bytes read from the present position: fewer than `size` only at the end of the file (errno 0) or on an
    // error.
    [[nodiscard]] size_t read(void* data, size_t size);
    bool hasFailed() const { return mHasFailed; } // a read since the file was opened

    // False with errno set.
    [[nodiscard]] bool write(const void* data, size_t size);

    // Bytes written so far.
    uint64_t position() const { return mPosition; }

    // Goes to a position, in bytes from the beginning. False with errno set.
    [[nodiscard]] bool seek(uint64_t position);

    // Has everything written so far on disk. False with errno set.
    [[nodiscard]] bool sync();

    // Closes, in any case. False with errno set.
    [[nodiscard]] bool close();

    // Has the names in a file's directory on disk. False with errno set.
    [[nodiscard]] static bool syncDirectoryOf(const std::string& filename);

    // Replaces a file by these bytes, which are on disk before they have its name, and the name too. Until
    // then they are beside it, with ".part" behind the name. False with errno set.
    [[nodiscard]] static bool replace(const std::string& filename, const void* data, size_t size,
                                      unsigned mode);

  private:
    int mFd = -1;
    bool mHasFailed = false;
    uint64_t mPosition = 0;
};

#endif
