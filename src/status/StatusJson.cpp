// The words of a report, and the report as JSON.
#include "status/StatusReport.h"
#include "update/FetchGovernor.h"

namespace status {

namespace {

constexpr int Schema = 1; // a higher one may lack what this one has

struct Words {
    const char* name;
    const char* sentence;
};

Words wordsOf(State state) {
    switch (state) {
    case State::Starting:
        return {"starting", "The configuration is read three minutes after the start, or when it changes."};
    case State::Idle:
        return {"idle", "No update is needed."};
    case State::Disabled:
        return {"disabled", "A new version is configured, downloading it is not allowed."};
    case State::Asking:
        return {"asking", "The configuration is asked whether an update is needed."};
    case State::Scanning:
        return {"scanning", "The download directory is looked through."};
    case State::Fetching:
        return {"fetching", "Bytes of the image are fetched."};
    case State::Parsing:
        return {"parsing", "What was fetched is checked."};
    case State::TimerWait:
        return {"waiting-timer", "A download failed and is tried again when the timer comes."};
    case State::GovernorWait:
        return {"waiting-governor", "Downloads brought the update no further; the next one waits."};
    case State::Compiling:
        return {"compiling", "The update image is written."};
    case State::CompileWait:
        return {"compile-failed", "The update image could not be written; that is tried again."};
    case State::Flagging:
        return {"flagging", "The update image is complete and gets its flag."};
    case State::Ready:
        return {"ready", "The update image waits for the installer."};
    case State::NoBus:
        return {"no-bus", "The message bus cannot be reached."};
    case State::NoDatabase:
        return {"no-database", "The configuration database cannot be opened."};
    case State::NoRecord:
        return {"no-record", "What is installed is not known: the host configuration record is not valid."};
    }
    return {"unknown", ""};
}

const char* nameOf(Noticeboard::Failure kind) {
    switch (kind) {
    case Noticeboard::Failure::Http:
        return "http";
    case Noticeboard::Failure::Transfer:
        return "transfer";
    case Noticeboard::Failure::File:
        return "file";
    case Noticeboard::Failure::Compile:
        return "compile";
    case Noticeboard::Failure::Bus:
        return "bus";
    case Noticeboard::Failure::Database:
        return "database";
    case Noticeboard::Failure::Record:
        return "record";
    case Noticeboard::Failure::Seal:
        return "seal";
    }
    return "unknown";
}

std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c >= 0x20 && c < 0x7f ? c : '?';
    }
    return result + "\"";
}

// Members of an object or values of a list, in one line.
class Row {
  public:
    Row& text(const char* name, const std::string& value) { return raw(name, quoted(value)); }
    Row& flag(const char* name, bool value) { return raw(name, value ? "true" : "false"); }
    template <typename Number>
    Row& number(const char* name, Number value) {
        return raw(name, std::to_string(value));
    }
    Row& raw(const char* name, const std::string& value) {
        mText += (mText.empty() ? "" : ", ") + quoted(name) + ": " + value;
        return *this;
    }
    std::string object() const { return "{" + mText + "}"; }
    const std::string& members() const { return mText; }

  private:
    std::string mText;
};

std::string elementsOf(const Report& report) {
    std::string list;
    for (const Element& element : report.elements) {
        Row row;
        row.text("name", element.name).text("version", element.version);
        row.text("platform", element.platform);
        row.raw("needed", !element.isNeeded ? "null" : *element.isNeeded ? "true" : "false");
        row.number("bytes", element.bytes).number("total", element.total);
        list += (list.empty() ? "\n    " : ",\n    ") + row.object();
    }
    return "[" + list + "]";
}

std::string transferOf(const Report& report) {
    if (!report.transfer)
        return "null";
    const Transfer& transfer = *report.transfer;
    Row row;
    row.text("what", transfer.what).text("file", transfer.filename).text("range", transfer.range);
    row.number("bytes", transfer.bytes).number("total", transfer.total).number("rate", transfer.rate);
    return row.object();
}

std::string failuresOf(const Report& report) {
    Row row;
    for (const auto& [kind, notice] : report.failures) {
        Row failure;
        failure.text("text", notice.text).number("time", static_cast<int64_t>(notice.time));
        row.raw(nameOf(kind), failure.flag("over", notice.isOver).object());
    }
    return row.object();
}

} // namespace

const char* getName(State state) {
    return wordsOf(state).name;
}

const char* getSentence(State state) {
    return wordsOf(state).sentence;
}

std::string toJson(const Report& report) {
    Row program;
    program.number("schema", Schema).text("program", report.program).number("pid", report.pid);
    program.number("started", static_cast<int64_t>(report.started));
    Row state;
    state.text("state", getName(report.state)).text("sentence", getSentence(report.state));
    state.number("since", static_cast<int64_t>(report.since));
    state.number("until", static_cast<int64_t>(report.until));
    Row wanted;
    wanted.text("version", report.version).text("url", report.url).text("installed", report.installed);
    wanted.flag("forced", report.isForced).flag("disabled", report.isDisabled);
    wanted.text("configStatus", report.configStatus);
    Row action;
    action.text("action", report.action).text("previousAction", report.previousAction);
    action.number("vainFetches", report.vainFetches)
        .number("vainFetchLimit", FetchGovernor::ImmediateFetches + FetchGovernor::DelayedFetches);
    Row rest;
    rest.text("readyImage", report.readyImage);
    return "{" + program.members() + ",\n  " + state.members() + ",\n  " + wanted.members() + ",\n  " +
           action.members() + ",\n  " + rest.members() + ",\n  \"transfer\": " + transferOf(report) +
           ",\n  \"elements\": " + elementsOf(report) + ",\n  \"failures\": " + failuresOf(report) + "}\n";
}

} // namespace status
