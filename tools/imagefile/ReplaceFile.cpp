#include "imagefile/ReplaceFile.h"

#include "imagefile/Descriptor.h"
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace imagefile {

namespace {

constexpr int TemporaryAttempts = 100; // names tried before giving up

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw std::runtime_error(path + ": " + reason);
}

[[noreturn]] void failWithErrno(const std::string& path) {
    fail(path, strerror(errno));
}

// A new, empty file beside `path`, with the rights that any new file gets.
std::string makeTemporary(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t name = slash == std::string::npos ? 0 : slash + 1;
    const std::string prefix =
        path.substr(0, name) + "." + path.substr(name) + "." + std::to_string(getpid());
    for (int attempt = 0;; ++attempt) {
        std::string temporary = prefix + "." + std::to_string(attempt);
        const Descriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (file.get() >= 0)
            return temporary;
        if (errno != EEXIST || attempt == TemporaryAttempts)
            failWithErrno(path);
    }
}

// Where a symbolic link leads, so that its target is replaced and not the link.
std::string followLink(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
        return path;
    const std::unique_ptr<char, decltype(&free)> target(realpath(path.c_str(), nullptr), &free);
    if (!target)
        failWithErrno(path);
    return target.get();
}

void syncFile(const std::string& temporary, const std::string& path) {
    const Descriptor file(open(temporary.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0 || fsync(file.get()) != 0)
        failWithErrno(path);
}

} // namespace

void replaceFile(const std::string& path, const std::function<void(const std::string& temporary)>& fill) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        fail(path, S_ISDIR(status.st_mode) ? "Is a directory" : "Not a regular file");
    const std::string target = followLink(path);
    const std::string temporary = makeTemporary(target);
    try {
        fill(temporary);
        syncFile(temporary, path);
        if (rename(temporary.c_str(), target.c_str()) != 0)
            failWithErrno(path);
    } catch (const std::exception& error) {
        unlink(temporary.c_str());
        std::string text = error.what(); // about the file that the user knows
        const size_t at = text.find(temporary);
        if (at != std::string::npos)
            text.replace(at, temporary.size(), path);
        throw std::runtime_error(text);
    }
}

void refuseInput(const std::string& output, const std::string& input) {
    std::error_code error; // a file that is not there is none
    if (std::filesystem::equivalent(output, input, error) && !error)
        fail(output, "is read as well, and would be lost");
}

void writeContent(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        throw std::runtime_error("cannot write '" + path + "': " + strerror(errno));
}

} // namespace imagefile
