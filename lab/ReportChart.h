// The pictures of a report, as inline SVG.
#ifndef LAB_REPORTCHART_H
#define LAB_REPORTCHART_H

#include "lab/LabRun.h"
#include "lab/ReportRecorder.h"
#include <string>
#include <vector>

namespace lab {

// The image to scale, its parts named, and below it a row for each request at the bytes that it brought.
std::string drawStrip(const LabResult& result);

// Next actions, requests and bus signals over the time of the run.
std::string drawTimeline(const LabResult& result, const std::vector<LabEvent>& events);

} // namespace lab

#endif
