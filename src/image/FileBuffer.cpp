#include "image/FileBuffer.h"

#include "common/Thread.h"
#include "common/VexStreamLog.h"
#include "image/zemp_validate.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// Headers and small bodies come in one read.
constexpr size_t ReadAheadBytes = 4096;

} // namespace

FileBuffer::~FileBuffer() {
    if (mFd >= 0)
        close(mFd);
    if (mData != nullptr)
        munmap(mData, mSize);
}

bool FileBuffer::allocate(uint32_t size) {
    // Fresh pages of the system are zero and cost nothing until they are touched.
    void* const memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        return false;
    mData = static_cast<uint8_t*>(memory);
    mSize = size;
    return true;
}

bool FileBuffer::open(const std::string& filename) {
    mFilename = filename;
    mFd = ::open(filename.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); // a pipe is an empty file
    return mFd >= 0;
}

void FileBuffer::load(const uint8_t* at, uint32_t length) {
    const auto begin = static_cast<size_t>(at - mData);
    const size_t end = begin + length;
    if (begin < mLoadedBegin || begin > mLoadedEnd)
        mLoadedBegin = mLoadedEnd = begin;
    if (end <= mLoadedEnd)
        return;
    const size_t wanted = std::min(mSize, std::max(end, mLoadedEnd + ReadAheadBytes));
    read(mData + mLoadedEnd, mLoadedEnd, wanted - mLoadedEnd);
    mLoadedEnd = wanted;
}

uint32_t FileBuffer::crc(const uint8_t* at, uint32_t length, seal::Hash* hash) {
    auto begin = static_cast<size_t>(at - mData);
    const size_t end = begin + length;
    uint32_t crc = 0;
    if (begin >= mLoadedBegin && begin < mLoadedEnd) {
        const size_t loaded = std::min(end, mLoadedEnd) - begin;
        crc = crc32_calc(crc, at, loaded);
        if (hash != nullptr)
            hash->update(at, loaded);
        begin += loaded;
    }
    if (begin < end && mWindow == nullptr)
        mWindow.reset(new Window);
    while (begin < end) {
        CancellationPoint::test();
        // Pieces of whole pages are copied faster.
        const size_t count = std::min(end - begin, WindowBytes - begin % WindowBytes);
        read(mWindow->bytes, begin, count);
        crc = crc32_calc(crc, mWindow->bytes, count);
        if (hash != nullptr)
            hash->update(mWindow->bytes, count);
        begin += count;
    }
    return crc;
}

void FileBuffer::read(uint8_t* to, size_t offset, size_t length) {
    size_t done = 0;
    while (done < length) {
        const ssize_t count = pread(mFd, to + done, length - done, static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && !mHasReadFailed) {
            mHasReadFailed = true;
            VEX_LOG(LogWarning) << "FileBuffer::read() Failed to read '" << mFilename << "' ("
                                << strerror(errno) << ").";
        }
        if (count <= 0)
            break;
        done += static_cast<size_t>(count);
    }
    std::fill(to + done, to + length, uint8_t{0});
}
