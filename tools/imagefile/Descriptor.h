// An open descriptor that is closed with its object.
#ifndef IMAGEFILE_DESCRIPTOR_H
#define IMAGEFILE_DESCRIPTOR_H

#include <unistd.h>

namespace imagefile {

class Descriptor {
  public:
    // Takes the descriptor over; a negative one, of an open() that failed, is left alone.
    explicit Descriptor(int fd) : mFd(fd) {}
    ~Descriptor() {
        if (mFd >= 0)
            ::close(mFd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return mFd; }

  private:
    const int mFd;
};

} // namespace imagefile

#endif
