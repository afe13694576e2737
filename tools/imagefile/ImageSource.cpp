#include "imagefile/ImageSource.h"

#include "imagefile/HttpSource.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace imagefile {

namespace {

// Mapped, so that bytes are read as they are touched.
class FileSource : public ImageSource {
  public:
    explicit FileSource(const std::string& path) : ImageSource(path) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat status = {};
        int error = fd < 0 || fstat(fd, &status) != 0 ? errno : 0;
        std::string reason;
        if (error == 0 && !S_ISREG(status.st_mode))
            reason = S_ISDIR(status.st_mode) ? "Is a directory" : "Not a regular file";
        else if (error == 0 && status.st_size > 0)
            error = map(fd, static_cast<uint64_t>(status.st_size));
        if (fd >= 0)
            close(fd);
        if (error != 0)
            reason = strerror(error);
        if (!reason.empty())
            throw std::runtime_error(path + ": " + reason);
    }
    ~FileSource() override {
        if (mData != nullptr)
            munmap(mData, static_cast<size_t>(mSize));
    }

    const uint8_t* data() const override { return static_cast<const uint8_t*>(mData); }
    uint64_t size() const override { return mSize; }
    bool isLocal() const override { return true; }
    void load(uint64_t, uint64_t) override {}

  private:
    // 0, or the error.
    int map(int fd, uint64_t size) {
        if (size > SIZE_MAX)
            return EFBIG;
        void* data = mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_PRIVATE, fd, 0);
        if (data == MAP_FAILED)
            return errno;
        mData = data;
        mSize = size;
        return 0;
    }

    void* mData = nullptr;
    uint64_t mSize = 0;
};

} // namespace

bool isUrl(const std::string& name) {
    return name.rfind("http://", 0) == 0 || name.rfind("https://", 0) == 0;
}

std::unique_ptr<ImageSource> openImage(const std::string& name, std::function<bool()> isStopped) {
    if (isUrl(name))
        return std::make_unique<HttpSource>(name, std::move(isStopped));
    return std::make_unique<FileSource>(name);
}

} // namespace imagefile
