#include "status/StatusReport.h"

#include "common/maskedurl.h"
#include "update/UpdateRecords.h"
#include "workers/ConfigNames.h"
#include "workitems/Events.h"
#include <algorithm>

namespace status {

namespace {

constexpr unsigned MsPerSecond = 1000;

std::string actionName(FwAction::NextAction action) {
    return action == FwAction::FindNeededParts ? "FindNeededParts" : FwAction::getString(action);
}

std::string valueOf(const Noticeboard::Content& notices, const char* key) {
    const auto value = notices.values.find(key);
    return value != notices.values.end() ? value->second : "";
}

bool isFailing(const Noticeboard::Content& notices, Noticeboard::Failure kind) {
    const auto failure = notices.failures.find(kind);
    return failure != notices.failures.end() && !failure->second.isOver;
}

const SuumBlob* findManifest(const UpdateBooks& books, const std::string& version) {
    const auto entry = books.parts.find("suum " + version);
    const auto* suum = entry != books.parts.end() ? dynamic_cast<const SuumBlob*>(entry->second) : nullptr;
    return suum != nullptr && suum->isSuumValid() ? suum : nullptr;
}

// The element's part once its file is known, also before the walk has come to it; never what the image start
// has of it.
const ZempPart* findPart(const UpdateBooks& books, const SuumBlob::Element& element) {
    const auto walked = books.suumZempParts.find(element.getContentIndex());
    if (walked != books.suumZempParts.end() && walked->second != nullptr &&
        !UpdateRecords::isInStart(walked->second))
        return walked->second;
    const auto known = books.parts.find(UpdateRecords::partKey(element));
    const bool isKnown =
        known != books.parts.end() && known->second != nullptr && !UpdateRecords::isInStart(known->second);
    return isKnown ? known->second : nullptr;
}

// The file of the transfer is longer by now than the books have it.
std::vector<Element> listElements(const Sources& sources, const UpdateBooks& books, const SuumBlob& suum,
                                  const std::optional<Transfer>& transfer) {
    std::vector<Element> elements;
    for (unsigned i = 0; i < suum.getNumberOfElements(); ++i) {
        const SuumBlob::Element* line = suum.getElementAt(i);
        if (line == nullptr)
            continue;
        Element element;
        element.name = line->getPoolname();
        element.platform = line->getPlatform();
        element.version = ZempPart::getVersionString(line->getMajor(), line->getMinor(), line->getBuild());
        if (sources.isRecordKnown)
            element.isNeeded = sources.isNeeded(*line);
        if (const ZempPart* part = findPart(books, *line)) {
            const auto fragment = books.fragments.find(part->getFilename());
            element.bytes = fragment != books.fragments.end() ? fragment->second->getFileSize() : 0;
            if (transfer && transfer->filename == part->getFilename())
                element.bytes = transfer->bytes;
            const uint64_t body = element.isNeeded.value_or(true) ? part->getBodyLength() : 0;
            element.total = part->isContentHeaderValid() ? part->getHeaderLength() + body : 0;
        }
        elements.push_back(element);
    }
    return elements;
}

// What the file of a transfer is to hold: a part that is known by its header, or the first that is not.
std::string describe(const FileFragment& fragment, const UpdateBooks& books, const SuumBlob* suum) {
    if (fragment.getFragmentType() == FileFragment::ZempStart)
        return "image start";
    if (fragment.getFragmentType() == FileFragment::SealFile)
        return "seal";
    std::string first;
    for (unsigned i = 0; suum != nullptr && i < suum->getNumberOfElements(); ++i) {
        const SuumBlob::Element* line = suum->getElementAt(i);
        const ZempPart* part = line != nullptr ? findPart(books, *line) : nullptr;
        if (part != nullptr && part->getFilename() == fragment.getFilename())
            return line->getPoolname();
        if (line != nullptr && part == nullptr && first.empty())
            first = line->getPoolname();
    }
    return first;
}

// The range is the downloader's word: the fragment is in its hands.
Transfer describeTransfer(const Sources& sources, const FileFragment& fragment, const UpdateBooks& books,
                          const SuumBlob* suum) {
    Transfer transfer;
    transfer.what = describe(fragment, books, suum);
    transfer.filename = fragment.getFilename();
    transfer.bytes = sources.sizeOf(transfer.filename);
    const Noticeboard::Transfer& notice = sources.notices.transfer;
    if (notice.filename == transfer.filename) {
        transfer.range = notice.range;
        transfer.total = notice.total;
    }
    return transfer;
}

// A request that the governor keeps back has only that one failure.
State waitOf(const DownloadRequest& request, const FetchGovernor& governor) {
    const bool isGovernor = governor.getWithoutProgress() > FetchGovernor::ImmediateFetches &&
                            request.getDownloadFailures() == 1 && !request.isHeldBack();
    return isGovernor ? State::GovernorWait : State::TimerWait;
}

// What the requests that are out say; nothing when there are none but questions.
std::optional<State> stateOfRequests(const UpdateBooks& books) {
    const RequestLedger& requests = books.requests;
    std::optional<State> waiting;
    for (const DownloadRequest* request : requests.list<DownloadRequest>(FwWorkItem::DownloadRequest)) {
        if (request->isWithDownloader())
            return State::Fetching;
        if (UpdateRecords::isWaitingForTimer(*request))
            waiting = waitOf(*request, books.governor);
    }
    if (requests.count(FwWorkItem::CompileUpdateZempRequest) > 0)
        return State::Compiling;
    if (requests.count(FwWorkItem::FileScanRequest) > 0)
        return books.isScanForTimer ? State::CompileWait : State::Scanning;
    if (requests.count(FwWorkItem::ParseFileRequest) > 0)
        return State::Parsing;
    if (waiting)
        return waiting;
    if (requests.count(FwWorkItem::SetReadyForUpdateRequest) > 0)
        return State::Flagging;
    return {};
}

State stateOf(const Sources& sources, bool isDisabled) {
    if (isFailing(sources.notices, Noticeboard::Failure::Bus))
        return State::NoBus;
    if (isFailing(sources.notices, Noticeboard::Failure::Database))
        return State::NoDatabase;
    if (sources.records == nullptr) {
        const bool isReady = sources.firstStatus != nullptr && sources.firstStatus->getConfigDbStatus() ==
                                                                   ConfigDbStatusEvent::ConfigWaitForUpdate;
        return isReady ? State::Ready : State::Starting;
    }
    const UpdateBooks books = sources.records->books();
    if (const std::optional<State> state = stateOfRequests(books))
        return *state;
    if (sources.records->getNextAction() == FwAction::WaitForFwUpdate)
        return State::Ready;
    if (!sources.isRecordKnown && sources.records->getNextAction() != FwAction::NoAction)
        return State::NoRecord;
    if (books.requests.count(FwWorkItem::IsUpdateNeededRequest) > 0)
        return State::Asking;
    return isDisabled ? State::Disabled : State::Idle;
}

bool isTimerWait(State state) {
    return state == State::TimerWait || state == State::GovernorWait || state == State::CompileWait ||
           state == State::NoRecord;
}

void reportBooks(const Sources& sources, Report& report) {
    const UpdateRecords& records = *sources.records;
    const UpdateBooks books = records.books();
    report.version = records.getVersion();
    report.url = maskedUrl(records.getUrl());
    report.action = actionName(records.getNextAction());
    report.previousAction = actionName(records.getPreviousAction());
    report.vainFetches = books.governor.getWithoutProgress();
    const SuumBlob* suum = findManifest(books, report.version);
    for (const DownloadRequest* request : books.requests.list<DownloadRequest>(FwWorkItem::DownloadRequest))
        if (request->isWithDownloader() && request->getFileFragment() != nullptr)
            report.transfer = describeTransfer(sources, *request->getFileFragment(), books, suum);
    if (suum != nullptr)
        report.elements = listElements(sources, books, *suum, report.transfer);
}

} // namespace

Report makeReport(const Sources& sources) {
    Report report;
    const Noticeboard::Content& notices = sources.notices;
    report.installed = valueOf(notices, ConfigKey::InstalledVersion);
    report.isForced = valueOf(notices, ConfigKey::Force) == "1";
    report.isDisabled = valueOf(notices, ConfigKey::DownloadDisabled) == "1";
    report.configStatus = valueOf(notices, ConfigKey::ConfigStatus);
    report.readyImage = valueOf(notices, ConfigKey::ReadyForInstall);
    report.failures = notices.failures;
    report.state = stateOf(sources, report.isDisabled);
    if (isTimerWait(report.state) && sources.timerLeftMs > 0)
        report.until = sources.now + static_cast<time_t>(sources.timerLeftMs / MsPerSecond);
    if (sources.records != nullptr) {
        reportBooks(sources, report);
    } else if (sources.firstStatus != nullptr) {
        report.version = sources.firstStatus->getVersion();
        report.url = maskedUrl(sources.firstStatus->getUrl());
    }
    return report;
}

} // namespace status
