#include "zemp/Files.h"

#include "imagefile/Descriptor.h"
#include "imagefile/NumberText.h"
#include "imagefile/ReplaceFile.h"
#include "zemp/InputError.h"
#include "zemp/Interrupt.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zemp {

namespace {

using imagefile::Descriptor;

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw InputError(path + ": " + reason);
}

[[noreturn]] void failWithErrno(const std::string& path) {
    fail(path, strerror(errno));
}

// Size of the open file, which has to be a regular one.
uint64_t regularSize(const Descriptor& file, const std::string& path) {
    struct stat status = {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0)
        failWithErrno(path);
    if (S_ISDIR(status.st_mode))
        fail(path, "Is a directory");
    if (!S_ISREG(status.st_mode))
        fail(path, "Not a regular file");
    return static_cast<uint64_t>(status.st_size);
}

} // namespace

std::string readFile(const std::string& path, uint64_t limit) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    const uint64_t size = regularSize(file, path);
    if (size > limit)
        fail(path,
             "has " + imagefile::groupDigits(size) + " bytes, more than " + imagefile::groupDigits(limit));
    std::string content(static_cast<size_t>(size), '\0');
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t count = read(file.get(), &content[done], content.size() - done);
        if (count < 0)
            failWithErrno(path);
        if (count == 0)
            fail(path, "became shorter while it was read");
        done += static_cast<size_t>(count);
    }
    return content;
}

void writeFile(const std::string& path, const std::string& content) {
    imagefile::replaceFile(path, [&content](const std::string& temporary) {
        imagefile::writeContent(temporary, content);
        throwIfInterrupted();
    });
}

} // namespace zemp
