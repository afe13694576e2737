// The update server of a lab run: nginx in the terminal's file system, on a free port of the loopback
// interface, with a log of what was asked of it.
//
// Used by one thread.
#ifndef LAB_WEBSERVER_H
#define LAB_WEBSERVER_H

#include "lab/LogTail.h"
#include "lab/Terminal.h"
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lab {

// A request as the server's log has it, written when the answer has been sent or the client has gone.
struct ServedRequest {
    double time = 0; // of its end, in seconds since 1970-01-01 UTC
    std::string path;
    std::string range; // "512-1023"; empty when the whole file was asked for
    int status = 0;
    uint64_t bytes = 0; // of the answer's body, as sent

    // From a line of the log; empty when it is none.
    static std::optional<ServedRequest> parse(const std::string& line);
};

class WebServer {
  public:
    // Serves the file at `image`, a path in the terminal, to each client with at most `speed` bytes per
    // second; 0: no limit. Returns when requests are accepted; throws std::runtime_error with the server's
    // reason when that cannot be had.
    WebServer(const Terminal& terminal, const WorkDirectory& directory, std::string image,
              unsigned speed = 0);

    unsigned port() const { return mPort; }
    std::string url() const;

    bool running() { return mServer && mServer->running(); }

    // Ends it, requests in flight included; its port refuses connections then. start() serves again there.
    void stop() { mServer.reset(); }
    void start();

    // The requests that were logged since the last call.
    std::vector<ServedRequest> newRequests();

    // What it wrote to its error log.
    std::string errors() const;

  private:
    bool tryStart();
    void writeConfiguration() const;

    const Terminal& mTerminal;
    const WorkDirectory& mDirectory;
    const std::string mImage;
    const unsigned mSpeed;
    unsigned mPort = 0;
    std::unique_ptr<TerminalProcess> mServer;
    LogTail mAccessLog;
};

} // namespace lab

#endif
