// The update server of a lab run: nginx in the terminal's file system, on a free port of the loopback
// interface, with a log of what was asked of it.
//
// Used by one thread.
#ifndef LAB_WEBSERVER_H
#define LAB_WEBSERVER_H

#include "lab/LogTail.h"
#include "lab/Terminal.h"
#include "lab/UpdateServer.h"
#include <memory>
#include <string>
#include <vector>

namespace lab {

class WebServer : public UpdateServer {
  public:
    // Serves the file at `image`, a path in the terminal, to each client with at most `speed` bytes per
    // second; 0: no limit. Returns when requests are accepted; throws std::runtime_error with the server's
    // reason when that cannot be had.
    WebServer(const Terminal& terminal, const WorkDirectory& directory, std::string image,
              unsigned speed = 0);

    unsigned port() const { return mPort; }
    std::string url() const override;

    bool running() override { return mServer && mServer->running(); }

    void stop() override { mServer.reset(); }
    void start() override;
    std::vector<ServedRequest> newRequests() override;

    // What it wrote to its error log.
    std::string errors() const override;

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
