#include "lab/WebServer.h"

#include <arpa/inet.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>

namespace lab {

namespace {

constexpr int sPortAttempts = 5; // another program may take a port between its choice and its use
constexpr Milliseconds sStartTime{10000};
constexpr Milliseconds sPollInterval{5};

constexpr const char* sConfiguration = R"(daemon off;
master_process off;
pid /lab/web/nginx.pid;
error_log stderr notice;
events {
    worker_connections 64;
}
http {
    log_format lab escape=json '{"time":$msec,"path":"$uri","range":"$http_range","status":$status,'
                               '"bytes":$body_bytes_sent,"seconds":$request_time}';
    access_log /lab/web/access.log lab;
    default_type application/octet-stream;
    client_body_temp_path /lab/web/temp;
    proxy_temp_path /lab/web/temp;
    fastcgi_temp_path /lab/web/temp;
    uwsgi_temp_path /lab/web/temp;
    scgi_temp_path /lab/web/temp;
    server {
        listen 127.0.0.1:@PORT@;
        location = /update.zemp {
            alias @IMAGE@;
            limit_rate @SPEED@;
        }
        location / {
            return 404;
        }
    }
}
)";

unsigned findFreePort() {
    const Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error(std::string("no free port on the loopback interface: ") + strerror(errno));
    return ntohs(address.sin_port);
}

void replace(std::string& text, const std::string& mark, const std::string& value) {
    text.replace(text.find(mark), mark.size(), value);
}

} // namespace

std::optional<ServedRequest> ServedRequest::parse(const std::string& line) {
    const nlohmann::json entry = nlohmann::json::parse(line, nullptr, false);
    if (!entry.is_object())
        return std::nullopt;
    ServedRequest request;
    request.time = entry.value("time", 0.0);
    request.path = entry.value("path", "");
    request.range = entry.value("range", "");
    request.status = entry.value("status", 0);
    request.bytes = entry.value("bytes", uint64_t{0});
    request.seconds = entry.value("seconds", 0.0);
    const std::string unit = "bytes=";
    if (request.range.compare(0, unit.size(), unit) == 0)
        request.range.erase(0, unit.size());
    return request;
}

WebServer::WebServer(const Terminal& terminal, const WorkDirectory& directory, std::string image,
                     unsigned speed)
    : mTerminal(terminal),
      mDirectory(directory),
      mImage(std::move(image)),
      mSpeed(speed),
      mAccessLog(directory.web() + "/access.log") {
    for (int i = 0; i < sPortAttempts; ++i) {
        mPort = findFreePort();
        if (tryStart())
            return;
    }
    throw std::runtime_error("nginx does not start: " + errors());
}

std::string WebServer::url() const {
    return "http://127.0.0.1:" + std::to_string(mPort) + "/update.zemp";
}

void WebServer::start() {
    if (!running() && !tryStart())
        throw std::runtime_error("nginx does not start again: " + errors());
}

void WebServer::writeConfiguration() const {
    std::string text = sConfiguration;
    replace(text, "@PORT@", std::to_string(mPort));
    replace(text, "@IMAGE@", mImage);
    replace(text, "@SPEED@", std::to_string(mSpeed));
    std::ofstream file(mDirectory.web() + "/nginx.conf");
    file << text;
    file.close();
    if (!file)
        throw std::runtime_error("cannot write '" + mDirectory.web() + "/nginx.conf'");
}

// Starts it on mPort. It writes its pid file when it listens; it ends when the port is taken.
bool WebServer::tryStart() {
    const std::string pidFile = mDirectory.web() + "/nginx.pid";
    std::filesystem::remove(pidFile);
    writeConfiguration();
    ChildOptions options;
    options.arguments = {findProgram("nginx"), "-e", "stderr", "-p", "/lab/web", "-c", "/lab/web/nginx.conf"};
    const Descriptor output = Descriptor::open(mDirectory.log("nginx"), O_WRONLY | O_CREAT | O_APPEND);
    options.output = output.get();
    mServer = mTerminal.start(options);
    const auto deadline = std::chrono::steady_clock::now() + sStartTime;
    while (mServer->running() && std::chrono::steady_clock::now() < deadline) {
        if (std::filesystem::exists(pidFile))
            return true;
        std::this_thread::sleep_for(sPollInterval);
    }
    mServer.reset();
    return false;
}

std::vector<ServedRequest> WebServer::newRequests() {
    std::vector<ServedRequest> requests;
    for (const std::string& line : mAccessLog.newLines())
        if (const auto request = ServedRequest::parse(line))
            requests.push_back(*request);
    return requests;
}

std::string WebServer::errors() const {
    std::ifstream file(mDirectory.log("nginx"));
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace lab
