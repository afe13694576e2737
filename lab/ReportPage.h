// One self-contained HTML page about a lab run: verdict, the image as a strip with what was fetched when, a
// timeline, and the daemon's log with filters. It refers to nothing outside itself, and is well-formed XML.
#ifndef LAB_REPORTPAGE_H
#define LAB_REPORTPAGE_H

#include "lab/LabRun.h"
#include "lab/ReportRecorder.h"
#include <string>
#include <vector>

namespace lab {

std::string makeReport(const LabResult& result, const std::vector<LabEvent>& events,
                       const std::vector<std::string>& faults);

// Makes or replaces the file whole, as imagefile::replaceFile() does.
void writeReport(const std::string& filename, const std::string& page);

// Text as it stands in HTML and XML, in elements and in quoted attributes. Bytes that are not printable
// ASCII are shown as \xNN, but for line feeds and tabs.
std::string escapeHtml(const std::string& text);

} // namespace lab

#endif
