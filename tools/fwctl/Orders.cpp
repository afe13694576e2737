// What the daemon is to do: written to the configuration database, then told on the bus.
#include "Commands.h"
#include "fwctl/Wanted.h"
#include "vex/CBusConnection.h"
#include "vex/ConfigDatabaseConnection.h"
#include "vex/FdLoop.h"
#include "workers/ConfigNames.h"
#include <iostream>
#include <unistd.h>
#include <utility>
#include <vector>

using common::ConfigDatabaseConnection;
using common::ConfigDatabaseRecord;

namespace {

using Values = std::vector<std::pair<std::string, std::string>>;

// False with the reason in the database, or with none when there is no such key.
bool read(ConfigDatabaseConnection& database, const char* key, std::string& value) {
    unsigned count = 0;
    ConfigDatabaseRecord* records = nullptr;
    if (!database.read(key, count, records))
        return false;
    value = records[0].value != nullptr ? records[0].value : "";
    database.free(records);
    return true;
}

// Both or neither is said to have worked: what is written stays when the bus fails, and so is the complaint.
int order(const Values& values) {
    ConfigDatabaseConnection& database = *ConfigDatabaseConnection::getInstance();
    if (!database.open() || !database.writeStrings(values))
        return complain(sFailed, "nothing was changed: " + database.lastError());
    database.disconnect();
    common::FdLoop loop;
    common::CBusConnection bus;
    if (bus.connect(("fwctl-" + std::to_string(getpid())).c_str(), loop) &&
        bus.sendSignal(BusName::ConfigUpdated, nullptr, 0))
        return sDone;
    return complain(sFailed, "it is in the database, but the daemon could not be told: " + bus.lastError());
}

} // namespace

int orderUpdate(const std::string& version, const std::string& url, bool forced) {
    const std::optional<Wanted> wanted = parseWanted(version);
    if (!wanted)
        return complain(sWrongUse, "'" + version + "' is no version like 1.05-7");
    const std::string fault = faultOfUrl(url);
    if (!fault.empty())
        return complain(sWrongUse, "this URL cannot be: " + fault); // it may hold a password
    Values values = {{ConfigKey::MajorVersion, wanted->major},
                     {ConfigKey::MinorVersion, wanted->minor},
                     {ConfigKey::BuildLabel, wanted->label},
                     {ConfigKey::UpdateUrl, url},
                     {ConfigKey::ConfigStatus, "complete"}};
    if (forced)
        values.emplace_back(ConfigKey::Force, "1");
    return order(values);
}

int orderForce() {
    return order({{ConfigKey::Force, "1"}});
}

int orderDisabled(bool disabled) {
    return order({{ConfigKey::DownloadDisabled, disabled ? "1" : "0"}});
}

int showPending() {
    ConfigDatabaseConnection& database = *ConfigDatabaseConnection::getInstance();
    std::string path;
    if (!database.openExisting() ||
        (!read(database, ConfigKey::ReadyForInstall, path) && !database.lastError().empty()))
        return complain(sFailed, database.lastError());
    if (path.empty())
        return complain(sFailed, "no update image waits for its installation");
    std::cout << path << std::endl;
    return std::cout ? sDone : complain(sFailed, "cannot write to standard output");
}
