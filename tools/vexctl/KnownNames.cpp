#include "KnownNames.h"

#include "cli/CommandLine.h"
#include "workers/ConfigNames.h"
#include <algorithm>

namespace {

constexpr const char* Keys[] = {
    ConfigKey::ConfigStatus,    ConfigKey::InstalledVersion, ConfigKey::MajorVersion,
    ConfigKey::MinorVersion,    ConfigKey::BuildLabel,       ConfigKey::UpdateUrl,
    ConfigKey::ForceUpdate,     ConfigKey::DownloadDisabled, ConfigKey::Force,
    ConfigKey::ReadyForInstall,
};

// Of a status event.
constexpr unsigned EventSize = 16;
constexpr unsigned StateOffset = 12;
constexpr unsigned On = 2;

unsigned getLe32(const unsigned char* bytes) {
    return bytes[0] | unsigned{bytes[1]} << 8 | unsigned{bytes[2]} << 16 | unsigned{bytes[3]} << 24;
}

} // namespace

std::string findMisspelt(const std::string& key) {
    const auto isNear = [&](const char* known) {
        const size_t slips = cli::countSlips(key, known);
        return slips > 0 && slips <= cli::MostSlips;
    };
    if (std::find(std::begin(Keys), std::end(Keys), key) != std::end(Keys))
        return "";
    const auto* const found = std::find_if(std::begin(Keys), std::end(Keys), isNear);
    return found != std::end(Keys) ? *found : "";
}

std::string explainSignal(const std::string& name, const void* data, unsigned length) {
    if (name != BusName::StatusEvent || length != EventSize)
        return "";
    const auto* const bytes = static_cast<const unsigned char*>(data);
    const unsigned id = getLe32(bytes);
    const std::string state = getLe32(bytes + StateOffset) == On ? " on" : " off";
    if (id == CsmEvent::UpdateReady)
        return "update ready" + state;
    return id == CsmEvent::DownloadDisabled ? "download disabled" + state : "";
}
