#include "lab/ReportPage.h"

#include "imagefile/NumberText.h"
#include "imagefile/ReplaceFile.h"
#include "lab/ReportChart.h"
#include <cstdio>

using imagefile::groupDigits;

namespace lab {

namespace {

constexpr const char* sHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8"/>
<meta name="viewport" content="width=device-width"/>
<title>Lab run</title>
<style>
:root { color-scheme: light dark; --ink: #222; --paper: #fff; --line: #ddd; --needed: #9ec5ee; --unneeded: #dcdcdc;
  --other: #c9b6e4; --fetched: #1f6fb8; --wrong: #d9480f; --action: #4f9d69; --signal: #7048a8; --good: #e6f4e9;
  --bad: #fbe9e7; --warning: #fff6d8; --success: #2a7d3c; --alarm: #b3261e; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #ddd; --paper: #17191b; --line: #3a3e42; --needed: #2f5580; --unneeded: #3b3f44; --other: #5b4a78;
    --fetched: #5aa9f0; --wrong: #ff7b45; --action: #5fb37c; --signal: #ab8ae0; --good: #16301d; --bad: #41201d;
    --warning: #3a3212; --success: #5fb37c; --alarm: #ff8a80; }
}
body { font: 15px sans-serif; color: var(--ink); background: var(--paper); margin: 1.5em auto; max-width: 1200px;
  padding: 0 1em; }
h1 { font-size: 1.5em; } h2 { font-size: 1.15em; margin-top: 1.8em; }
table { border-collapse: collapse; }
td, th { text-align: left; padding: 0.15em 0.9em 0.15em 0; vertical-align: top; }
td.n, th.n { text-align: right; font-variant-numeric: tabular-nums; }
.verdict { padding: 0.6em 0.9em; border-left: 6px solid; }
.good { border-color: var(--success); background: var(--good); }
.bad { border-color: var(--alarm); background: var(--bad); }
#facts th, #legend th { font-weight: normal; opacity: 0.75; white-space: nowrap; }
#facts td { overflow-wrap: anywhere; }
td.bad, td.fault { background: none; color: var(--alarm); font-weight: bold; }
.picture { overflow-x: auto; } svg { width: 100%; min-width: 800px; height: auto; } svg text { font: 11px sans-serif; fill: var(--ink); }
svg .end { text-anchor: end; } svg .middle { text-anchor: middle; } svg line { stroke: var(--line); }
.needed { fill: var(--needed); stroke: var(--paper); } .unneeded { fill: var(--unneeded); stroke: var(--paper); }
.other { fill: var(--other); } .fetched { fill: var(--fetched); } .wrong { fill: var(--wrong); }
.action { fill: var(--action); } .signal { fill: var(--signal); }
.key span { display: inline-block; margin-right: 1.4em; }
.key i { display: inline-block; width: 1em; height: 0.8em; margin-right: 0.4em; }
#log { font: 12px monospace; width: 100%; } #log td { white-space: nowrap; }
#log td:last-child { white-space: pre-wrap; overflow-wrap: anywhere; width: 100%; }
#log .l4 { background: var(--warning); } #log .l3, #log .l2, #log .l1, #log .l0 { background: var(--bad); }
#log .off { display: none; }
#filter { position: sticky; top: 0; background: var(--paper); padding: 0.5em 0; }
</style>
</head>
<body>
)";

// No character here that XML would not have: the page is read by strict parsers too.
constexpr const char* sScript = R"(<script>
const level = document.getElementById('level');
const words = document.getElementById('words');
const rows = Array.from(document.querySelectorAll('#log tbody tr'));
function applyFilter() {
  const text = words.value.toLowerCase();
  let shown = 0;
  rows.forEach(row => {
    const off = Number(row.dataset.level) > Number(level.value) || !row.textContent.toLowerCase().includes(text);
    row.classList.toggle('off', off);
    shown += off ? 0 : 1;
  });
  document.getElementById('shown').textContent = shown + ' of ' + rows.length + ' lines';
}
level.addEventListener('input', applyFilter);
words.addEventListener('input', applyFilter);
applyFilter();
</script>
)";

constexpr const char* sLevels[] = {"LOG_EMERG",   "LOG_ALERT",  "LOG_CRIT", "LOG_ERR",
                                   "LOG_WARNING", "LOG_NOTICE", "LOG_INFO", "LOG_DEBUG"};
constexpr unsigned sUnknownLevel = 3; // a line that names none was not written by the daemon's log

unsigned levelOf(const std::string& priority) {
    for (unsigned level = 0; level < std::size(sLevels); ++level)
        if (!priority.empty() && priority.rfind(sLevels[level], 0) == 0)
            return level;
    return sUnknownLevel;
}

std::string timeText(double seconds) {
    char text[32];
    snprintf(text, sizeof text, "%.2f", seconds);
    return text;
}

std::string cell(const std::string& text, const std::string& kind = "") {
    return "<td" + (kind.empty() ? "" : " class=\"" + kind + "\"") + ">" + escapeHtml(text) + "</td>";
}

std::string key(const std::string& kind, const std::string& text) {
    return "<span><i style=\"background: var(--" + kind + ")\"></i>" + escapeHtml(text) + "</span>\n";
}

std::string verdictSection(const LabResult& result, const std::vector<std::string>& faults) {
    std::string html = "<section id=\"verdict\">\n<h1>Lab run: update to " +
                       escapeHtml(result.configuredVersion) + "</h1>\n";
    if (result.isGood())
        html += "<p class=\"verdict good\">The update image is complete and right.</p>\n";
    else
        html += "<p class=\"verdict bad\">Failed while " + escapeHtml(getName(result.step)) + ": " +
                escapeHtml(result.failure) + "</p>\n";
    html += "<table id=\"facts\">\n";
    for (const auto& [name, text] : describe(result.facts))
        html += "<tr><th>" + escapeHtml(name) + "</th>" + cell(text) + "</tr>\n";
    html += "</table>\n<p>Installed " + escapeHtml(result.installedVersion) + ", image " +
            escapeHtml(result.imageVersion) + " of " + groupDigits(result.imageBytes) + " bytes. Fetched " +
            groupDigits(result.fetchedBytes) + " bytes in " + std::to_string(result.requests.size()) +
            " requests";
    if (result.seconds > 0)
        html += ", ready after " + timeText(result.seconds) + " s";
    html += ".</p>\n";
    std::string names;
    for (const std::string& fault : faults)
        names += (names.empty() ? "" : ", ") + fault;
    if (!names.empty())
        html += "<p>Faults of the web server, in this order: " + escapeHtml(names) + ".</p>\n";
    if (!result.verdict.rows.empty()) {
        html += "<table>\n<tr><th>Compiled part</th><th></th><th>Finding</th></tr>\n";
        for (const ImageVerdict::Row& row : result.verdict.rows)
            html += "<tr>" + cell(row.part) + cell(row.isGood ? "good" : "BAD", row.isGood ? "" : "bad") +
                    cell(row.finding) + "</tr>\n";
        html += "</table>\n";
    }
    for (const std::string& fault : result.verdict.faults)
        html += "<p>Fault: " + escapeHtml(fault) + "</p>\n";
    return html + "</section>\n";
}

std::string imageSection(const LabResult& result) {
    std::string html = "<section id=\"image\">\n<h2>What was fetched of the image</h2>\n";
    html += drawStrip(result) + "<p class=\"key\">" + key("needed", "part that is needed") +
            key("unneeded", "not needed") + key("other", "release header, manifest") +
            key("fetched", "fetched") + key("wrong", "answer with a fault") + "</p>\n";
    html += "<table>\n<tr><th>Part</th><th>Version</th><th class=\"n\">Offset</th><th "
            "class=\"n\">Bytes</th><th></th></tr>\n";
    for (const LabPart& part : result.parts)
        html += "<tr>" + cell(part.name) + cell(part.version) + cell(std::to_string(part.offset), "n") +
                cell(std::to_string(part.size), "n") + cell(part.isNeeded ? "needed" : "not needed") +
                "</tr>\n";
    return html + "</table>\n</section>\n";
}

std::string requestTable(const LabResult& result) {
    std::string html = "<table id=\"requests\">\n<tr><th class=\"n\">#</th><th "
                       "class=\"n\">End, s</th><th>Range</th><th>What</th><th "
                       "class=\"n\">Status</th><th class=\"n\">Bytes</th><th>Fault</th></tr>\n";
    int count = 0;
    for (const LabEvent& event : result.requests)
        html +=
            "<tr>" + cell(std::to_string(++count), "n") + cell(timeText(event.time), "n") +
            cell(event.request.range) + cell(event.text) + cell(std::to_string(event.request.status), "n") +
            cell(std::to_string(event.request.bytes), "n") + cell(event.request.fault, "fault") + "</tr>\n";
    return html + "</table>\n";
}

std::string stepTable(const std::vector<LabEvent>& events) {
    std::string html = "<table id=\"steps\">\n<tr><th class=\"n\">Time, s</th><th>The lab</th></tr>\n";
    for (const LabEvent& event : events) {
        if (event.kind != LabEvent::Step && event.kind != LabEvent::Signal && event.kind != LabEvent::Warning)
            continue;
        const char* const prefix = event.kind == LabEvent::Signal    ? "signal "
                                   : event.kind == LabEvent::Warning ? "warning: "
                                                                     : "";
        html += "<tr>" + cell(timeText(event.time), "n") + cell(prefix + event.text) + "</tr>\n";
    }
    return html + "</table>\n";
}

std::string timelineSection(const LabResult& result, const std::vector<LabEvent>& events) {
    std::string legend;
    for (const ActionMeaning& action : sActions)
        legend += std::string("<tr><th>") + action.action + "</th>" + cell(action.meaning) + "</tr>\n";
    return "<section id=\"times\">\n<h2>Next actions and requests</h2>\n" + drawTimeline(result, events) +
           "<p>Next actions are taken from the daemon's status, which the lab reads 20 times a second; a "
           "short "
           "one is drawn wider than it was, or is not seen.</p>\n<table id=\"legend\">\n" +
           legend + "</table>\n<h2>Requests</h2>\n" + requestTable(result) + "<h2>Steps and signals</h2>\n" +
           stepTable(events) + "</section>\n";
}

std::string logSection(const std::vector<LabEvent>& events) {
    std::string html =
        "<section id=\"daemon-log\">\n<h2>The daemon's log</h2>\n<p id=\"filter\"><label>Up to "
        "<select id=\"level\">";
    for (size_t level = 0; level < std::size(sLevels); ++level)
        html += "<option value=\"" + std::to_string(level) + "\"" +
                (level + 1 == std::size(sLevels) ? " selected=\"selected\"" : "") + ">" + sLevels[level] +
                "</option>";
    html += "</select></label> <label>with the text <input id=\"words\" type=\"search\"/></label> <span "
            "id=\"shown\"></span></p>\n<table id=\"log\">\n<tbody>\n";
    for (const LabEvent& event : events) {
        if (event.kind != LabEvent::Log)
            continue;
        const std::string level = std::to_string(levelOf(event.priority));
        html.append("<tr class=\"l").append(level).append("\" data-level=\"").append(level).append("\">");
        html.append(cell(timeText(event.time), "n")).append(cell(event.priority)).append(cell(event.text));
        html.append("</tr>\n");
    }
    return html + "</tbody>\n</table>\n</section>\n";
}

} // namespace

std::string escapeHtml(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '&')
            escaped += "&amp;";
        else if (c == '<')
            escaped += "&lt;";
        else if (c == '>')
            escaped += "&gt;";
        else if (c == '"')
            escaped += "&quot;";
        else if (c == '\'')
            escaped += "&#39;";
        else if ((byte < 0x20 && c != '\n' && c != '\t') || byte >= 0x7F) {
            char code[8];
            snprintf(code, sizeof code, "\\x%02X", byte);
            escaped += code;
        } else
            escaped += c;
    }
    return escaped;
}

std::string makeReport(const LabResult& result, const std::vector<LabEvent>& events,
                       const std::vector<std::string>& faults) {
    return sHead + verdictSection(result, faults) + imageSection(result) + timelineSection(result, events) +
           logSection(events) + sScript + "</body>\n</html>\n";
}

void writeReport(const std::string& filename, const std::string& page) {
    imagefile::replaceFile(
        filename, [&page](const std::string& temporary) { imagefile::writeContent(temporary, page); });
}

} // namespace lab
