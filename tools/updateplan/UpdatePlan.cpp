#include "updateplan/UpdatePlan.h"

#include "common/VexStreamLog.h"
#include "image/ZempParser.h"
#include "installed/SuuInfo.h"
#include "installed/loadHostConfig.h"
#include "update/FileFragment.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <unistd.h>

namespace updateplan {

using imagefile::ImagePart;
using imagefile::ImageReader;

namespace {

// Bytes of the first request for an image start or a part.
constexpr uint64_t FirstFetchBytes = uint64_t{FileFragment::ContentPartInitialSize} + 1;

// The daemon's code talks to the log; a tool says what matters itself.
class QuietLog {
  public:
    QuietLog() { VexStreamLog::setLevel(LogEmergency); }
    ~QuietLog() { VexStreamLog::setLevel(mLevel); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

  private:
    const LogPriority mLevel = VexStreamLog::getLevel();
};

// A record file opened for the loader, under a path short enough for it.
class OpenRecord {
  public:
    explicit OpenRecord(const std::string& file) : mFd(open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (mFd < 0)
            throw std::runtime_error("'" + file + "': " + strerror(errno));
    }
    ~OpenRecord() { close(mFd); }
    OpenRecord(const OpenRecord&) = delete;
    OpenRecord& operator=(const OpenRecord&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(mFd); }

  private:
    const int mFd;
};

// The loader's two places point at the record.
class RecordPaths {
  public:
    explicit RecordPaths(const std::string& path) {
        SuuInfo::sPrimaryPath = path;
        SuuInfo::sSecondaryPath.clear();
    }
    ~RecordPaths() {
        SuuInfo::sPrimaryPath = mPrimary;
        SuuInfo::sSecondaryPath = mSecondary;
    }
    RecordPaths(const RecordPaths&) = delete;
    RecordPaths& operator=(const RecordPaths&) = delete;

  private:
    const std::string mPrimary = SuuInfo::sPrimaryPath;
    const std::string mSecondary = SuuInfo::sSecondaryPath;
};

[[noreturn]] void failRecord(const std::string& file) {
    throw std::runtime_error("'" + file + "': not a valid host configuration record");
}

// The parts that a parse of the image's start finds.
class ParsedStart {
  public:
    explicit ParsedStart(const std::string& image) {
        if (!mParser.parseFile(image, 0, FileFragment::ZempStart))
            mError = true;
    }
    ~ParsedStart() {
        for (uint32_t i = 0; i < mParser.getNumberOfZempParts(); ++i)
            delete mParser.getZempPartAt(i);
    }
    ParsedStart(const ParsedStart&) = delete;
    ParsedStart& operator=(const ParsedStart&) = delete;

    // Null when there is no valid one.
    const SuumBlob* manifest() const {
        for (uint32_t i = 0; !mError && i < mParser.getNumberOfZempParts(); ++i)
            if (const auto* suum = dynamic_cast<const SuumBlob*>(mParser.getZempPartAt(i)))
                return suum->isBodyValid() && suum->isSuumValid() ? suum : nullptr;
        return nullptr;
    }

  private:
    ZempParser mParser;
    bool mError = false;
};

uint64_t startBytes(const ImageReader& image) {
    const ImagePart& manifest = *image.manifest();
    return std::min(std::max(FirstFetchBytes, manifest.offset + manifest.size()), image.size());
}

// The last request for a needed part asks for one byte behind it, if there is one.
uint64_t partBytes(const ImageReader& image, const PlannedPart& planned) {
    const uint64_t wanted =
        planned.isNeeded ? std::max(FirstFetchBytes, planned.part->size() + 1) : FirstFetchBytes;
    return std::min(wanted, image.size() - planned.part->offset);
}

} // namespace

UpdatePlan::UpdatePlan(const ImageReader& image, const std::string& recordFile) {
    const QuietLog quiet;
    const OpenRecord record(recordFile);
    const RecordPaths paths(record.path());
    SuuInfo installed;
    if (!installed.initialize())
        failRecord(recordFile);
    const ParsedStart start(image.filename());
    const SuumBlob* const manifest = start.manifest();
    if (manifest == nullptr || manifest->getNumberOfElements() == 0 || image.manifest() == nullptr)
        throw std::runtime_error("'" + image.filename() + "': no valid manifest in the image");

    std::vector<const ImagePart*> software;
    for (const ImagePart& part : image.parts())
        if (part.isType(ZempFormat::SwBlobType))
            software.push_back(&part);
    if (software.size() < manifest->getNumberOfElements())
        throw std::runtime_error("'" + image.filename() + "': the manifest has " +
                                 std::to_string(manifest->getNumberOfElements()) +
                                 " elements, the image only " + std::to_string(software.size()) +
                                 " valid software parts");
    mFetchBytes = startBytes(image);
    for (uint32_t i = 0; i < manifest->getNumberOfElements(); ++i) {
        const SuumBlob::Element& element = *manifest->getElementAt(i);
        PlannedPart planned;
        planned.contentIndex = element.getContentIndex();
        planned.pool = element.getPoolname();
        planned.platform = element.getPlatform();
        planned.mountPoint = element.getMountPoint();
        planned.version = {element.getMajor(), element.getMinor(), element.getBuild()};
        planned.isNeeded = installed.isDownloadNeeded(&element);
        planned.part = software[i];
        mFetchBytes += partBytes(image, planned);
        mParts.push_back(planned);
    }
}

size_t UpdatePlan::neededCount() const {
    return static_cast<size_t>(
        std::count_if(mParts.begin(), mParts.end(), [](const PlannedPart& part) { return part.isNeeded; }));
}

std::string installedVersion(const std::string& recordFile) {
    const QuietLog quiet;
    const OpenRecord record(recordFile);
    options_t options = {};
    record.path().copy(options.primary, sizeof options.primary - 1);
    const auto context = std::make_unique<suul_ctx_t>();
    const auto hostConfig = std::make_unique<hostconfig_t>();
    if (loadHostConfig(&options, context.get(), hostConfig.get()) != 1)
        failRecord(recordFile);
    const suu_data_t& data = context->data;
    if (data.activeSet >= suu_data_t::SetCount ||
        data.sets[data.activeSet].releaseHeader >= suu_data_t::SetCount)
        return "";
    const zemp_content_release_header_t& release = data.releases[data.sets[data.activeSet].releaseHeader];
    return imagefile::versionText({release.major, release.minor, release.build}, ' ');
}

} // namespace updateplan
