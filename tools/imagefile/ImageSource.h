// The bytes of an image wherever it is: a file, or a web server that is asked for byte ranges. For tools that
// look at images; used by one thread.
#ifndef IMAGEFILE_IMAGESOURCE_H
#define IMAGEFILE_IMAGESOURCE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace imagefile {

class ImageSource {
  public:
    virtual ~ImageSource() = default;
    ImageSource(const ImageSource&) = delete;
    ImageSource& operator=(const ImageSource&) = delete;

    // As the user gave it.
    const std::string& name() const { return mName; }

    // Memory of size() bytes, null when that is 0. Bytes are the image's once they were loaded, else zero.
    virtual const uint8_t* data() const = 0;
    virtual uint64_t size() const = 0;

    // Whether all bytes are at hand; else each load() may take a transfer.
    virtual bool isLocal() const = 0;

    // Makes bytes from `offset` the image's; those behind its end do not count. Throws std::runtime_error
    // with the image's name and the reason.
    virtual void load(uint64_t offset, uint64_t length) = 0;

  protected:
    explicit ImageSource(const std::string& name) : mName(name) {}

  private:
    const std::string mName;
};

// Whether the name of an image is a URL rather than a path.
bool isUrl(const std::string& name);

// Opens a regular file, or looks at the first bytes behind a URL (http or https; the server has to serve byte
// ranges). A transfer is given up when `isStopped`, asked about once a second, says so. The file must not be
// cut while it is in use. Throws std::runtime_error with the name and the reason.
std::unique_ptr<ImageSource> openImage(const std::string& name, std::function<bool()> isStopped = {});

} // namespace imagefile

#endif
