// What the monitor reads from the database and writes to it, and what it decides from that.
#include "common/Noticeboard.h"
#include "common/VexStreamLog.h"
#include "common/maskedurl.h"
#include "image/ZempReadBack.h"
#include "main/ArgParser.h"
#include "vex/concurrency.h"
#include "workers/ConfigDbMonitor.h"
#include "workers/ConfigNames.h"
#include "workers/RegularFile.h"
#include "workitems/Events.h"
#include <cctype>

using vex::concurrency::scoped_lock;

namespace {

// What the event handler knows a status event by: little-endian, whatever the processor.
struct CsmMessage {
    static constexpr unsigned Size = 16;
    static constexpr unsigned IdOffset = 0;     // 4 bytes
    static constexpr unsigned StateOffset = 12; // 4 bytes
    static constexpr unsigned On = 2;
    static constexpr unsigned Off = 1;

    CsmMessage(unsigned id, bool on) {
        put(IdOffset, id);
        put(StateOffset, on ? On : Off);
    }

    void put(unsigned offset, unsigned value) {
        for (unsigned i = 0; i < 4; ++i)
            bytes[offset + i] = static_cast<unsigned char>(value >> (8 * i) & 0xFF);
    }

    unsigned char bytes[Size] = {};
};

// Major, minor with two digits at least, a separator, build label.
std::string versionText(const std::string& major, const std::string& minor, char separator,
                        const std::string& label) {
    const std::string padding(minor.size() < 2 ? 2 - minor.size() : 0, '0');
    return major + "." + padding + minor + separator + label;
}

// Whether a path carries this version, and not one that only begins or ends alike, as 1.05-70 does.
bool containsVersion(const std::string& path, const std::string& version) {
    const auto isDigit = [](unsigned char c) { return isdigit(c) != 0; };
    const auto isAlphanumeric = [](unsigned char c) { return isalnum(c) != 0; };
    for (size_t at = path.find(version); at != std::string::npos; at = path.find(version, at + 1)) {
        const size_t end = at + version.size();
        if ((at == 0 || !isDigit(static_cast<unsigned char>(path[at - 1]))) &&
            (end == path.size() || !isAlphanumeric(static_cast<unsigned char>(path[end]))))
            return true;
    }
    return false;
}

void warnMissing(const char* key) {
    VEX_LOG(LogWarning) << "ConfigDbMonitor::isNewFirmwareNeeded() No '" << key << "' found in configdb!";
}

} // namespace

std::string ConfigDbMonitor::getString(const char* key) {
    const scoped_lock lock(mutex);
    if (configDb == nullptr) {
        VEX_LOG(LogInfo) << "ConfigDbMonitor::getString() Not connected to configdb.";
        return "";
    }
    unsigned count = 0;
    common::ConfigDatabaseRecord* records = nullptr;
    if (!configDb->read(key, count, records)) {
        if (!configDb->connected()) {
            VEX_LOG(LogInfo) << "ConfigDbMonitor::getString() Not connected, so read " << key
                             << " from configdb failed!";
            Noticeboard::instance().postFailure(Noticeboard::Failure::Database,
                                                "the configuration database is not connected");
        } else {
            VEX_LOG(LogInfo) << "ConfigDbMonitor::getString() Failed to read " << key << " from configdb.";
            Noticeboard::instance().postValue(key, "");
        }
        return "";
    }
    if (count > 1) {
        VEX_LOG(LogInfo) << "ConfigDbMonitor::getString() More than one record returned (" << count
                         << "). Only using the first one.";
    }
    std::string value;
    if (count >= 1 && records != nullptr && records[0].type == common::ConfigDatabaseRecord::TypeString &&
        records[0].value != nullptr)
        value = records[0].value;
    configDb->free(records);
    Noticeboard::instance().postSuccess(Noticeboard::Failure::Database);
    Noticeboard::instance().postValue(key, value);
    return value;
}

std::string ConfigDbMonitor::getSwUpdateUrl() {
    return getString(ConfigKey::UpdateUrl);
}

std::string ConfigDbMonitor::getConfiguredVersion(char separator) {
    const std::string major = getString(ConfigKey::MajorVersion);
    const std::string minor = getString(ConfigKey::MinorVersion);
    return versionText(major, minor, separator, getString(ConfigKey::BuildLabel));
}

std::string ConfigDbMonitor::getSwVersion() {
    return getConfiguredVersion('-');
}

bool ConfigDbMonitor::isForcedUpdate() {
    return getString(ConfigKey::Force) == "1";
}

std::string ConfigDbMonitor::getReadyForFirmwareInstall() {
    if (configDb == nullptr) {
        VEX_LOG(LogInfo) << "ConfigDbMonitor::getReadyForFirmwareInstall() Not connected to configdb.";
        return "";
    }
    return getString(ConfigKey::ReadyForInstall);
}

void ConfigDbMonitor::logSwVer() {
    VEX_LOG(LogInfo) << "ConfigDbMonitor::logSwVer() Configured version=" << getSwVersion();
    VEX_LOG(LogInfo) << "ConfigDbMonitor::logSwVer() Software update URL=" << maskedUrl(getSwUpdateUrl());
    VEX_LOG(LogInfo) << "ConfigDbMonitor::logSwVer() " << ConfigKey::InstalledVersion << "="
                     << getString(ConfigKey::InstalledVersion);
}

bool ConfigDbMonitor::isConfiguredVersionInstalled() {
    const std::string installed = getString(ConfigKey::InstalledVersion);
    return !installed.empty() && getConfiguredVersion(' ') == installed;
}

bool ConfigDbMonitor::isNewFirmwareNeeded() {
    const std::string status = getString(ConfigKey::ConfigStatus);
    if (status.empty()) {
        warnMissing(ConfigKey::ConfigStatus);
        return false;
    }
    if (status != "complete") {
        VEX_LOG(LogInfo) << "ConfigDbMonitor::isNewFirmwareNeeded() '" << ConfigKey::ConfigStatus << "' is '"
                         << status << "'!";
        return false;
    }
    const std::string installed = getString(ConfigKey::InstalledVersion);
    if (installed.empty()) {
        warnMissing(ConfigKey::InstalledVersion);
        return false;
    }
    // Configured values are not tested: an empty one makes a version that differs from any installed one. The
    // installed version is written with a blank where the reported one has a dash.
    const std::string configured = getConfiguredVersion(' ');
    VEX_LOG(LogDebug) << "ConfigDbMonitor::isNewFirmwareNeeded() Config='" << configured << "' vs Suu='"
                      << installed << "'.";
    if (configured == installed) {
        setCsmEvent(CsmEvent::DownloadDisabled, false);
        logReason("No update is needed, " + getSwVersion() + " is installed.");
        return false;
    }
    if (getString(ConfigKey::DownloadDisabled) == "1") {
        setCsmEvent(CsmEvent::DownloadDisabled, true);
        logReason("Version " + getSwVersion() + " is not downloaded, '" + ConfigKey::DownloadDisabled +
                  "' is set.");
        return false;
    }
    loggedReason.clear();
    return true;
}

void ConfigDbMonitor::logReason(const std::string& reason) {
    if (reason != loggedReason)
        VEX_LOG(LogInfo) << "ConfigDbMonitor::isNewFirmwareNeeded() " << reason;
    loggedReason = reason;
}

ConfigDbMonitor::StatusCase ConfigDbMonitor::statusCase(bool needed, const std::string& ready,
                                                        const std::string& version) {
    if (!needed)
        return NotNeeded;
    if (ready.empty())
        return NothingReady;
    if (!containsVersion(ready, version)) // the image's name carries its version
        return WrongVersionReady;
    if (resolveRegularFile(ready).empty())
        return ReadyIsMissing;
    return isVouchedFor(ready) ? ReadyWaits : ReadyHasNoSeal;
}

bool ConfigDbMonitor::isVouchedFor(const std::string& image) {
    if (image == vouchedImage)
        return true;
    const size_t version = image.rfind('/') + 1 + ArgParser::getFwUpdateBaseFilename().size() + 1;
    const seal::Gate::Opened kept =
        gate.readSeal(gate.keptName(image), version < image.size() ? image.substr(version) : "");
    if (!kept.voucher)
        VEX_LOG(LogWarning) << "ConfigDbMonitor::isVouchedFor() '" << image << "' has no good seal, "
                            << kept.problem << ".";
    if (!kept.voucher || !isImageVouchedFor(image, kept.voucher))
        return false;
    vouchedImage = image;
    return true;
}

void ConfigDbMonitor::sendConfigDbStatus() {
    const std::string version = getSwVersion();
    const std::string ready = getReadyForFirmwareInstall();
    const bool forced = isForcedUpdate();
    const std::string url = getSwUpdateUrl();
    const bool needed = isNewFirmwareNeeded();

    auto status = ConfigDbStatusEvent::ConfigGetNewFirmware;
    std::string unwanted; // update image to delete
    switch (statusCase(needed, ready, version)) {
    case NotNeeded:
        VEX_LOG(LogInfo) << "ConfigDbMonitor::sendConfigDbStatus() No firmware update needed (at version "
                         << version << ").";
        status = ConfigDbStatusEvent::ConfigNoUpdateNeeded;
        setCsmEvent(CsmEvent::UpdateReady, false);
        if (!ready.empty()) {
            delReadyForFirmwareInstall();
            unwanted = ready;
        }
        break;
    case NothingReady:
        VEX_LOG(LogInfo) << "ConfigDbMonitor::sendConfigDbStatus() New firmware version " << version
                         << " needed.";
        VEX_LOG(LogInfo) << "ConfigDbMonitor::sendConfigDbStatus() Prepare version " << version << ".";
        setCsmEvent(CsmEvent::UpdateReady, false);
        break;
    case WrongVersionReady:
        VEX_LOG(LogInfo) << "ConfigDbMonitor::sendConfigDbStatus() Ups, ready for wrong version " << version
                         << ".";
        delReadyForFirmwareInstall();
        setCsmEvent(CsmEvent::UpdateReady, false);
        unwanted = ready;
        break;
    case ReadyHasNoSeal:
        VEX_LOG(LogWarning) << "ConfigDbMonitor::sendConfigDbStatus() '" << ready << "' is ready no more.";
        eraseKeyLocked(ConfigKey::ReadyForInstall);
        setCsmEvent(CsmEvent::UpdateReady, false);
        unwanted = ready;
        break;
    case ReadyWaits:
        VEX_LOG(LogInfo) << "ConfigDbMonitor::sendConfigDbStatus() Waiting for update '" << ready << "'.";
        status = ConfigDbStatusEvent::ConfigWaitForUpdate;
        setCsmEvent(CsmEvent::UpdateReady, true);
        break;
    case ReadyIsMissing:
        VEX_LOG(LogInfo) << "ConfigDbMonitor::sendConfigDbStatus() Ups, update ZEMP for version " << version
                         << " is missing.";
        delReadyForFirmwareInstall();
        setCsmEvent(CsmEvent::UpdateReady, false);
        break;
    }
    auto* event = new ConfigDbStatusEvent(status, version, url, forced); // the master's
    if (!unwanted.empty())
        event->setDeleteReadyForUpdateFile(unwanted);
    masterQueue.add(event);
}

void ConfigDbMonitor::onConfigUpdated() {
    if (!isNewFirmwareNeeded()) {
        VEX_LOG(LogDebug) << "ConfigDbMonitor::onCBusSignal() No need for new firmware.";
        delReadyForFirmwareInstall();
        setCsmEvent(CsmEvent::UpdateReady, false);
    } else {
        VEX_LOG(LogDebug) << "ConfigDbMonitor::onCBusSignal() New firmware needed.";
        if (getString(ConfigKey::Force).empty())
            writeKey(ConfigKey::Force, getString(ConfigKey::ForceUpdate));
        sendNewFirmwareNeeded();
    }
    if (!statusSent) { // the notice stands in for the first status
        statusSent = true;
        resetTimerToRunningInterval();
    }
}

// An image of another version must not be installed while the configured one is fetched: its flag goes first.
void ConfigDbMonitor::sendNewFirmwareNeeded() {
    const std::string url = getSwUpdateUrl();
    const std::string version = getSwVersion();
    const std::string ready = getReadyForFirmwareInstall();
    auto* event = new NewFirmwareNeededEvent(url, version, isForcedUpdate()); // the master's
    if (containsVersion(ready, version) && isVouchedFor(ready)) {
        event->setReadyFlag(NewFirmwareNeededEvent::ReadyFlagPresent);
    } else {
        event->setReadyFlag(NewFirmwareNeededEvent::ReadyFlagAbsent);
        if (!ready.empty() && eraseKeyLocked(ConfigKey::ReadyForInstall)) {
            if (containsVersion(ready, version))
                VEX_LOG(LogWarning) << "ConfigDbMonitor::onCBusSignal() '" << ready << "' is ready no more.";
            else
                VEX_LOG(LogInfo) << "ConfigDbMonitor::onCBusSignal() '" << ready << "' is not version "
                                 << version << ", it is ready no more.";
            setCsmEvent(CsmEvent::UpdateReady, false);
            event->setDeleteReadyForUpdateFile(ready);
        }
    }
    masterQueue.add(event);
}

bool ConfigDbMonitor::setReadyForFirmwareInstall(const std::string& file) {
    if (configDb == nullptr) {
        VEX_LOG(LogInfo) << "ConfigDbMonitor::setReadyForFirmwareInstall() Not connected to configdb.";
        return false;
    }
    const std::string path = resolveRegularFile(file);
    if (path.empty())
        return false;
    vouchedImage.clear(); // it was written anew
    if (!isVouchedFor(path) || !writeKey(ConfigKey::ReadyForInstall, path))
        return false; // a reboot without the flag would install nothing, and the next start would ask again
    if (isForcedUpdate() && !cbus.sendSignal(BusName::Reboot, nullptr, 0)) {
        VEX_LOG(LogWarning) << "ConfigDbMonitor::setReadyForFirmwareInstall() Error sending reboot request!";
    }
    return true;
}

bool ConfigDbMonitor::delReadyForFirmwareInstall() {
    const scoped_lock lock(mutex);
    if (configDb == nullptr) {
        VEX_LOG(LogInfo) << "ConfigDbMonitor::delReadyForFirmwareInstall() Not connected to configdb.";
        return false;
    }
    const bool readyErased = eraseKey(ConfigKey::ReadyForInstall);
    const bool forceErased = eraseKey(ConfigKey::Force);
    return readyErased && forceErased;
}

bool ConfigDbMonitor::eraseKeyLocked(const char* key) {
    const scoped_lock lock(mutex);
    return eraseKey(key);
}

// The caller holds the mutex.
bool ConfigDbMonitor::eraseKey(const char* key) {
    if (configDb != nullptr && configDb->erase(key)) {
        Noticeboard::instance().postValue(key, "");
        return true;
    }
    VEX_LOG(LogWarning) << "ConfigDbMonitor::eraseKey() Failed to erase " << key << " from configdb.";
    return false;
}

bool ConfigDbMonitor::writeKey(const char* key, const std::string& value) {
    if (configDb != nullptr && configDb->writeString(key, value.c_str())) {
        Noticeboard::instance().postValue(key, value);
        return true;
    }
    VEX_LOG(LogWarning) << "ConfigDbMonitor::writeKey() Failed to write " << key << " to configdb.";
    return false;
}

void ConfigDbMonitor::setCsmEvent(unsigned id, bool on) {
    VEX_LOG(LogInfo) << "ConfigDbMonitor::setCsmEvent(" << (on ? "on" : "off") << ")";
    const CsmMessage message(id, on);
    if (cbus_send_signal(cbus.getHandle(), BusName::StatusEvent, message.bytes, CsmMessage::Size) != 0) {
        VEX_LOG(LogWarning) << "ConfigDbMonitor::setCsmEvent: Error sending event!";
    }
}
