#include "fwctl/DaemonStatus.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/file.h>
#include <unistd.h>

using nlohmann::json;

namespace {

constexpr const char* DaemonName = "fw_download";

std::string readAll(const std::string& filename) {
    std::ifstream file(filename);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A daemon in the foreground has no pid file.
bool isDaemon(int64_t pid) {
    return pid > 0 && readAll("/proc/" + std::to_string(pid) + "/comm") == std::string(DaemonName) + "\n";
}

std::string timeText(int64_t seconds) {
    const auto time = static_cast<time_t>(seconds);
    tm local = {};
    char text[32] = "?";
    if (localtime_r(&time, &local) != nullptr)
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string sizeText(int64_t bytes) {
    char text[32];
    if (bytes < 1000)
        snprintf(text, sizeof text, "%lld bytes", static_cast<long long>(bytes));
    else if (bytes < 1000000)
        snprintf(text, sizeof text, "%.1f kB", static_cast<double>(bytes) / 1e3);
    else
        snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
    return text;
}

std::string durationText(int64_t seconds) {
    return seconds < 120 ? std::to_string(seconds) + " s" : std::to_string(seconds / 60) + " min";
}

// Null when there is none.
json memberOf(const json& object, const char* name) {
    return object.is_object() && object.contains(name) ? object[name] : json();
}

bool isTrue(const json& object, const char* name) {
    return memberOf(object, name) == json(true);
}

std::string describeElement(const json& element) {
    const json needed = memberOf(element, "needed");
    const std::string need = needed.is_boolean() ? needed.get<bool>() ? "needed" : "not needed" : "?";
    const int64_t total = DaemonStatus::numberOf(element, "total");
    const int64_t bytes = DaemonStatus::numberOf(element, "bytes");
    std::string line =
        "  " + DaemonStatus::textOf(element, "name") + " " + DaemonStatus::textOf(element, "version");
    line.resize(std::max<size_t>(line.size() + 1, 26), ' ');
    line += need;
    line.resize(std::max<size_t>(line.size() + 1, 38), ' ');
    if (total == 0)
        return line + "not begun";
    return line +
           (bytes >= total ? "complete, " + sizeText(total) : sizeText(bytes) + " of " + sizeText(total));
}

} // namespace

std::string DaemonStatus::textOf(const json& object, const char* name) {
    const json value = memberOf(object, name);
    return value.is_string() ? value.get<std::string>() : "";
}

int64_t DaemonStatus::numberOf(const json& object, const char* name) {
    const json value = memberOf(object, name);
    return value.is_number_integer() ? value.get<int64_t>() : 0;
}

int64_t findLockHolder(const std::string& filename) {
    const int fd = open(filename.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return 0;
    const bool isHeld = flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    close(fd);
    return isHeld ? strtoll(readAll(filename).c_str(), nullptr, 10) : 0;
}

DaemonStatus readStatus(const std::string& runDirectory) {
    const std::string filename = runDirectory + "/fw_download/status.json";
    DaemonStatus status;
    status.values = json::object();
    const int64_t holder = findLockHolder(runDirectory + "/fw_download.pid");
    const std::string text = readAll(filename);
    json read = json::parse(text, nullptr, false);
    if (read.is_object())
        status.values = std::move(read);
    else
        status.fault = text.empty() ? "there is no status in " + filename : filename + " is damaged";
    const int64_t writer = status.number("pid");
    status.isRunning = holder != 0 || isDaemon(writer);
    status.isStale = holder != 0 && writer != 0 && writer != holder;
    return status;
}

std::string describeProgress(const DaemonStatus& status, unsigned barColumns) {
    const json transfer = memberOf(status.values, "transfer");
    const int64_t total = DaemonStatus::numberOf(transfer, "total");
    if (!transfer.is_object() || total <= 0)
        return status.text("sentence");
    const int64_t bytes = std::min(DaemonStatus::numberOf(transfer, "bytes"), total);
    const int64_t rate = DaemonStatus::numberOf(transfer, "rate");
    std::string line = DaemonStatus::textOf(transfer, "what") + " ";
    if (barColumns > 0) {
        const auto full = static_cast<size_t>(bytes * barColumns / total);
        line += "[" + std::string(full, '#') + std::string(barColumns - full, '.') + "] ";
    }
    line += std::to_string(bytes * 100 / total) + " %, " + sizeText(bytes) + " of " + sizeText(total);
    if (rate > 0)
        line += ", " + sizeText(rate) + "/s, " + durationText((total - bytes) / rate) + " left";
    return line;
}

std::vector<std::string> describe(const DaemonStatus& status) {
    std::vector<std::string> lines;
    if (!status.isRunning)
        lines.emplace_back("fw_download does not run" +
                           std::string(status.fault.empty() ? "; this is what it said last" : ""));
    else if (status.isStale)
        lines.emplace_back("fw_download runs, but this is from an earlier process");
    if (!status.fault.empty()) {
        lines.push_back(status.fault);
        return lines;
    }
    lines.push_back("fw_download " + status.text("program") + ", process " +
                    std::to_string(status.number("pid")) + ", started " + timeText(status.number("started")));
    const std::string installed = status.text("installed");
    const std::string version = status.text("version");
    lines.push_back("installed: " + (installed.empty() ? "not known" : installed));
    lines.push_back(
        "wanted: " + (version.empty() ? "not known yet" : version + " from " + status.text("url")) +
        (isTrue(status.values, "forced") ? ", forced" : "") +
        (isTrue(status.values, "disabled") ? ", disabled" : ""));
    lines.push_back(status.text("state") + " since " + timeText(status.number("since")) + ": " +
                    status.text("sentence"));
    if (status.number("until") > 0)
        lines.push_back("until " + timeText(status.number("until")));
    if (status.text("state") == "waiting-governor")
        lines.push_back(std::to_string(status.number("vainFetches")) + " of " +
                        std::to_string(status.number("vainFetchLimit")) + " downloads that brought nothing");
    if (memberOf(status.values, "transfer").is_object())
        lines.push_back(describeProgress(status, 0));
    const json elements = memberOf(status.values, "elements");
    for (const json& element : elements)
        lines.push_back(describeElement(element));
    if (!status.text("readyImage").empty())
        lines.push_back("ready: " + status.text("readyImage"));
    const json failures = memberOf(status.values, "failures");
    for (const auto& [kind, failure] : failures.items())
        lines.push_back("last " + kind + " failure, " + timeText(DaemonStatus::numberOf(failure, "time")) +
                        (isTrue(failure, "over") ? ", over: " : ": ") +
                        DaemonStatus::textOf(failure, "text"));
    return lines;
}
