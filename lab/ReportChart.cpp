#include "lab/ReportChart.h"

#include "imagefile/NumberText.h"
#include "lab/ReportPage.h"
#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace lab {

namespace {

// All in pixels.
constexpr double sLeft = 190; // of the drawing; row names stand before it
constexpr double sWidth = 900;
constexpr double sRight = 80; // for what stands behind the drawing
constexpr double sRow = 18;
constexpr double sBar = 12;
constexpr double sSmallest = 3; // so that 512 bytes of a large image can be seen
constexpr double sLetter = 6.6; // width of one, roughly
constexpr double sPartHeight = 34;

std::string number(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.1f", value);
    return text;
}

struct Box {
    double x, y, width, height;
};

std::string rectangle(const Box& box, const std::string& kind, const std::string& hint) {
    return "<rect class=\"" + kind + "\" x=\"" + number(box.x) + "\" y=\"" + number(box.y) + "\" width=\"" +
           number(std::max(box.width, sSmallest)) + "\" height=\"" + number(box.height) + "\"><title>" +
           escapeHtml(hint) + "</title></rect>\n";
}

std::string label(double x, double y, const std::string& text, const std::string& kind = "") {
    return "<text" + (kind.empty() ? "" : " class=\"" + kind + "\"") + " x=\"" + number(x) + "\" y=\"" +
           number(y) + "\">" + escapeHtml(text) + "</text>\n";
}

std::string verticalLine(double x, double top, double bottom) {
    return "<line x1=\"" + number(x) + "\" x2=\"" + number(x) + "\" y1=\"" + number(top) + "\" y2=\"" +
           number(bottom) + "\"/>\n";
}

std::string picture(const std::string& id, double height, const std::string& what,
                    const std::string& content) {
    const std::string size = number(sLeft + sWidth + sRight) + " " + number(height);
    return "<div class=\"picture\"><svg id=\"" + id +
           "\" xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size + "\" role=\"img\" aria-label=\"" +
           what + "\">\n" + content + "</svg></div>\n";
}

std::string timeText(double seconds) {
    char text[32];
    snprintf(text, sizeof text, "%.2f s", seconds);
    return text;
}

// A position on a scale from 0 to `end`.
double onScale(double value, double end) {
    return sLeft + (end > 0 ? std::clamp(value / end, 0.0, 1.0) : 0) * sWidth;
}

std::string describe(const LabEvent& event) {
    const ServedRequest& request = event.request;
    return event.text + ", bytes " + request.range + ", status " + std::to_string(request.status) + ", " +
           imagefile::shortBytes(request.bytes) + (request.fault.empty() ? "" : ", fault " + request.fault);
}

std::string kindOf(const ServedRequest& request) {
    const bool isGood = request.fault.empty() && (request.status == 206 || request.status == 200);
    return isGood ? "fetched" : "wrong";
}

std::string drawParts(const LabResult& result) {
    const auto end = static_cast<double>(result.imageBytes);
    std::string svg = rectangle({sLeft, sRow, sWidth, sPartHeight}, "other", "release header and manifest");
    for (const LabPart& part : result.parts) {
        const double x = onScale(static_cast<double>(part.offset), end);
        const double width = onScale(static_cast<double>(part.offset + part.size), end) - x;
        svg +=
            rectangle({x, sRow, width, sPartHeight}, part.isNeeded ? "needed" : "unneeded",
                      part.name + " " + part.version + ", offset " + std::to_string(part.offset) + ", " +
                          imagefile::shortBytes(part.size) + (part.isNeeded ? ", needed" : ", not needed"));
        const auto fits = static_cast<size_t>(std::max(0.0, (width - 6) / sLetter));
        if (part.name.size() <= fits)
            svg += label(x + 4, sRow + 14, part.name);
        if (std::string(part.isNeeded ? "needed" : "not needed").size() <= fits)
            svg += label(x + 4, sRow + 28, part.isNeeded ? "needed" : "not needed");
    }
    if (!result.parts.empty()) // above the first part, which would cover what is drawn wider than it is
        svg += rectangle({sLeft, sRow, onScale(static_cast<double>(result.parts.front().offset), end) - sLeft,
                          sPartHeight},
                         "other", "release header and manifest");
    return svg;
}

double roundStep(double span) {
    const double steps[] = {0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 60, 120, 300, 600, 1800, 3600};
    for (const double step : steps)
        if (span / step <= 12)
            return step;
    return span / 12;
}

} // namespace

std::string drawStrip(const LabResult& result) {
    const auto end = static_cast<double>(result.imageBytes);
    const double top = sRow + sPartHeight + 8;
    const double height = top + static_cast<double>(result.requests.size()) * sRow + 6;
    std::string svg = label(0, sRow + 20, "image, " + imagefile::shortBytes(result.imageBytes));
    svg += label(sLeft, 12, "0") +
           label(sLeft + sWidth, 12, imagefile::groupDigits(result.imageBytes) + " bytes", "end");
    for (const LabPart& part : result.parts)
        svg += verticalLine(onScale(static_cast<double>(part.offset), end), sRow + sPartHeight, height);
    svg += drawParts(result);
    double y = top;
    for (const LabEvent& event : result.requests) {
        const ServedRequest& request = event.request;
        // An answer without the range begins at the image's start.
        const double first = request.status == 200 ? 0 : std::strtod(request.range.c_str(), nullptr);
        const double x = onScale(first, end);
        const double behind = onScale(first + static_cast<double>(request.bytes), end);
        svg += label(0, y + sBar - 2, timeText(event.time) + "  " + event.text);
        svg += rectangle({x, y, behind - x, sBar}, kindOf(request), describe(event));
        svg += label(std::max(behind, x + sSmallest) + 4, y + sBar - 2,
                     request.fault.empty() ? imagefile::shortBytes(request.bytes) : request.fault);
        y += sRow;
    }
    return picture("strip", height, "The image, and the bytes that each request brought", svg);
}

std::string drawTimeline(const LabResult& result, const std::vector<LabEvent>& events) {
    double end = std::max(result.endSeconds, 0.1);
    for (const LabEvent& event : events)
        end = std::max(end, event.time);
    const size_t actions = sActions.size();
    const double height = static_cast<double>(actions + 2) * sRow + 30;
    const double bottom = height - 20;
    std::string svg;
    const double step = roundStep(end);
    for (int i = 0; i * step <= end; ++i) {
        svg += verticalLine(onScale(i * step, end), 0, bottom);
        char text[32];
        snprintf(text, sizeof text, "%g s", i * step);
        svg += label(onScale(i * step, end), height - 6, text, "middle");
    }
    const auto rowOf = [](size_t row) { return static_cast<double>(row) * sRow + 4; };
    for (size_t i = 0; i < actions; ++i)
        svg += label(0, rowOf(i) + sBar - 2, sActions[i].action);
    const std::vector<ActionChange> changes = findActions(events);
    for (size_t i = 0; i < changes.size(); ++i) {
        const auto action = std::find_if(sActions.begin(), sActions.end(), [&](const ActionMeaning& known) {
            return known.action == changes[i].action;
        });
        if (action == sActions.end())
            continue;
        const auto row = static_cast<size_t>(action - sActions.begin());
        const double x = onScale(changes[i].time, end);
        const double behind = onScale(i + 1 < changes.size() ? changes[i + 1].time : end, end);
        svg += rectangle({x, rowOf(row), behind - x, sBar}, "action",
                         timeText(changes[i].time) + " " + changes[i].action);
    }
    svg += label(0, rowOf(actions) + sBar - 2, "requests");
    for (const LabEvent& event : result.requests) {
        const double x = onScale(event.time - event.request.seconds, end);
        svg += rectangle({x, rowOf(actions), onScale(event.time, end) - x, sBar}, kindOf(event.request),
                         timeText(event.time) + " " + describe(event));
    }
    svg += label(0, rowOf(actions + 1) + sBar - 2, "bus signals");
    for (const LabEvent& event : events)
        if (event.kind == LabEvent::Signal)
            svg += rectangle({onScale(event.time, end), rowOf(actions + 1), 0, sBar}, "signal",
                             timeText(event.time) + " " + event.text);
    return picture("timeline", height, "Next actions, requests and signals over time", svg);
}

} // namespace lab
