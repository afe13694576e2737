#include "lab/ConsoleView.h"

#include "imagefile/NumberText.h"
#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

using imagefile::groupDigits;
using imagefile::shortBytes;

namespace lab {

namespace {

constexpr unsigned sDefaultWidth = 80;
constexpr unsigned sBarWidth = 30;

// Log lines that are shown: failures, and the steps between the requests.
constexpr const char* sShownPriorities[] = {"LOG_EMERG", "LOG_ALERT", "LOG_CRIT", "LOG_ERR"};
struct Milestone {
    const char* logText;
    const char* shown;
};
constexpr Milestone sMilestones[] = {
    {"UpdateHandler::onGotZempStart() Ready to compile update zemp",
     "all that is needed is on disk, compile"},
    {"UpdateHandler::onCompileZempResult() Ready to update from", "update image compiled"},
    {"UpdateHandler::onCompileZempResult() Failure to compile", "update image could not be compiled"},
};

unsigned percent(uint64_t part, uint64_t whole) {
    return whole == 0 ? 100 : static_cast<unsigned>(part * 100 / whole);
}

unsigned widthOf(FILE* terminal) {
    winsize size{};
    return ioctl(fileno(terminal), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : sDefaultWidth;
}

// What a log line is shown as; empty for most.
std::string shownText(const LabEvent& event) {
    for (const char* const priority : sShownPriorities)
        if (event.priority.rfind(priority, 0) == 0)
            return event.priority + " " + event.text;
    for (const Milestone& milestone : sMilestones)
        if (event.text.rfind(milestone.logText, 0) == 0)
            return milestone.shown;
    if (event.text.find("Curl command failed") != std::string::npos)
        return event.text;
    return "";
}

} // namespace

ConsoleView::ConsoleView(FILE* out, const std::atomic<bool>& stop)
    : mOut(out), mStop(stop), mHasBar(isatty(fileno(out)) != 0) {}

void ConsoleView::line(double time, const std::string& text) {
    clearBar();
    fprintf(mOut, "[%6.2f s] %s\n", time, text.c_str());
    drawBar();
    fflush(mOut);
}

void ConsoleView::onEvent(const LabEvent& event) {
    switch (event.kind) {
    case LabEvent::Step:
        return line(event.time, event.text);
    case LabEvent::Warning:
        return line(event.time, "warning: " + event.text);
    case LabEvent::Signal:
        return line(event.time, "signal " + event.text);
    case LabEvent::Request: {
        const ServedRequest& request = event.request;
        return line(event.time, "fetched " + event.text + ", bytes " + request.range + " (status " +
                                    std::to_string(request.status) + ", " + shortBytes(request.bytes) + ")" +
                                    (request.fault.empty() ? "" : ", fault " + request.fault));
    }
    case LabEvent::Action: // the log shows them as milestones
        return;
    case LabEvent::Log: {
        const std::string text = shownText(event);
        if (!text.empty())
            line(event.time, text);
        return;
    }
    }
}

void ConsoleView::onProgress(const LabProgress& progress) {
    mProgress = progress;
    drawBar();
}

void ConsoleView::drawBar() {
    if (!mHasBar || mProgress.expected == 0)
        return;
    const unsigned done = std::min(percent(mProgress.fetched, mProgress.expected), 100U);
    const unsigned filled = done * sBarWidth / 100;
    std::string bar = "[" + std::string(filled, '#') + std::string(sBarWidth - filled, '.') + "] ";
    bar += std::to_string(done) + " %  " + shortBytes(mProgress.fetched) + " of " +
           shortBytes(mProgress.expected);
    if (!mProgress.current.empty())
        bar += "  " + mProgress.current;
    bar.resize(std::min<size_t>(bar.size(), widthOf(mOut) - 1));
    if (bar == mBar)
        return;
    clearBar();
    fputs(bar.c_str(), mOut);
    fflush(mOut);
    mBar = bar;
}

void ConsoleView::clearBar() {
    if (mBar.empty())
        return;
    fputs("\r\033[K", mOut);
    mBar.clear();
}

void ConsoleView::showResult(const LabResult& result) {
    clearBar();
    mProgress = {};
    showRequests(result);
    showVerdict(result);
    fflush(mOut);
}

void ConsoleView::showRequests(const LabResult& result) {
    if (result.requests.empty())
        return;
    fprintf(mOut, "\nRequests that the web server saw\n");
    fprintf(mOut, "  %3s  %9s  %-18s  %-18s  %6s  %10s\n", "#", "time", "range", "what", "status", "bytes");
    int number = 0;
    for (const LabEvent& event : result.requests)
        fprintf(mOut, "  %3d  %7.2f s  %-18s  %-18s  %6d  %10llu%s%s\n", ++number, event.time,
                event.request.range.c_str(), event.text.c_str(), event.request.status,
                static_cast<unsigned long long>(event.request.bytes), event.request.fault.empty() ? "" : "  ",
                event.request.fault.c_str());
}

void ConsoleView::showVerdict(const LabResult& result) {
    if (!result.verdict.rows.empty()) {
        fprintf(mOut, "\nCompiled image, %s bytes\n", groupDigits(result.verdict.size).c_str());
        for (const ImageVerdict::Row& row : result.verdict.rows)
            fprintf(mOut, "  %-18s  %-4s  %s\n", row.part.c_str(), row.isGood ? "good" : "BAD",
                    row.finding.c_str());
    }
    for (const std::string& fault : result.verdict.faults)
        fprintf(mOut, "  fault: %s\n", fault.c_str());
    if (!result.requests.empty())
        fprintf(mOut, "\nFetched %s of %s bytes (%u %%) in %zu requests",
                groupDigits(result.fetchedBytes).c_str(), groupDigits(result.imageBytes).c_str(),
                percent(result.fetchedBytes, result.imageBytes), result.requests.size());
    if (result.seconds > 0)
        fprintf(mOut, ", ready after %.1f s", result.seconds);
    if (!result.requests.empty())
        fprintf(mOut, ".\n");
    if (result.isGood())
        fprintf(mOut, "The update image is complete and right.\n");
}

} // namespace lab
