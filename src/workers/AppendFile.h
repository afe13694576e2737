// A file that grows at its end, up to a limit and at a given pace, as a stream that C code can write to.
//
// Used by one thread at a time. What is still buffered reaches the file at close(); bytes that were lost make
// every later write fail, so the file never has a gap.
#ifndef WORKERS_APPENDFILE_H
#define WORKERS_APPENDFILE_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

class WritePace;

class AppendFile {
  public:
    // Opens the file as it is, or makes an empty one; a pipe fails with ENXIO. Of a write that would make it
    // larger than `maximumSize` bytes, what fits is written, and the rest fails with EFBIG. `pace` may be
    // null, and must outlive this object; without it bytes go to the file in large pieces, as fast as they
    // come. `onProgress` is told the bytes of the file and what is buffered, often while they grow; it may be
    // empty.
    AppendFile(const std::string& path, uint64_t maximumSize, WritePace* pace = nullptr,
               std::function<void(uint64_t size)> onProgress = {});

    // Closes, if that was not done, and ignores the result. Also after a writing thread was stopped.
    ~AppendFile();
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    // For fwrite(), which waits as the pace says, and fails once that is interrupted; the bytes of that write
    // are taken nevertheless. Null when the file could not be opened, and after close(). Owned by this
    // object.
    FILE* stream() { return mStream; }

    // Writes out what is buffered and closes. False when any byte since the opening did not reach the file.
    [[nodiscard]] bool close();

    // Bytes in the file when it was opened.
    uint64_t initialSize() const { return mInitialSize; }

    // Number of the first error: why stream() was null at once, or what was lost. 0 without one.
    int error() const { return mError; }

  private:
    static ssize_t onWrite(void* cookie, const char* data, size_t size);
    static int onClose(void* cookie);
    bool take(const char* data, size_t size);
    bool writeBuffered(size_t lowest);
    void writeAll(const char* data, size_t size);

    const uint64_t mMaximumSize;
    WritePace* const mPace;
    const std::function<void(uint64_t size)> mOnProgress;
    uint64_t mInitialSize = 0;
    uint64_t mSize = 0; // of the file and what is buffered, bytes
    int mDescriptor = -1;
    int mError = 0;
    FILE* mStream = nullptr;
    std::unique_ptr<char[]> mBuffer;
    size_t mBuffered = 0; // bytes
};

#endif
