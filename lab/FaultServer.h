// An update server that misbehaves on request: each fault by its name, for so many requests, and
// correctly afterwards.
#ifndef LAB_FAULTSERVER_H
#define LAB_FAULTSERVER_H

#include "lab/ScriptedHttpServer.h"
#include "lab/UpdateServer.h"
#include <memory>
#include <string>
#include <vector>

namespace lab {

// What is wrong with the answers to some requests.
struct Fault {
    std::string name;
    std::string description; // one line
    HttpScript script;
    unsigned count = 1; // of requests

    // All that can be asked for.
    static std::vector<Fault> all();

    // From "NAME" or "NAME=COUNT". Throws std::runtime_error with the reason.
    static Fault parse(const std::string& text);
    static std::vector<Fault> parseAll(const std::vector<std::string>& texts);
};

class FaultServer : public UpdateServer {
  public:
    // Serves `image` on the loopback interface, to each client with about `speed` bytes per second (0: no
    // limit). The faults come in their order, from the first request on. Throws std::runtime_error when it
    // cannot listen.
    FaultServer(std::string image, const std::vector<Fault>& faults, unsigned speed = 0);

    std::string url() const override;
    bool running() override { return mServer != nullptr; }

    // The faults that had not come yet come after the next start.
    void stop() override;
    void start() override;
    std::vector<ServedRequest> newRequests() override;
    std::string errors() const override { return ""; }

  private:
    void takeAnswers();

    const std::string mImage;
    std::vector<HttpScript> mScripts; // one for each request that has a fault
    HttpScript mByTheBook;
    size_t mServedRequests = 0; // before the last stop
    unsigned mPort = 0;         // 0: not known yet
    std::vector<ServedRequest> mAnswered;
    std::unique_ptr<ScriptedHttpServer> mServer;
};

} // namespace lab

#endif
