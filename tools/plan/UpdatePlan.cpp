#include "plan/UpdatePlan.h"

#include "image/ReleaseHeaderPart.h"
#include "image/ZempParser.h"
#include "plan/InstalledSoftware.h"
#include "plan/QuietLog.h"
#include "plan/Rehearsal.h"
#include "update/StartRange.h"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <stdexcept>

namespace plan {

namespace {

constexpr uint64_t StartBytes = uint64_t{FileFragment::ZempStartSize} + 1;

// The version of the release header that the image begins with.
std::string findRelease(imagefile::ImageSource& image) {
    image.load(0, StartBytes);
    const auto size = static_cast<uint32_t>(std::min(StartBytes, image.size()));
    const ZempParser parser;
    const uint32_t offset = parser.parseZempFileStart(image.data(), size);
    if (offset == 0)
        throw std::runtime_error(image.name() + ": is not an image");
    const std::unique_ptr<ZempHeaderPart> header(
        parser.parseZempHeader(image.data() + offset, size - offset));
    if (!header)
        throw std::runtime_error(image.name() + ": has no valid main header");
    const uint32_t body = offset + header->getZempHeader()->hdr_length;
    const std::unique_ptr<ZempPart> part(parser.parseContentPart(image.data() + body, size - body));
    if (dynamic_cast<ReleaseHeaderPart*>(part.get()) == nullptr)
        throw std::runtime_error(image.name() + ": does not begin with a release header");
    return part->getPartVersion();
}

bool isForThisPlatform(const std::string& platform) {
    return platform.empty() || platform == "-" || platform == SuuInfo::sThePlatform;
}

Element describe(const SuumBlob::Element& element, const InstalledSoftware& installed) {
    Element row;
    row.index = element.getContentIndex();
    row.pool = element.getPoolname();
    row.platform = element.getPlatform();
    row.mountPoint = element.getMountPoint();
    row.version = ZempPart::getVersionString(element.getMajor(), element.getMinor(), element.getBuild());
    row.isNeeded = installed.info().isDownloadNeeded(&element);
    const auto partitions = installed.partitionsOf(row.pool);
    for (const InstalledSoftware::Partition& partition : partitions)
        row.installed.push_back(partition.version);
    if (!isForThisPlatform(row.platform))
        row.reason = "for platform " + row.platform + ", this one is " + SuuInfo::sThePlatform;
    else if (!row.isNeeded)
        row.reason = partitions.size() == 1 ? "installed" : "installed on one of the pool's partitions";
    else if (partitions.empty())
        row.reason = "no partition of this pool is known";
    else
        row.reason = "another version is installed";
    return row;
}

} // namespace

std::string getText(const Request& request) {
    switch (request.what) {
    case Request::Start:
        return "image start";
    case Request::RestOfStart:
        return "rest of the start";
    case Request::Header:
        return request.part + " header";
    case Request::HeaderAndBody:
        return request.part + " header and body";
    case Request::Body:
        return request.part + " body";
    }
    return "";
}

uint64_t UpdatePlan::fetchedBytes() const {
    return std::accumulate(requests.begin(), requests.end(), uint64_t{0},
                           [](uint64_t sum, const Request& request) { return sum + request.bytes; });
}

std::string UpdatePlan::durationText() const {
    constexpr double shownInTenths = 120; // seconds
    constexpr long minute = 60;
    char text[48];
    const long whole = std::lround(seconds());
    if (seconds() < shownInTenths)
        snprintf(text, sizeof text, "%.1f s", seconds());
    else
        snprintf(text, sizeof text, "%ld min %ld s", whole / minute, whole % minute);
    return text;
}

uint64_t UpdatePlan::temporaryBytes() const {
    constexpr uint64_t head = ZempFormat::MagicSize + ZempFormat::HeaderSize;
    return updateImageBytes > head ? updateImageBytes - head : 0;
}

uint64_t getMaximumStartBytes() {
    return MaximumZempStartSize;
}

UpdatePlan makePlan(imagefile::ImageSource& image, const std::string& recordFile,
                    const std::function<bool()>& isStopped) {
    const QuietLog quiet;
    const InstalledSoftware installed(recordFile);
    UpdatePlan plan;
    plan.image = image.name();
    plan.imageBytes = image.size();
    if (image.size() == 0)
        throw std::runtime_error(image.name() + ": is empty");
    plan.release = findRelease(image);
    Rehearsal rehearsal(image, installed.paths(), plan);
    rehearsal.run(isStopped);
    if (const SuumBlob* const manifest = rehearsal.manifest())
        for (uint32_t i = 0; i < manifest->getNumberOfElements(); ++i)
            plan.elements.push_back(describe(*manifest->getElementAt(i), installed));
    return plan;
}

} // namespace plan
