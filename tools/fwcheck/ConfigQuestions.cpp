#include "common/maskedurl.h"
#include "common/printable.h"
#include "fwcheck/Questions.h"
#include "fwctl/Wanted.h"
#include "vex/ConfigDatabaseConnection.h"
#include "workers/ConfigNames.h"
#include <map>
#include <vector>

using common::ConfigDatabaseConnection;
using common::ConfigDatabaseRecord;

namespace fwcheck {

namespace {

// All that the daemon reads. An absent key has an empty value, as for the daemon.
constexpr const char* Keys[] = {
    ConfigKey::ConfigStatus,     ConfigKey::InstalledVersion, ConfigKey::MajorVersion,
    ConfigKey::MinorVersion,     ConfigKey::BuildLabel,       ConfigKey::UpdateUrl,
    ConfigKey::DownloadDisabled,
};
constexpr const char* Questions[] = {"configuration", "version", "url", "installed", "downloads", "need"};

using Values = std::map<std::string, std::string>;

std::string quote(const std::string& text) {
    return "'" + printable(text) + "'";
}

// False with the reason in the database.
bool readAll(ConfigDatabaseConnection& database, Values& values) {
    for (const char* const key : Keys) {
        unsigned count = 0;
        ConfigDatabaseRecord* records = nullptr;
        const bool isThere = database.read(key, count, records);
        if (!isThere && !database.lastError().empty())
            return false;
        if (isThere && records[0].value != nullptr)
            values[key] = records[0].value;
        database.free(records);
    }
    return true;
}

std::string findVersion(Values& values, Teller& teller) {
    const Wanted wanted = {values[ConfigKey::MajorVersion], values[ConfigKey::MinorVersion],
                           values[ConfigKey::BuildLabel]};
    for (const char* const key : {ConfigKey::MajorVersion, ConfigKey::MinorVersion, ConfigKey::BuildLabel})
        if (values[key].empty()) {
            teller.wrong("version", quote(key) + " is missing: set it, or use fwctl update");
            return "";
        }
    const std::optional<Wanted> parsed = parseWanted(wanted.text());
    if (!parsed || parsed->text() != wanted.text()) {
        teller.wrong("version", quote(wanted.text()) + " is no version like 1.05-7: use fwctl update");
        return "";
    }
    teller.ok("version", wanted.text());
    return wanted.text();
}

std::string findUrl(Values& values, Teller& teller) {
    const std::string url = values[ConfigKey::UpdateUrl];
    const std::string fault = faultOfUrl(url);
    if (url.empty())
        teller.wrong("url", quote(ConfigKey::UpdateUrl) + " is missing: set it, or use fwctl update");
    else if (!fault.empty())
        teller.wrong("url", quote(ConfigKey::UpdateUrl) + " cannot be: " + fault);
    else
        teller.ok("url", maskedUrl(url));
    return fault.empty() ? url : "";
}

// With a dash, as the wanted version is written.
std::string findInstalled(Values& values, Teller& teller) {
    std::string installed = values[ConfigKey::InstalledVersion];
    const std::string example = ": set it, for example to '1.04 3'";
    const size_t blank = installed.find(' ');
    std::string text = installed;
    if (blank != std::string::npos)
        text[blank] = '-';
    if (installed.empty())
        teller.wrong("installed", quote(ConfigKey::InstalledVersion) + " is missing" + example);
    else if (blank == std::string::npos || !parseWanted(text))
        teller.wrong("installed", quote(installed) + " is no version" + example);
    else
        teller.ok("installed", text);
    return installed.empty() ? "" : text;
}

// Labels that are no numbers have no order.
bool isOlder(const std::string& left, const std::string& right) {
    const std::optional<Wanted> a = parseWanted(left);
    const std::optional<Wanted> b = parseWanted(right);
    if (!a || !b)
        return false;
    const auto isLess = [](const std::string& x, const std::string& y) {
        return x.size() != y.size() ? x.size() < y.size() : x < y;
    };
    const auto isNumber = [](const std::string& text) {
        return text.find_first_not_of("0123456789") == std::string::npos;
    };
    if (a->major != b->major)
        return isLess(a->major, b->major);
    if (a->minor != b->minor)
        return isLess(a->minor, b->minor);
    return isNumber(a->label) && isNumber(b->label) && isLess(a->label, b->label);
}

} // namespace

Wish askConfiguration(Teller& teller) {
    Wish wish;
    ConfigDatabaseConnection& database = *ConfigDatabaseConnection::getInstance();
    Values values;
    if (!database.openExisting() || !readAll(database, values)) {
        const std::string reason = database.lastError();
        teller.wrong("database",
                     reason + (reason.find("locked") != std::string::npos
                                   ? ": see which program holds it"
                                   : ": see that VEX_CONFIGDB is right; fwctl update makes a new one"));
        database.disconnect();
        for (const char* const question : Questions)
            teller.notAsked(question, "the database cannot be read");
        return wish;
    }
    database.disconnect();
    teller.ok("database");

    const std::string status = values[ConfigKey::ConfigStatus];
    const std::string key = quote(ConfigKey::ConfigStatus);
    const std::string advice = ": set it to 'complete' when all other keys are right";
    if (status == "complete")
        teller.ok("configuration", "complete");
    else
        teller.wrong("configuration",
                     key + (status.empty() ? " is missing" : " is " + quote(status)) + advice);
    wish.version = findVersion(values, teller);
    wish.url = findUrl(values, teller);
    const std::string installed = findInstalled(values, teller);
    if (values[ConfigKey::DownloadDisabled] == "1")
        teller.wrong("downloads", quote(ConfigKey::DownloadDisabled) + " is 1: use fwctl enable");
    else
        teller.ok("downloads", "allowed");

    if (wish.version.empty() || installed.empty()) {
        teller.notAsked("need", "a version is not known");
        return wish;
    }
    wish.isNeeded = wish.version != installed;
    if (!wish.isNeeded)
        teller.ok("need", "none, " + wish.version + " is installed");
    else
        teller.ok("need", (isOlder(wish.version, installed) ? "back from " : "from ") + printable(installed) +
                              " to " + wish.version);
    return wish;
}

} // namespace fwcheck
