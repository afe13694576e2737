#include "lab/ConfigStore.h"

#include "vex/ConfigDatabaseConnection.h"
#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace lab {

namespace {

constexpr const char* sReadyKey = "cfg.fw_ready_for_install";

common::ConfigDatabaseConnection& database() {
    return *common::ConfigDatabaseConnection::getInstance();
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + database().lastError());
}

bool isNumber(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return isdigit(c); });
}

} // namespace

ConfiguredVersion ConfiguredVersion::parse(const std::string& text) {
    const size_t point = text.find('.');
    const size_t dash = text.find('-', point == std::string::npos ? 0 : point);
    if (point == std::string::npos || dash == std::string::npos || dash + 1 == text.size())
        throw std::runtime_error("'" + text + "' is no version like 1.05-7");
    ConfiguredVersion version;
    version.major = text.substr(0, point);
    version.minor = text.substr(point + 1, dash - point - 1);
    version.buildLabel = text.substr(dash + 1);
    if (!isNumber(version.major) || !isNumber(version.minor))
        throw std::runtime_error("'" + text + "' is no version like 1.05-7");
    const size_t digits = version.minor.find_first_not_of('0');
    version.minor.erase(0, std::min(digits, version.minor.size() - 1));
    return version;
}

std::string ConfiguredVersion::toString() const {
    return major + "." + (minor.size() < 2 ? "0" : "") + minor + "-" + buildLabel;
}

ConfigStore::ConfigStore(const std::string& file) : mFile("VEX_CONFIGDB", file) {
    if (!database().open())
        fail("cannot open the configuration database '" + file + "'");
}

ConfigStore::~ConfigStore() {
    database().disconnect();
}

void ConfigStore::configure(const ConfiguredVersion& version, const std::string& url) {
    if (!database().writeStrings({{"cfg.device.configuration.major_version", version.major},
                                  {"cfg.device.configuration.minor_version", version.minor},
                                  {"cfg.device.configuration.build_label", version.buildLabel},
                                  {"cfg.device.configuration.sw_update_url", url},
                                  {"cfg.config.status", "complete"}}))
        fail("cannot write the configuration");
}

void ConfigStore::setInstalledVersion(const std::string& version) {
    set("state.suu.currentset.version", version);
}

std::string ConfigStore::readyForInstall() {
    return get(sReadyKey);
}

std::string ConfigStore::get(const std::string& key) {
    unsigned count = 0;
    common::ConfigDatabaseRecord* records = nullptr;
    if (!database().read(key.c_str(), count, records)) {
        if (!database().lastError().empty())
            fail("cannot read '" + key + "'");
        return "";
    }
    std::string value;
    if (count > 0 && records[0].value != nullptr)
        value = records[0].value;
    database().free(records);
    return value;
}

void ConfigStore::set(const std::string& key, const std::string& value) {
    if (!database().writeString(key.c_str(), value.c_str()))
        fail("cannot write '" + key + "'");
}

} // namespace lab
