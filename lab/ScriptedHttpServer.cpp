#include "lab/ScriptedHttpServer.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace lab {

namespace {

constexpr const char* LineEnd = "\r\n";

// The bytes from `first` to `last`, inclusive, that a request asks for; all of them without a range.
struct Span {
    bool isRange = false;
    bool isValid = true;
    size_t first = 0;
    size_t length = 0;
};

Span spanOf(const std::string& range, size_t size) {
    Span span;
    span.length = size;
    const size_t dash = range.find('-');
    if (dash == std::string::npos)
        return span;
    span.isRange = true;
    span.first = strtoul(range.c_str(), nullptr, 10);
    const bool open = dash + 1 == range.size();
    const size_t last = open ? SIZE_MAX : strtoul(range.c_str() + dash + 1, nullptr, 10);
    span.isValid = span.first < size && span.first <= last;
    span.length = span.isValid ? std::min(last, size - 1) - span.first + 1 : 0;
    return span;
}

std::string readHead(int fd) {
    std::string head;
    char bytes[2048];
    while (head.find("\r\n\r\n") == std::string::npos) {
        const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
        if (count <= 0)
            return "";
        head.append(bytes, static_cast<size_t>(count));
    }
    return head;
}

ScriptedHttpServer::Request parseHead(const std::string& head) {
    ScriptedHttpServer::Request request;
    const size_t path = head.find(' ') + 1;
    request.path = head.substr(path, head.find(' ', path) - path);
    const std::string field = "\r\nRange: bytes=";
    const size_t range = head.find(field);
    if (range != std::string::npos)
        request.range = head.substr(range + field.size(), head.find('\r', range + 2) - range - field.size());
    return request;
}

std::string headOf(const HttpScript& script, int status, const Span& span, size_t size, size_t bodySize) {
    std::string head = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\nConnection: close\r\n";
    if (script.withLength)
        head += "Content-Length: " + std::to_string(bodySize) + LineEnd;
    const auto shift = static_cast<size_t>(script.contentRangeShift);
    if (status == 206)
        head += "Content-Range: bytes " + std::to_string(span.first + shift) + "-" +
                std::to_string(span.first + span.length - 1 + shift) + "/" + std::to_string(size) + LineEnd;
    if (status == 416)
        head += "Content-Range: bytes */" + std::to_string(size) + LineEnd;
    return head + script.headers + LineEnd;
}

} // namespace

ScriptedHttpServer::ScriptedHttpServer(std::string image, unsigned port)
    : mPort(port), mImage(std::move(image)) {
    listen();
    mAcceptor = std::thread([this] { acceptAll(); });
}

void ScriptedHttpServer::stop() {
    if (!mAcceptor.joinable())
        return;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;
        mChanged.notify_all();
        for (const Connection& connection : mConnections)
            if (!connection.ended)
                shutdown(connection.fd, SHUT_RDWR);
    }
    shutdown(mListener, SHUT_RDWR);
    mAcceptor.join();
    close(mListener);
    for (Connection& connection : mConnections)
        connection.thread.join();
}

void ScriptedHttpServer::listen() {
    mListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(mPort));
    const int on = 1; // a port that was in use a moment ago is free
    setsockopt(mListener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    if (mListener < 0 || bind(mListener, generic, size) != 0 || ::listen(mListener, SOMAXCONN) != 0 ||
        getsockname(mListener, generic, &size) != 0)
        throw std::runtime_error("no port to listen on");
    mPort = ntohs(address.sin_port);
}

std::string ScriptedHttpServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

void ScriptedHttpServer::setImage(std::string image) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mImage = std::move(image);
}

void ScriptedHttpServer::setScript(const HttpScript& script) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mScript = script;
}

void ScriptedHttpServer::addScript(const HttpScript& script) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mNextScripts.push_back(script);
}

HttpScript ScriptedHttpServer::nextScript() {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mNextScripts.empty())
        return mScript;
    HttpScript script = mNextScripts.front();
    mNextScripts.pop_front();
    return script;
}

std::vector<ScriptedHttpServer::Request> ScriptedHttpServer::requests() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mRequests;
}

std::vector<ScriptedHttpServer::Answer> ScriptedHttpServer::takeAnswers() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mAnswers, {});
}

bool ScriptedHttpServer::waitForStall(std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, time, [this] { return mStalls > 0; });
}

void ScriptedHttpServer::acceptAll() {
    for (;;) {
        const int fd = accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mStopping || (fd < 0 && errno == EINVAL)) {
            if (fd >= 0)
                close(fd);
            return;
        }
        mConnections.remove_if([](Connection& connection) {
            if (connection.ended)
                connection.thread.join();
            return connection.ended;
        });
        if (fd < 0)
            continue;
        Connection& connection = mConnections.emplace_back();
        connection.fd = fd;
        connection.thread = std::thread([this, &connection] { serve(connection); });
    }
}

void ScriptedHttpServer::serve(Connection& connection) {
    const int fd = connection.fd; // constant since before the thread began
    const std::string head = readHead(fd);
    if (!head.empty()) {
        const Request request = parseHead(head);
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mRequests.push_back(request);
        }
        const Answer given = answer(fd, request);
        const std::lock_guard<std::mutex> lock(mMutex);
        mAnswers.push_back(given);
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    close(fd);
    connection.ended = true;
}

ScriptedHttpServer::Answer ScriptedHttpServer::answer(int fd, const Request& request) {
    const HttpScript script = nextScript();
    std::string image;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        image = mImage;
    }
    const Span span = spanOf(script.ignoreRange ? "" : request.range, image.size());
    const int byTheBook = !span.isRange ? 200 : span.isValid ? 206 : 416;
    const int status = script.status != 0 ? script.status : byTheBook;
    std::string body = script.useBody || !span.isValid ? script.body : image.substr(span.first, span.length);
    std::string head = headOf(script, status, span, image.size(), body.size());
    const bool headIsCut = script.headBytes < head.size();
    head.resize(std::min(head.size(), script.headBytes));
    body.resize(headIsCut ? 0 : std::min(body.size() * script.bodyPercent / 100, script.bodyBytes));
    if (script.damage && !body.empty())
        body[body.size() / 2] = static_cast<char>(~body[body.size() / 2]);
    Answer given{request, script.name, headIsCut ? 0 : status, 0, std::chrono::system_clock::now(), {}};
    if (send(fd, head, 0, {}) == head.size()) {
        given.bytes = send(fd, body, script.dripBytes, script.dripPause);
        if (given.bytes == body.size())
            finish(fd, script.end);
    }
    given.end = std::chrono::system_clock::now();
    return given;
}

// The bytes that were sent: all, unless the other side or the server ended the connection.
size_t ScriptedHttpServer::send(int fd, const std::string& bytes, size_t piece,
                                std::chrono::milliseconds pause) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        if (piece != 0) {
            std::unique_lock<std::mutex> lock(mMutex);
            if (mChanged.wait_for(lock, pause, [this] { return mStopping; }))
                return sent;
        }
        const size_t size = std::min(bytes.size() - sent, piece != 0 ? piece : SIZE_MAX);
        const ssize_t count = ::send(fd, bytes.data() + sent, size, MSG_NOSIGNAL);
        if (count <= 0)
            return sent;
        sent += static_cast<size_t>(count);
    }
    return sent;
}

void ScriptedHttpServer::finish(int fd, HttpScript::End end) {
    const linger hard = {1, 0};
    switch (end) {
    case HttpScript::Close:
        shutdown(fd, SHUT_WR);
        break;
    case HttpScript::Reset: // the close that follows sends a reset
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        break;
    case HttpScript::Stall:
        stall(fd);
        break;
    }
}

// Sends nothing more and waits until the other side, or the server itself, ends the connection.
void ScriptedHttpServer::stall(int fd) {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        ++mStalls;
        mChanged.notify_all();
    }
    char byte = 0;
    while (recv(fd, &byte, 1, 0) > 0) {
    }
}

} // namespace lab
