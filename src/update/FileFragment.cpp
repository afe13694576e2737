#include "update/FileFragment.h"

#include "common/File.h"
#include "common/VexStreamLog.h"
#include "main/ArgParser.h"
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t MaximumPathSize = 512; // of a temporary name, its final zero included

// The patterns that tell a type, made once on first use.
struct NamePatterns {
    const std::string zempStart = FileFragment::getFilenamePrefix(FileFragment::ZempStart);
    const std::string contentPart = FileFragment::getFilenamePrefix(FileFragment::ContentPart);
    const std::string zempSuffix = ".zemp";
};

// A pattern must be shorter than the name it is looked for in.
bool startsWith(const std::string& name, const std::string& prefix) {
    return prefix.size() < name.size() && name.compare(0, prefix.size(), prefix) == 0;
}

bool endsWith(const std::string& name, const std::string& suffix) {
    return suffix.size() < name.size() &&
           name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string inDownloadDirectory(const std::string& name) {
    return ArgParser::getInstance()->getDownloadDirectory() + "/" + name;
}

} // namespace

FileFragment::FileFragment(FragmentType type, unsigned int rangeStart, unsigned int rangeEnd)
    : mFragmentType(type),
      mRangeStart(rangeStart),
      mRangeEnd(rangeEnd),
      mFileSize(0),
      mIsExistingFile(false) {
    VEX_LOG(LogDebug) << "FileFragment::FileFragment(" << getString(type) << ", " << rangeStart << "-"
                      << rangeEnd << ")";
}

FileFragment::FileFragment(const std::string& filename, unsigned int fileSize)
    : mFragmentType(ZempFile),
      mRangeStart(0),
      mRangeEnd(0),
      mFilename(filename),
      mFileSize(fileSize),
      mIsExistingFile(true) {
    // Traced before the name is looked at, so the line always names the same type.
    VEX_LOG(LogDebug) << "FileFragment::FileFragment(" << getString(mFragmentType) << ", " << mRangeStart
                      << "-" << mRangeEnd << ")";
    mFragmentType = parseFragmentType(filename);
}

FileFragment::~FileFragment() {
    VEX_LOG(LogDebug) << "FileFragment::~FileFragment(" << getString(mFragmentType) << ", " << mFilename
                      << ")";
}

void FileFragment::setDownloadRange(unsigned int start, unsigned int length) {
    mRangeStart = start;
    mRangeEnd = start + length;
}

bool FileFragment::setFileSize(unsigned int size) {
    if (mFileSize != 0) {
        VEX_LOG(LogInfo) << "FileFragment::setFileSize() Changing file size from " << mFileSize << " to "
                         << size << ".";
    }
    mFileSize = size;
    return true;
}

void FileFragment::truncateFile() {
    if (mFilename.empty())
        return;
    // As for writing ("w"), but what is a pipe by now is not waited for.
    const int file =
        open(mFilename.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, File::PublicMode);
    if (file >= 0 && close(file) == 0) {
        VEX_LOG(LogDebug) << "FileFragment::truncateFile() Truncated file '" << mFilename << "'.";
    } else {
        VEX_LOG(LogWarning) << "FileFragment::truncateFile() Failure truncating file '" << mFilename << "'! ("
                            << strerror(errno) << ".";
    }
}

void FileFragment::initFilename() {
    if (!mFilename.empty()) {
        VEX_LOG(LogWarning) << "FileFragment::initFilename() Filename already initialized to '" << mFilename
                            << "'.";
        return;
    }
    char buffer[MaximumPathSize];
    const std::string pattern = inDownloadDirectory(getFilenamePrefix(mFragmentType) + TempFileTemplate);
    int descriptor = -1;
    if (pattern.size() < sizeof buffer) {
        memcpy(buffer, pattern.c_str(), pattern.size() + 1);
        descriptor = mkstemp(buffer);
    } else {
        snprintf(buffer, sizeof buffer, "%s", pattern.c_str());
        errno = ENAMETOOLONG;
    }
    if (descriptor <= 0) { // 0 counts as a failure too
        VEX_LOG(LogWarning) << "FileFragment::initFilename() Failure creating temporary file name '" << buffer
                            << "' (" << strerror(errno) << ").";
        return;
    }
    mFilename = buffer;
    close(descriptor);
}

bool FileFragment::changeFilename(const std::string& version) {
    if (mFilename.find(version) != std::string::npos) {
        VEX_LOG(LogInfo) << "FileFragment::changeFilename() Filename is already '" << mFilename << "'.";
        return true;
    }
    const std::string newName = getVersionedFilename(version, mFragmentType, mZempPartType);
    if (rename(mFilename.c_str(), newName.c_str()) != 0) {
        const int error = errno;
        VEX_LOG(LogWarning) << "FileFragment::changeFilename() Failed to change filename !";
        VEX_LOG(LogWarning) << "FileFragment::changeFilename()   from '" << mFilename << "'";
        VEX_LOG(LogWarning) << "FileFragment::changeFilename()     to '" << newName << "'";
        VEX_LOG(LogWarning) << "FileFragment::changeFilename() " << strerror(error) << ".";
        return false;
    }
    VEX_LOG(LogInfo) << "FileFragment::changeFilename() Now '" << newName << "'";
    VEX_LOG(LogInfo) << "                               was '" << mFilename << "'.";
    mFilename = newName;
    return true;
}

std::string FileFragment::getCurlRange() {
    if (mFragmentType == ZempFile)
        return "";
    initRange();
    return std::to_string(mFileSize + mRangeStart) + "-" + std::to_string(mRangeEnd);
}

void FileFragment::initRange() {
    if (mFragmentType == ZempStart && mRangeStart == 0 && mRangeEnd == 0)
        mRangeEnd = ZempStartSize;
}

uint64_t FileFragment::getRangeSize() {
    initRange();
    if (mFragmentType == ZempFile || mRangeEnd == 0 || mRangeEnd < mRangeStart)
        return 0;
    return uint64_t{mRangeEnd} - mRangeStart + 1;
}

bool FileFragment::isRangeOnDisk() {
    const uint64_t rangeSize = getRangeSize();
    return rangeSize != 0 && mFileSize >= rangeSize;
}

bool FileFragment::cutSurplus() {
    const uint64_t rangeSize = getRangeSize();
    unsigned keep = std::min<unsigned>(mFileSize, mForeignFrom);
    if (rangeSize != 0)
        keep = static_cast<unsigned>(std::min<uint64_t>(keep, rangeSize));
    if (keep < mFileSize) {
        struct stat status = {};
        const bool isLonger =
            stat(mFilename.c_str(), &status) == 0 && status.st_size > static_cast<off_t>(keep);
        if (isLonger && truncate(mFilename.c_str(), static_cast<off_t>(keep)) != 0) {
            VEX_LOG(LogWarning) << "FileFragment::cutSurplus() Failure truncating file '" << mFilename
                                << "' (" << strerror(errno) << ").";
            return false;
        }
        setFileSize(keep);
    }
    mForeignFrom = NothingForeign;
    return true;
}

std::string FileFragment::toString() const {
    return mFilename + " (" + getString(mFragmentType) + ")";
}

const char* FileFragment::getString(FragmentType type) {
    switch (type) {
    case UnknownType:
        return "UnknownType";
    case ZempStart:
        return "ZempStart";
    case ContentPart:
        return "ContentPart";
    case ZempFile:
        return "ZempFile";
    case UpdateZempFile:
        return "UpdateZempFile";
    case SealFile:
        return "SealFile";
    }
    return "<unknown type>";
}

std::string FileFragment::getFilenamePrefix(FragmentType type) {
    if (type == SealFile) // one that was left behind goes as an update image goes
        return ArgParser::getFwUpdateBaseFilename() + "-" + getString(type) + "-";
    return std::string(getString(type)) + "-";
}

FileFragment::FragmentType FileFragment::parseFragmentType(const std::string& filename) {
    static const NamePatterns patterns;
    const size_t slash = filename.rfind('/');
    const std::string name = slash == std::string::npos ? filename : filename.substr(slash + 1);
    const std::string update = ArgParser::getFwUpdateBaseFilename();
    if (startsWith(name, patterns.zempStart))
        return ZempStart;
    if (startsWith(name, patterns.contentPart))
        return ContentPart;
    if (endsWith(name, patterns.zempSuffix)) // also the update image under its bare base name
        return ZempFile;
    if (update.size() < name.size() && name.find(update) != std::string::npos)
        return UpdateZempFile;
    return UnknownType;
}

std::string FileFragment::getVersionedFilename(const std::string& version, FragmentType type,
                                               ZempPart::PartType partType) {
    std::string name = getFilenamePrefix(type);
    if (type == ContentPart)
        name += std::string(ZempPart::getString(partType)) + "-";
    return inDownloadDirectory(name + version);
}
