// A web server on the loopback interface: one image, served with byte-exact inclusive ranges, and
// misbehaviour as data.
//
// Every connection carries one request. All methods may be called from any thread.
#ifndef LAB_SCRIPTEDHTTPSERVER_H
#define LAB_SCRIPTEDHTTPSERVER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lab {

// How one request is answered. As it stands: correctly.
struct HttpScript {
    static constexpr size_t Never = SIZE_MAX;

    enum End { Close, Reset, Stall };

    std::string name; // for the log of answers
    int status = 0;   // 0: 206 to a range in the image, 416 to one behind it, 200 to a request without
    bool ignoreRange = false; // the whole image with 200
    bool useBody = false;     // `body` in place of the image's bytes
    std::string body;
    std::string headers;           // further header lines, each with its line end
    int64_t contentRangeShift = 0; // added to the positions that Content-Range tells
    bool withLength = true;        // false: no Content-Length, the body ends with the connection

    size_t headBytes = Never;   // of status line and headers that are sent before `end`
    size_t bodyBytes = Never;   // of the body that are sent before `end`
    unsigned bodyPercent = 100; // of the body likewise
    bool damage = false;        // the byte in the middle of the body is inverted
    End end = Close;            // also when everything was sent

    size_t dripBytes = 0; // not 0: the body comes in pieces of this size, with a pause before each
    std::chrono::milliseconds dripPause{0};
};

class ScriptedHttpServer {
  public:
    struct Request {
        std::string path;
        std::string range; // "first-last"; empty without one
    };

    // A request whose connection has ended.
    struct Answer {
        Request request;
        std::string script; // its name
        int status = 0;     // 0: the status line was not sent whole
        uint64_t bytes = 0; // of the body, as sent
        std::chrono::system_clock::time_point begin;
        std::chrono::system_clock::time_point end;
    };

    // Listens on the loopback interface, on a free port or the given one. Throws std::runtime_error when it
    // cannot.
    explicit ScriptedHttpServer(std::string image = "", unsigned port = 0);

    ~ScriptedHttpServer() { stop(); }
    ScriptedHttpServer(const ScriptedHttpServer&) = delete;
    ScriptedHttpServer& operator=(const ScriptedHttpServer&) = delete;

    // Ends all connections, also stalled ones, and listens no more. What it knows of its requests stays.
    void stop();

    unsigned port() const { return mPort; }
    std::string url(const std::string& path = "/image.zemp") const;

    // From the next request on; one that is being answered keeps its image.
    void setImage(std::string image);

    // The script of every request that has none of its own.
    void setScript(const HttpScript& script);

    // The script of one request, in the order of the calls.
    void addScript(const HttpScript& script);

    // The requests so far.
    std::vector<Request> requests() const;

    // The answers that ended since the last call.
    std::vector<Answer> takeAnswers();

    // Waits until a connection has come to its stall; false when none does within the time.
    [[nodiscard]] bool waitForStall(std::chrono::milliseconds time = std::chrono::seconds(10));

  private:
    struct Connection {
        int fd = -1;
        bool ended = false;
        std::thread thread;
    };

    void listen();
    void acceptAll();
    void serve(Connection& connection);
    Answer answer(int fd, const Request& request);
    void finish(int fd, HttpScript::End end);
    void stall(int fd);
    size_t send(int fd, const std::string& bytes, size_t piece, std::chrono::milliseconds pause);
    HttpScript nextScript();

    int mListener = -1;
    unsigned mPort = 0;
    std::thread mAcceptor;

    mutable std::mutex mMutex; // guards what follows
    std::condition_variable mChanged;
    bool mStopping = false;
    size_t mStalls = 0;
    std::string mImage;
    HttpScript mScript;
    std::deque<HttpScript> mNextScripts;
    std::vector<Request> mRequests;
    std::vector<Answer> mAnswers;
    std::list<Connection> mConnections;
};

} // namespace lab

#endif
