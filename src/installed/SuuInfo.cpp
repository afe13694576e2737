#include "installed/SuuInfo.h"

#include "common/VexStreamLog.h"
#include "installed/SuuReport.h"
#include "installed/loadHostConfig.h"
#include <utility>

namespace {

std::string versionText(unsigned major, unsigned minor, unsigned build) {
    return std::to_string(major) + "." + std::to_string(minor) + "-" + std::to_string(build);
}

std::string versionText(const zemp_content_software_blob_t& software) {
    return versionText(software.major, software.minor, software.build);
}

void copyPath(char (&field)[100], const std::string& path) {
    field[path.copy(field, sizeof field - 1)] = '\0';
}

} // namespace

const std::string SuuInfo::sThePlatform = "4813";

SuuInfo::SuuInfo(RecordPaths recordPaths) : paths(std::move(recordPaths)) {
    VEX_LOG(LogDebug) << "SuuInfo::SuuInfo()";
}

SuuInfo::~SuuInfo() {
    VEX_LOG(LogDebug) << "SuuInfo::~SuuInfo()";
}

bool SuuInfo::initialize() {
    initialized = false;
    options_t options = {};
    copyPath(options.primary, paths.primary);
    copyPath(options.secondary, paths.secondary);
    int result = loadHostConfig(&options, &suul, &hostconfig);
    if (result != 1) {
        VEX_LOG(LogError) << "SuuInfo::initialize() Loading hostconfig failed! Result=" << result << ".";
        return false;
    }
    result = suul_partpool_generate(&suul);
    if (result != 1) {
        VEX_LOG(LogError) << "SuuInfo::initialize() Generation of partition pools failed! Result=" << result
                          << ".";
        return false;
    }
    VEX_LOG(LogDebug) << "SuuInfo::initialize() Done.";
    initialized = true;
    return true;
}

bool SuuInfo::isCurrentContentPart(const std::string& name, unsigned char major, unsigned char minor,
                                   unsigned char build) const {
    if (name.empty()) {
        VEX_LOG(LogWarning) << "SuuInfo::isDoisCurrentContentPartwnloadNeeded() Content part name is NULL!";
        return false;
    }
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        if (ZempFormat::text(suul.data.partitions[i].name) != name)
            continue;
        VEX_LOG(LogWarning) << "SuuInfo::isCurrentContentPart() Found a '" << name << "'.";
        if (suul.data.holds(i, major, minor, build)) {
            VEX_LOG(LogDebug) << "SuuInfo::isCurrentContentPart() " << name << " version "
                              << versionText(major, minor, build) << " is current";
            return true;
        }
        VEX_LOG(LogDebug) << "SuuInfo::isCurrentContentPart() "
                          << "Not current " << name << " has version " << versionText(major, minor, build)
                          << " current has " << versionText(suul.data.contents[i].software) << ".";
    }
    return false;
}

bool SuuInfo::isDownloadNeeded(const SuumBlob::Element* element) const {
    if (element == nullptr) {
        VEX_LOG(LogWarning) << "SuuInfo::isDownloadNeeded() SuumBlob Element is NULL!";
        return false;
    }
    const std::string platform = element->getPlatform();
    if (!platform.empty() && platform != "-" && platform != sThePlatform) {
        VEX_LOG(LogDebug) << "SuuInfo::isDownloadNeeded() Platform='" << platform
                          << "' is not for our platform=" << sThePlatform << ".";
        return false;
    }
    VEX_LOG(LogDebug) << "SuuInfo::isDownloadNeeded() Platform='" << platform
                      << "' is for our platform=" << sThePlatform << ".";
    bool needed = true;
    const std::string pool = element->getPoolname();
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        const suu_partition_t& partition = suul.data.partitions[i];
        if (partition.name[0] == '\0' || ZempFormat::text(partition.name) != pool)
            continue;
        const bool installed =
            suul.data.holds(i, element->getMajor(), element->getMinor(), element->getBuild());
        if (installed)
            needed = false;
        const std::string mountPoint = ZempFormat::text(partition.mountPoint);
        VEX_LOG(LogDebug) << (installed ? "SuuInfo::isDownloadNeeded() Already got a version "
                                        : "SuuInfo::isDownloadNeeded() Need to get a version ")
                          << versionText(element->getMajor(), element->getMinor(), element->getBuild())
                          << " '" << pool << "'" << (mountPoint.empty() ? "" : " @ ") << mountPoint;
    }
    return needed;
}

std::string SuuInfo::getTimeString(int seconds) const {
    return getSuuTimeText(seconds);
}

void SuuInfo::logSuuInfo() {
    if (!initialized) {
        VEX_LOG(LogWarning) << "SuuInfo::logSuuInfo() SuuInfo not initialized!";
        return;
    }
    writeSuuReport(suul, [](const std::string& line) { VEX_LOG(LogInfo) << line; });
}
