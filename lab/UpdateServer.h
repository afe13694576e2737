// What serves the image in a lab run, with a log of what was asked of it. Used by one thread.
#ifndef LAB_UPDATESERVER_H
#define LAB_UPDATESERVER_H

#include <cstdint>
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
    double seconds = 0; // from its arrival to its end
    std::string fault;  // the misbehaviour that was asked for; empty: none

    // From a line of the log; empty when it is none.
    static std::optional<ServedRequest> parse(const std::string& line);
};

class UpdateServer {
  public:
    virtual ~UpdateServer() = default;

    virtual std::string url() const = 0;
    virtual bool running() = 0;

    // Ends it, requests in flight included; its port refuses connections then. start() serves again there,
    // and throws std::runtime_error when it cannot.
    virtual void stop() = 0;
    virtual void start() = 0;

    // The requests that ended since the last call, in the order in which they ended.
    virtual std::vector<ServedRequest> newRequests() = 0;

    // Why it does not run, as far as it said; empty without a reason.
    virtual std::string errors() const = 0;
};

} // namespace lab

#endif
