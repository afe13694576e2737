// fwctl-check: what `fwctl check` starts, a program of its own so that the other commands load no HTTP
// library. Usage: fwctl-check RUN_DIRECTORY [--json]
#include "fwcheck/Check.h"
#include "fwctl/DaemonStatus.h"
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <curl/curl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

namespace {

using fwcheck::Answer;
using fwcheck::Verdict;

volatile sig_atomic_t sSignal = 0;

// A second signal ends the process at once.
void noteSignals() {
    struct sigaction action = {};
    action.sa_handler = [](int number) { sSignal = number; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
}

// The proxies of the daemon that runs, where this process has none of that name.
void takeProxies(int64_t pid) {
    std::ifstream environment("/proc/" + std::to_string(pid) + "/environ");
    for (std::string line; std::getline(environment, line, '\0');) {
        const size_t end = line.find('=');
        const std::string name = line.substr(0, end);
        if (end == std::string::npos || name.size() < 6)
            continue;
        const std::string kind = name.substr(name.size() - 6);
        if (kind == "_proxy" || kind == "_PROXY")
            setenv(name.c_str(), line.substr(end + 1).c_str(), 0);
    }
}

void print(const Answer& answer) {
    const char* const verdict = answer.verdict == Verdict::Ok      ? "ok"
                                : answer.verdict == Verdict::Wrong ? "WRONG"
                                                                   : "not asked";
    printf("%-14s %s%s%s\n", answer.question.c_str(), verdict, answer.text.empty() ? "" : ": ",
           answer.text.c_str());
    fflush(stdout);
}

nlohmann::json toJson(const Answer& answer) {
    nlohmann::json ok;
    if (answer.verdict != Verdict::NotAsked)
        ok = answer.verdict == Verdict::Ok;
    return {{"question", answer.question}, {"ok", ok}, {"text", answer.text}};
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fputs("fwctl-check: this is a part of fwctl, see fwctl check\n", stderr);
        return 2;
    }
    const bool isJson = argc > 2;
    noteSignals();
    fwcheck::Places places;
    places.run = argv[1];
    takeProxies(findLockHolder(places.run + "/fw_download.pid"));
    if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) {
        fputs("fwctl-check: the HTTP library cannot be used\n", stderr);
        return 1;
    }
    nlohmann::json answers = nlohmann::json::array();
    const bool isGood = fwcheck::check(
        places,
        [&](const Answer& answer) {
            if (isJson)
                answers.push_back(toJson(answer));
            else if (sSignal == 0)
                print(answer);
        },
        [] { return sSignal != 0; });
    curl_global_cleanup();
    if (sSignal != 0)
        return 128 + sSignal;
    if (isJson)
        puts(nlohmann::json({{"ok", isGood}, {"checks", answers}})
                 .dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
                 .c_str());
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        fputs("fwctl: cannot write to standard output\n", stderr);
        return 1;
    }
    return isGood ? 0 : 1;
}
