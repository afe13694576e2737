#include "fwcheck/Questions.h"
#include "fwctl/DaemonStatus.h"
#include "vex/CBusConnection.h"
#include "vex/FdLoop.h"
#include "workers/ConfigNames.h"
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vector>

namespace fwcheck {

namespace {

constexpr const char* DaemonName = "fw_download";
constexpr const char* HowToStart = "start it, with systemctl start fw-download";

// Processes of that name; those of other name spaces are no daemons of this terminal.
std::vector<std::string> findDaemons(const std::filesystem::path& processes) {
    std::error_code error;
    const auto spaceOf = [&](const std::string& pid) {
        return std::filesystem::read_symlink(processes / pid / "ns/pid", error);
    };
    const std::filesystem::path ownSpace = spaceOf("self");
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(processes, error)) {
        const std::string pid = entry.path().filename();
        std::string name;
        if (!std::all_of(pid.begin(), pid.end(), [](unsigned char c) { return isdigit(c); }) ||
            !std::getline(std::ifstream(entry.path() / "comm"), name) || name != DaemonName)
            continue;
        const std::filesystem::path space = spaceOf(pid);
        if (space.empty() || space == ownSpace)
            found.push_back(pid);
    }
    std::sort(found.begin(), found.end(), [](const std::string& left, const std::string& right) {
        return std::make_pair(left.size(), left) < std::make_pair(right.size(), right);
    });
    return found;
}

// How many of it run.
size_t askDaemon(const Places& places, Teller& teller) {
    constexpr const char* question = "daemon";
    const std::vector<std::string> daemons = findDaemons(places.processes);
    const std::string pidFile = places.run + "/fw_download.pid";
    const int64_t holder = findLockHolder(pidFile);
    if (daemons.size() > 1) {
        std::string all;
        for (const std::string& pid : daemons)
            all += (all.empty() ? "" : ", ") + pid;
        teller.wrong(question,
                     std::to_string(daemons.size()) + " of it run, processes " + all + ": kill all but one");
    } else if (daemons.size() == 1 || holder != 0) {
        teller.ok(question, "process " + (holder != 0 ? std::to_string(holder) : daemons.front()));
    } else if (std::filesystem::exists(pidFile)) {
        teller.wrong(question,
                     "it does not run, and did not end in order: " + pidFile + " is left: " + HowToStart);
    } else {
        teller.wrong(question, std::string("it does not run: ") + HowToStart);
    }
    return std::max<size_t>(daemons.size(), holder != 0 ? 1 : 0);
}

} // namespace

void askDaemonAndBus(const Places& places, Teller& teller) {
    const size_t daemons = askDaemon(places, teller);
    common::FdLoop loop;
    common::CBusConnection bus;
    if (!bus.connect(("fwctl-" + std::to_string(getpid())).c_str(), loop)) {
        teller.wrong("bus", bus.lastError() + ": start dbus, or see that VEX_CBUS_ADDRESS is right");
        teller.notAsked("bus-name", "there is no bus");
        return;
    }
    teller.ok("bus");
    const std::string name = std::string("the name ") + BusName::Client;
    common::CBusConnection daemon;
    const bool isFree = daemon.connect(BusName::Client, loop);
    // Of several one has the name, and the status may be the other's.
    const bool isDaemons = daemons > 1 || (daemons == 1 && readStatus(places.run).text("state") != "no-bus");
    if (isFree && daemons > 0)
        teller.wrong("bus-name", "the daemon does not have " + name +
                                     ": it tries for 100 s; restart it if that does not help");
    else if (isFree)
        teller.ok("bus-name", "nobody has " + name);
    else if (daemon.lastError().find("taken") == std::string::npos)
        teller.wrong("bus-name", daemon.lastError() + ": run this as root, and see the policy of the bus");
    else if (isDaemons)
        teller.ok("bus-name", "the daemon has " + name);
    else
        teller.wrong("bus-name", "another program has " + name + ": stop it, then restart the daemon");
}

} // namespace fwcheck
