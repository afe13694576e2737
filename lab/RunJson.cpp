#include "lab/RunJson.h"

#include "lab/ReportRecorder.h"
#include <nlohmann/json.hpp>

namespace lab {

using nlohmann::json;

namespace {

json toJson(const RunFacts& facts) {
    return {{"date", facts.date},
            {"commandLine", facts.commandLine},
            {"fw_lab", facts.labVersion},
            {"fw_download", facts.daemonVersion},
            {"imageSha256", facts.imageSha256},
            {"recordSha256", facts.recordSha256},
            {"verbosity", facts.verbosity},
            {"speed", facts.speed},
            {"timeScale", facts.timeScale}};
}

} // namespace

std::string makeJson(const LabResult& result, const std::vector<LabEvent>& events,
                     const std::vector<std::string>& faults) {
    json parts = json::array();
    for (const LabPart& part : result.parts)
        parts.push_back({{"name", part.name},
                         {"version", part.version},
                         {"offset", part.offset},
                         {"size", part.size},
                         {"needed", part.isNeeded}});
    json requests = json::array();
    for (const LabEvent& event : result.requests)
        requests.push_back({{"time", event.time},
                            {"range", event.request.range},
                            {"for", event.text},
                            {"status", event.request.status},
                            {"bytes", event.request.bytes},
                            {"fault", event.request.fault}});
    json actions = json::array();
    for (const ActionChange& change : findActions(events))
        actions.push_back({{"time", change.time}, {"action", change.action}});
    json verdicts = json::array();
    for (const ImageVerdict::Row& row : result.verdict.rows)
        verdicts.push_back({{"part", row.part}, {"good", row.isGood}, {"finding", row.finding}});
    const json all = {
        {"good", result.isGood()},
        {"step", getName(result.step)},
        {"failure", result.failure},
        {"run", toJson(result.facts)},
        {"faults", faults},
        {"imageVersion", result.imageVersion},
        {"installedVersion", result.installedVersion},
        {"configuredVersion", result.configuredVersion},
        {"imageBytes", result.imageBytes},
        {"fetchedBytes", result.fetchedBytes},
        {"readyFile", result.readyFile},
        {"readySeconds", result.seconds},
        {"seconds", result.endSeconds},
        {"parts", parts},
        {"requests", requests},
        {"actions", actions},
        {"updateImage",
         {{"bytes", result.verdict.size}, {"parts", verdicts}, {"faults", result.verdict.faults}}}};
    return all.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace lab
