#include "lab/FaultServer.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace lab {

namespace {

constexpr std::chrono::milliseconds sPieceTime{20}; // between the pieces of an answer with limited speed
constexpr unsigned sPiecesPerSecond = 50;
constexpr unsigned sMaximumCount = 10000;
constexpr const char* sPage = "<html><body>This is not an image.</body></html>\n";

Fault make(const char* name, const char* description, void (*change)(HttpScript&)) {
    Fault fault{name, description, {}, 1};
    change(fault.script);
    if (fault.name != "none")
        fault.script.name = name;
    return fault;
}

void answerPage(HttpScript& script, int status) {
    script.status = status;
    script.useBody = true;
    script.body = sPage;
}

void cutBody(HttpScript& script, HttpScript::End end) {
    script.bodyPercent = 50;
    script.end = end;
}

void cutHead(HttpScript& script, size_t bytes, HttpScript::End end) {
    script.headBytes = bytes;
    script.end = end;
}

void limitSpeed(HttpScript& script, unsigned speed) {
    if (speed == 0 || script.dripBytes != 0)
        return;
    script.dripBytes = std::max(1U, speed / sPiecesPerSecond);
    script.dripPause = sPieceTime;
}

} // namespace

std::vector<Fault> Fault::all() {
    using S = HttpScript;
    return {
        make("none", "no fault; lets requests pass before the next one", [](S&) {}),
        make("not-found", "status 404 with a page", [](S& s) { answerPage(s, 404); }),
        make("unavailable", "status 503 with a page", [](S& s) { answerPage(s, 503); }),
        make("page", "status 200 with a page in place of the image", [](S& s) { answerPage(s, 200); }),
        make("redirect", "status 302 to another path",
             [](S& s) {
                 answerPage(s, 302);
                 s.headers = "Location: /elsewhere\r\n";
             }),
        make("close", "ends the connection without an answer", [](S& s) { cutHead(s, 0, S::Close); }),
        make("close-in-head", "ends it within the headers", [](S& s) { cutHead(s, 60, S::Close); }),
        make("close-mid-body", "ends it in the middle of the body", [](S& s) { cutBody(s, S::Close); }),
        make("short-body", "half the body, with no length that would tell",
             [](S& s) {
                 cutBody(s, S::Close);
                 s.withLength = false;
             }),
        make("empty", "the right status and no byte of the body", [](S& s) { s.useBody = true; }),
        make("reset", "resets the connection without an answer", [](S& s) { cutHead(s, 0, S::Reset); }),
        make("reset-mid-body", "resets it in the middle of the body", [](S& s) { cutBody(s, S::Reset); }),
        make("stall", "does not answer and keeps the connection", [](S& s) { cutHead(s, 0, S::Stall); }),
        make("stall-mid-body", "sends half the body and keeps the connection",
             [](S& s) { cutBody(s, S::Stall); }),
        make("ignore-range", "the whole image, with status 200", [](S& s) { s.ignoreRange = true; }),
        make("wrong-content-range", "the right bytes, but Content-Range tells others",
             [](S& s) { s.contentRangeShift = 512; }),
        make("unknown-encoding", "the right bytes, said to be encoded in a way that nobody knows",
             [](S& s) { s.headers = "Content-Encoding: nonsense\r\n"; }),
        make("damage", "one byte in the middle of the body is wrong", [](S& s) { s.damage = true; }),
        make("drip", "pieces of 2000 bytes, 100 a second",
             [](S& s) {
                 s.dripBytes = 2000;
                 s.dripPause = std::chrono::milliseconds(10);
             }),
    };
}

Fault Fault::parse(const std::string& text) {
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    for (Fault& fault : all()) {
        if (fault.name != name)
            continue;
        if (equals != std::string::npos) {
            const std::string count = text.substr(equals + 1);
            const bool isNumber = !count.empty() && count.size() <= 5 &&
                                  count.find_first_not_of("0123456789") == std::string::npos;
            fault.count = isNumber ? static_cast<unsigned>(std::stoul(count)) : 0;
            if (fault.count == 0 || fault.count > sMaximumCount)
                throw std::runtime_error("'" + text + "': the count is not a number from 1 to " +
                                         std::to_string(sMaximumCount));
        }
        return fault;
    }
    throw std::runtime_error("'" + name + "' is not the name of a fault");
}

std::vector<Fault> Fault::parseAll(const std::vector<std::string>& texts) {
    std::vector<Fault> faults;
    faults.reserve(texts.size());
    for (const std::string& text : texts)
        faults.push_back(parse(text));
    return faults;
}

FaultServer::FaultServer(std::string image, const std::vector<Fault>& faults, unsigned speed)
    : mImage(std::move(image)) {
    limitSpeed(mByTheBook, speed);
    for (const Fault& fault : faults) {
        HttpScript script = fault.script;
        limitSpeed(script, speed);
        mScripts.insert(mScripts.end(), fault.count, script);
    }
    start();
}

std::string FaultServer::url() const {
    return "http://127.0.0.1:" + std::to_string(mPort) + "/update.zemp";
}

void FaultServer::start() {
    if (mServer)
        return;
    mServer = std::make_unique<ScriptedHttpServer>(mImage, mPort);
    mPort = mServer->port();
    mServer->setScript(mByTheBook);
    for (size_t i = mServedRequests; i < mScripts.size(); ++i)
        mServer->addScript(mScripts[i]);
}

void FaultServer::stop() {
    if (!mServer)
        return;
    mServedRequests += mServer->requests().size();
    mServer->stop();
    takeAnswers();
    mServer.reset();
}

void FaultServer::takeAnswers() {
    for (const ScriptedHttpServer::Answer& answer : mServer->takeAnswers()) {
        const std::chrono::duration<double> time = answer.end.time_since_epoch();
        mAnswered.push_back({time.count(), answer.request.path, answer.request.range, answer.status,
                             answer.bytes, std::chrono::duration<double>(answer.end - answer.begin).count(),
                             answer.script});
    }
}

std::vector<ServedRequest> FaultServer::newRequests() {
    if (mServer)
        takeAnswers();
    return std::exchange(mAnswered, {});
}

} // namespace lab
