// A file that grows at its end, up to a limit, as a stream that C code can write to.
//
// Used by one thread. What the stream still buffers reaches the file at close(); bytes that were lost make
// every later write fail, so the file never has a gap.
#ifndef WORKERS_APPENDFILE_H
#define WORKERS_APPENDFILE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

class AppendFile {
  public:
    // Opens the file as it is, or makes an empty one. A write that would make it larger than `maximumSize`
    // bytes fails with EFBIG.
    AppendFile(const std::string& path, uint64_t maximumSize);

    // Closes, if that was not done, and ignores the result.
    ~AppendFile();
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    // For fwrite(); null when the file could not be opened, and after close(). Owned by this object.
    FILE* stream() { return mStream; }

    // Writes out what is buffered and closes. False when any byte since the opening did not reach the file.
    [[nodiscard]] bool close();

    // Number of the first error: why stream() was null at once, or what was lost. 0 without one.
    int error() const { return mError; }

  private:
    static ssize_t onWrite(void* cookie, const char* data, size_t size);
    static int onClose(void* cookie);
    bool writeAll(const char* data, size_t size);

    const uint64_t mMaximumSize;
    uint64_t mSize = 0; // of the file, bytes
    int mDescriptor = -1;
    int mError = 0;
    FILE* mStream = nullptr;
    std::unique_ptr<char[]> mBuffer; // of the stream, outlives it
};

#endif
