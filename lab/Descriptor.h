// An open descriptor that is closed with its object, and a pipe made of two.
#ifndef LAB_DESCRIPTOR_H
#define LAB_DESCRIPTOR_H

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>

namespace lab {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : mFd(fd) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(mFd, other.mFd);
        return *this;
    }

    // Closed on exec; a new file has mode 0644. Throws std::runtime_error with the reason on failure.
    static Descriptor open(const std::string& file, int flags) {
        Descriptor descriptor(::open(file.c_str(), flags | O_CLOEXEC, 0644));
        if (descriptor.get() < 0)
            throw std::runtime_error("cannot open '" + file + "': " + strerror(errno));
        return descriptor;
    }

    int get() const { return mFd; }

    void close() {
        if (mFd >= 0)
            ::close(std::exchange(mFd, -1));
    }

  private:
    int mFd = -1;
};

// Both ends are closed on exec, unless a child is told to keep one.
struct Pipe {
    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error(std::string("no pipe: ") + strerror(errno));
        readEnd = Descriptor(ends[0]);
        writeEnd = Descriptor(ends[1]);
    }

    Descriptor readEnd;
    Descriptor writeEnd;
};

} // namespace lab

#endif
