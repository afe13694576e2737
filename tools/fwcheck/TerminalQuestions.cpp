#include "fwcheck/Questions.h"
#include "imagefile/NumberText.h"
#include "installed/hostconfig.h"
#include "plan/InstalledSoftware.h"
#include "plan/QuietLog.h"
#include "update/FileFragment.h"
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace fwcheck {

namespace {

constexpr time_t Earliest = 1704067200; // 2024-01-01: no certificate of today was valid before

// Why the daemon would not accept a record; empty when it would.
std::string faultOfRecord(const std::string& file) {
    try {
        const plan::QuietLog quiet;
        const plan::InstalledSoftware installed(file);
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

// What the daemon has in its directory for an update, or may delete there when space is short.
uint64_t bytesOfDaemon(const std::string& directory) {
    uint64_t bytes = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error))
        if (entry.is_regular_file(error) &&
            FileFragment::parseFragmentType(entry.path()) != FileFragment::UnknownType)
            bytes += entry.file_size(error);
    return bytes;
}

// What can be had in a directory. Throws std::runtime_error when it cannot be written.
struct Room {
    explicit Room(const std::string& directory) {
        struct stat status = {};
        struct statvfs space = {};
        if (stat(directory.c_str(), &status) != 0 || statvfs(directory.c_str(), &space) != 0)
            throw std::runtime_error(directory + ": " + strerror(errno));
        if (!S_ISDIR(status.st_mode))
            throw std::runtime_error(directory + ": it is not a directory");
        if (access(directory.c_str(), W_OK | X_OK) != 0)
            throw std::runtime_error(directory + ": " + strerror(errno));
        device = status.st_dev;
        bytes = uint64_t{space.f_bavail} * space.f_frsize;
    }

    dev_t device;
    uint64_t bytes;
};

// `needed` is 0 when that is not known.
void tell(const char* question, const std::string& directory, uint64_t bytes, uint64_t needed,
          const char* advice, Teller& teller) {
    const std::string has = directory + " has " + imagefile::groupDigits(bytes) + " bytes";
    if (bytes == 0 || bytes < needed)
        teller.wrong(question,
                     has + (needed == 0 ? "" : ", the update needs " + imagefile::groupDigits(needed)) +
                         ": " + advice);
    else
        teller.ok(question, has + (needed == 0 ? "" : ", " + imagefile::groupDigits(needed) + " are needed"));
}

} // namespace

std::optional<std::string> askRecord(const Places& places, Teller& teller) {
    const auto record = std::make_unique<hostconfig_t>();
    const RecordPaths& paths = places.record;
    const int loaded = hostconfig_new(record.get(), HostconfigMaximumSize) == 1
                           ? hostconfig_load(record.get(), paths.primary.c_str(), paths.secondary.c_str())
                           : -1;
    const std::string& file = loaded == 2 ? paths.secondary : paths.primary;
    const std::string fault = faultOfRecord(paths.primary);
    if (loaded == 2 && faultOfRecord(file).empty()) {
        teller.ok("record", "from the backup " + file + ", since " + fault);
    } else if (fault.empty()) {
        teller.ok("record", "from " + file);
    } else {
        teller.wrong("record", fault + "; " + faultOfRecord(paths.secondary) +
                                   ": write a record there, zemp hostcfg makes one");
        return {};
    }
    return file;
}

void askClock(const Places& places, const Wish& wish, Teller& teller) {
    tm utc = {};
    char day[16] = "?";
    if (gmtime_r(&places.now, &utc) != nullptr)
        strftime(day, sizeof day, "%Y-%m-%d", &utc);
    if (places.now >= Earliest)
        teller.ok("clock", day);
    else if (wish.url.rfind("https:", 0) == 0)
        teller.wrong("clock", std::string("it is ") + day + ": set it, no certificate is valid then");
    else
        teller.ok("clock", day + std::string(", which only https minds"));
}

void askSpace(const Places& places, const plan::UpdatePlan* plan, Teller& teller) {
    const uint64_t download = plan != nullptr ? plan->downloadDirectoryBytes() : 0;
    const uint64_t temporary = plan != nullptr ? plan->temporaryBytes() : 0;
    std::optional<Room> room;
    try {
        // The daemon makes the directory, but not the one that it is in.
        const std::filesystem::path downloads(places.downloads);
        room.emplace(exists(downloads) ? downloads : downloads.parent_path());
        tell("space", places.downloads, room->bytes + bytesOfDaemon(places.downloads), download,
             "make room on that disk", teller);
    } catch (const std::exception& error) {
        teller.wrong("space", std::string(error.what()) + ": it is to be a directory that can be written");
    }
    try {
        const Room other(places.temporary);
        const bool isShared = room && room->device == other.device;
        tell("temporary", places.temporary, other.bytes - (isShared ? std::min(download, other.bytes) : 0),
             temporary, "mount a larger one, or one on flash", teller);
    } catch (const std::exception& error) {
        teller.wrong("temporary",
                     std::string(error.what()) + ": it is to be a directory that can be written");
    }
}

} // namespace fwcheck
