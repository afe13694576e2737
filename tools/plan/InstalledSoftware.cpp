#include "plan/InstalledSoftware.h"

#include "hostconfig/HostConfigRecord.h"
#include "image/ZempPart.h"
#include "imagefile/ImageReader.h"
#include "imagefile/NumberText.h"
#include "installed/loadHostConfig.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace plan {

namespace {

[[noreturn]] void fail(const std::string& file, const std::string& reason) {
    throw std::runtime_error(file + ": " + reason);
}

hostcfg::Bytes readRecord(const std::string& file) {
    if (file.empty())
        return hostcfg::build({});
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status = {};
    if (fd < 0)
        fail(file, strerror(errno));
    // A partition is read as far as the daemon reads it.
    const bool isFile = fstat(fd, &status) == 0 && (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode));
    hostcfg::Bytes record(HostconfigMaximumSize);
    const ssize_t count = isFile ? read(fd, record.data(), record.size()) : 0;
    const int error = errno;
    close(fd);
    if (!isFile)
        fail(file, S_ISDIR(status.st_mode) ? "Is a directory" : "Not a regular file");
    if (count < 0)
        fail(file, strerror(error));
    if (status.st_size > static_cast<off_t>(record.size()))
        fail(file, "has " + imagefile::groupDigits(static_cast<uint64_t>(status.st_size)) +
                       " bytes, more than a host configuration record");
    record.resize(static_cast<size_t>(count));
    return record;
}

// The loader takes short paths only, so it gets the record in memory.
int openInMemory(const std::string& recordFile) {
    const hostcfg::Bytes record = readRecord(recordFile);
    for (const hostcfg::Finding& finding : hostcfg::check(record))
        if (finding.isError)
            fail(recordFile, "offset " + std::to_string(finding.offset) + ": " + finding.text);
    const int fd = memfd_create("record", MFD_CLOEXEC);
    if (fd < 0 || write(fd, record.data(), record.size()) != static_cast<ssize_t>(record.size())) {
        const std::string reason = strerror(errno);
        if (fd >= 0)
            close(fd);
        fail(recordFile, reason);
    }
    return fd;
}

} // namespace

InstalledSoftware::InstalledSoftware(const std::string& recordFile)
    : mFd(openInMemory(recordFile)), mPaths{"/proc/self/fd/" + std::to_string(mFd.get()), ""}, mInfo(mPaths) {
    options_t options = {};
    mPaths.primary.copy(options.primary, sizeof options.primary - 1);
    const auto context = std::make_unique<suul_ctx_t>();
    const auto record = std::make_unique<hostconfig_t>();
    if (!mInfo.initialize() || loadHostConfig(&options, context.get(), record.get()) != 1)
        fail(recordFile, "cannot be loaded");
    mData = context->data;
}

std::string InstalledSoftware::release() const {
    if (mData.activeSet >= suu_data_t::SetCount ||
        mData.sets[mData.activeSet].releaseHeader >= suu_data_t::SetCount)
        return "";
    const zemp_content_release_header_t& release = mData.releases[mData.sets[mData.activeSet].releaseHeader];
    return imagefile::versionText({release.major, release.minor, release.build}, ' ');
}

std::vector<InstalledSoftware::Partition> InstalledSoftware::partitionsOf(const std::string& pool) const {
    std::vector<Partition> partitions;
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        if (pool.empty() || ZempFormat::text(mData.partitions[i].name) != pool)
            continue;
        const zemp_content_software_blob_t& software = mData.contents[i].software;
        partitions.push_back({ZempFormat::text(mData.partitions[i].mountPoint),
                              ZempPart::getVersionString(software.major, software.minor, software.build)});
    }
    return partitions;
}

} // namespace plan
