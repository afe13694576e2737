#include "update/rig/Platform.h"

#include "vex/CBusConnection.h"
#include "vex/ConfigDatabaseConnection.h"

namespace rig {

Platform* Platform::sCurrent = nullptr;

} // namespace rig

using rig::Platform;

int cbus_send_signal(cbus_handle_t*, const char* name, const void*, unsigned) {
    Platform::sCurrent->onSignal(name);
    return 0;
}

namespace common {

struct CBusConnection::Impl {};
CBusConnection::CBusConnection() = default;
CBusConnection::~CBusConnection() = default;
bool CBusConnection::connect(const char*, FdLoop&) {
    return true;
}
void CBusConnection::disconnect() {}
bool CBusConnection::addFilter(const char*) {
    return true;
}
bool CBusConnection::registerSignalHandler(const char*, CBusMessageHandler*) {
    return true;
}
bool CBusConnection::sendSignal(const char* name, const void*, unsigned) {
    Platform::sCurrent->onSignal(name);
    return true;
}
cbus_handle_t* CBusConnection::getHandle() {
    return nullptr;
}

struct ConfigDatabaseConnection::Impl {
    std::string value; // of the last read
    ConfigDatabaseRecord record = {};
};
ConfigDatabaseConnection::ConfigDatabaseConnection() : mImpl(std::make_unique<Impl>()) {}
ConfigDatabaseConnection::~ConfigDatabaseConnection() = default;
ConfigDatabaseConnection* ConfigDatabaseConnection::getInstance() {
    static ConfigDatabaseConnection instance;
    return &instance;
}
bool ConfigDatabaseConnection::connect(CBusConnection&) {
    return true;
}
bool ConfigDatabaseConnection::connected() const {
    return true;
}
void ConfigDatabaseConnection::disconnect() {}
bool ConfigDatabaseConnection::read(const char* key, unsigned& count, ConfigDatabaseRecord*& records) {
    const bool isRead = Platform::sCurrent->onRead(key, mImpl->value);
    mImpl->record = {ConfigDatabaseRecord::TypeString, mImpl->value.c_str()};
    count = isRead ? 1 : 0;
    records = isRead ? &mImpl->record : nullptr;
    return isRead;
}
void ConfigDatabaseConnection::free(ConfigDatabaseRecord*) {}
bool ConfigDatabaseConnection::writeString(const char* key, const char* value) {
    return Platform::sCurrent->onWrite(key, value);
}
bool ConfigDatabaseConnection::erase(const char* key) {
    return Platform::sCurrent->onWrite(key, "");
}
const std::string& ConfigDatabaseConnection::lastError() const {
    return mImpl->value;
}

} // namespace common
