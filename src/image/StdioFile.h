// A file that closes itself, for copying in large steps: it has no buffer, each call goes to the system. Used
// by one thread.
#ifndef IMAGE_STDIOFILE_H
#define IMAGE_STDIOFILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

class StdioFile {
  public:
    StdioFile() = default;

    // Closes without a check; whoever writes calls close().
    ~StdioFile();
    StdioFile(const StdioFile&) = delete;
    StdioFile& operator=(const StdioFile&) = delete;

    // All of them: false with errno set on failure. `filename` is followed when it is a link.
    [[nodiscard]] bool openForReading(const std::string& filename);
    [[nodiscard]] bool createForWriting(const std::string& filename);

    // Only an ordinary file that is this user's own and has no other name is opened, emptied when written;
    // errno is EPERM for anything else, ELOOP for a link. A new file is readable by this user only.
    [[nodiscard]] bool openOwnForReading(const std::string& filename);
    [[nodiscard]] bool createOwnForWriting(const std::string& filename);

    // Bytes read: fewer than `size` only at the end of the file (errno 0) or on an error.
    [[nodiscard]] size_t read(void* data, size_t size);
    bool hasFailed() const; // a read or write since the file was opened
    [[nodiscard]] bool write(const void* data, size_t size);

    // Bytes written so far.
    uint64_t position() const { return mPosition; }

    // Has everything written so far on disk.
    [[nodiscard]] bool sync();

    // Closes, in any case.
    [[nodiscard]] bool close();

  private:
    bool open(const std::string& filename, int flags, unsigned mode);
    bool openOwn(const std::string& filename, int flags);

    FILE* mFile = nullptr;
    uint64_t mPosition = 0;
};

#endif
