// What a terminal will do with an image.
#include "imagefile/NumberText.h"
#include "imagefile/ReplaceFile.h"
#include "plan/StripDrawing.h"
#include "plan/UpdatePlan.h"
#include "zemp/Commands.h"
#include "zemp/Files.h"
#include "zemp/Interrupt.h"
#include "zemp/Json.h"
#include "zemp/Table.h"
#include <algorithm>

namespace zemp {

namespace {

std::string join(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "" : " ") + text;
    return all;
}

nlohmann::json toJson(const plan::UpdatePlan& plan) {
    nlohmann::json elements = nlohmann::json::array();
    for (const plan::Element& element : plan.elements)
        elements.push_back({{"index", element.index},
                            {"pool", element.pool},
                            {"platform", element.platform},
                            {"mountPoint", element.mountPoint},
                            {"installed", element.installed},
                            {"version", element.version},
                            {"needed", element.isNeeded},
                            {"reason", element.reason}});
    nlohmann::json requests = nlohmann::json::array();
    for (const plan::Request& request : plan.requests)
        requests.push_back(
            {{"range", request.range}, {"bytes", request.bytes}, {"for", plan::getText(request)}});
    return {{"image", plan.image},
            {"release", plan.release},
            {"ready", plan.isReady},
            {"complaints", plan.complaints},
            {"elements", elements},
            {"requests", requests},
            {"imageBytes", plan.imageBytes},
            {"fetchedBytes", plan.fetchedBytes()},
            {"seconds", plan.seconds()},
            {"updateImageBytes", plan.updateImageBytes},
            {"downloadDirectoryBytes", plan.downloadDirectoryBytes()},
            {"temporaryBytes", plan.temporaryBytes()}};
}

void printElements(const plan::UpdatePlan& plan, std::ostream& out) {
    std::vector<Row> rows = {{"INDEX", "POOL", "PLATFORM", "INSTALLED", "IMAGE", "NEEDED", "WHY"}};
    for (const plan::Element& element : plan.elements)
        rows.push_back({std::to_string(element.index), printable(element.pool), printable(element.platform),
                        printable(join(element.installed)), element.version, element.isNeeded ? "yes" : "no",
                        printable(element.reason)});
    printTable(rows, 1, out);
}

void printRequests(const plan::UpdatePlan& plan, std::ostream& out) {
    std::vector<Row> rows = {{"REQUEST", "BYTES", "RANGE", "FOR"}};
    for (size_t i = 0; i < plan.requests.size(); ++i)
        rows.push_back({std::to_string(i + 1), std::to_string(plan.requests[i].bytes), plan.requests[i].range,
                        printable(plan::getText(plan.requests[i]))});
    printTable(rows, 2, out);
}

void print(const plan::UpdatePlan& plan, std::ostream& out) {
    out << "Update to " << plan.release << " from " << plan.image << "\n\n";
    if (!plan.elements.empty()) {
        printElements(plan, out);
        out << '\n';
    }
    printRequests(plan, out);
    out << '\n'
        << plan.requests.size() << " requests fetch " << imagefile::groupDigits(plan.fetchedBytes()) << " of "
        << imagefile::groupDigits(plan.imageBytes) << " bytes ("
        << plan.fetchedBytes() * 100 / plan.imageBytes << " %), " << plan.durationText() << " at "
        << imagefile::groupDigits(plan::UpdatePlan::BytesPerSecond) << " bytes per second\n";
    if (plan.isReady)
        out << "Disk space: " << imagefile::groupDigits(plan.downloadDirectoryBytes())
            << " bytes in the download directory (downloads " << imagefile::groupDigits(plan.fetchedBytes())
            << ", update image " << imagefile::groupDigits(plan.updateImageBytes) << "), "
            << imagefile::groupDigits(plan.temporaryBytes()) << " in /tmp\n";
    else
        out << "The update does NOT become ready. The daemon says:\n";
    for (const std::string& complaint : plan.complaints)
        out << "    " << printable(complaint) << '\n';
}

} // namespace

int showPlans(const std::string& image, const std::vector<std::string>& records, bool json,
              const std::string& svg, const Console& console) {
    imagefile::refuseInput(svg, image);
    for (const std::string& record : records)
        imagefile::refuseInput(svg, record);
    if (!svg.empty() && records.size() > 1) {
        console.err
            << "zemp: --svg draws what one terminal fetches; give one --installed (see zemp plan --help)\n";
        return StatusWrongUse;
    }
    const auto isStopped = [] { return interruptedBy() != 0; };
    const auto source = imagefile::openImage(image, isStopped);
    nlohmann::json all = nlohmann::json::array();
    int status = StatusGood;
    for (size_t i = 0; i < std::max<size_t>(records.size(), 1); ++i) {
        const std::string record = records.empty() ? "" : records[i];
        const plan::UpdatePlan plan = plan::makePlan(*source, record, isStopped);
        status = plan.isReady ? status : StatusBadInput;
        if (svg == "-") {
            console.out << plan::drawStrip(plan);
        } else if (json) {
            all.push_back(toJson(plan));
            if (!record.empty())
                all.back()["record"] = record;
        } else {
            if (records.size() > 1)
                console.out << (i > 0 ? "\n" : "") << "== " << record << '\n';
            print(plan, console.out);
        }
        if (!svg.empty() && svg != "-") {
            writeFile(svg, plan::drawStrip(plan));
            console.err << svg << ": the image, " << plan.requests.size() << " requests\n";
        }
    }
    if (json && svg != "-")
        printJson(records.size() > 1 ? all : all.front(), console.out);
    return status;
}

} // namespace zemp
