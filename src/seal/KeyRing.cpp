#include "seal/KeyRing.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace seal {

namespace {

constexpr const char* Suffix = ".pub";
constexpr size_t MaximumKeyBytes = 1024; // a comment and a line

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Empty when the file was read.
std::string readKey(const std::string& path, std::vector<PublicKey>& keys) {
    // A pipe in its place must not hold us up.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return strerror(errno);
    std::string content(MaximumKeyBytes + 1, '\0');
    struct stat status {};
    const bool isFile = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    const ssize_t size = isFile ? read(fd, content.data(), content.size()) : 0;
    const int error = errno;
    ::close(fd);
    if (size < 0)
        return strerror(error);
    content.resize(static_cast<size_t>(size));
    PublicKey key;
    if (!parsePublicKey(content, key))
        return "is no public key";
    keys.push_back(key);
    return "";
}

KeyRing closed(const std::string& path, const std::string& reason) {
    return {KeyRing::Closed, {}, path + ": " + reason};
}

} // namespace

KeyRing loadKeys(const std::string& directory) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), &closedir);
    if (!entries)
        return errno == ENOENT ? KeyRing() : closed(directory, strerror(errno));
    KeyRing ring;
    while (true) {
        errno = 0;
        const dirent* const entry =
            readdir(entries.get()); // NOLINT(concurrency-mt-unsafe): a stream of our own
        if (entry == nullptr)
            break;
        const std::string name = entry->d_name;
        if (name[0] == '.')
            continue;
        const std::string path = std::string(directory).append("/").append(name);
        const std::string problem =
            endsWith(name, Suffix) ? readKey(path, ring.keys) : "is not named as a public key, *.pub";
        if (!problem.empty())
            return closed(path, problem);
    }
    if (errno != 0)
        return closed(directory, strerror(errno));
    ring.state = ring.keys.empty() ? KeyRing::Off : KeyRing::On;
    return ring;
}

} // namespace seal
