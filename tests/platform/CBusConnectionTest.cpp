#include "vex/CBusConnection.h"
#include "LoopHelpers.h"
#include "support/TestPlatform.h"
#include <gtest/gtest.h>
#include <numeric>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using common::CBusConnection;
using support::TestPlatform;

namespace {

// A client of the bus on a loop of its own that keeps what it gets, as "name:payload".
struct Client : public common::CBusMessageHandler {
    bool connect(const char* name) { return bus.connect(name, stoppable.loop); }

    void onCBusSignal(const char* name, const void* data, unsigned length) override {
        got.push_back(std::string(name) + ":" + std::string(static_cast<const char*>(data), length));
        thread = pthread_self();
        if (isLeaving)
            bus.disconnect();
        if (got.size() == wanted)
            stoppable.event.interrupt();
    }

    // Connects and takes the signals of this name, or all without one, that begin with `prefix`.
    bool listen(const char* client, const char* prefix, const char* name) {
        return connect(client) && bus.addFilter(prefix) && bus.registerSignalHandler(name, this);
    }

    // Runs the loop until so many signals have come.
    bool waitFor(size_t count, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        wanted = count;
        return got.size() >= count || stoppable.run(limit);
    }

    bool send(const char* name, const std::string& data = "") {
        return bus.sendSignal(name, data.data(), static_cast<unsigned>(data.size()));
    }

    StoppableLoop stoppable;
    CBusConnection bus;
    std::vector<std::string> got;
    size_t wanted = 0;
    bool isLeaving = false; // at the first signal
    pthread_t thread{};
};

using Lines = std::vector<std::string>;

TEST(CBusConnection, SignalsPassFiltersAndReachTheirHandlers) {
    TestPlatform platform;
    Client sender;
    Client receiver;
    ASSERT_TRUE(sender.connect("sender"));
    ASSERT_TRUE(receiver.connect("receiver"));
    ASSERT_TRUE(receiver.bus.addFilter("evt"));
    ASSERT_TRUE(receiver.bus.addFilter("evt.confd")) << "overlaps, yet nothing comes twice";
    for (const char* const name : {"evt", "evt.confd.updated", "evtx.y", "other.z", "evt.last"})
        ASSERT_TRUE(receiver.bus.registerSignalHandler(name, &receiver));
    ASSERT_TRUE(receiver.bus.registerSignalHandler("evt.last", &receiver));

    EXPECT_TRUE(sender.send("evtx.y"));
    EXPECT_TRUE(sender.send("other.z"));
    EXPECT_TRUE(sender.send("evt.confd.unheard"));
    EXPECT_TRUE(sender.send("evt.confd.updated", std::string("a\0b", 3)));
    EXPECT_EQ(0, cbus_send_signal(sender.bus.getHandle(), "evt", nullptr, 0));
    EXPECT_TRUE(sender.send("evt.last", "end"));
    EXPECT_TRUE(receiver.waitFor(3));
    EXPECT_EQ((Lines{std::string("evt.confd.updated:a\0b", 21), "evt:", "evt.last:end"}), receiver.got);
}

TEST(CBusConnection, UnnamedHandlerAndEmptyFilterTakeEverySignalWithItsPayload) {
    TestPlatform platform;
    Client client;
    ASSERT_TRUE(client.listen("client", "", nullptr));
    std::string large(1000000, '\0');
    for (size_t offset = 0; offset < large.size(); ++offset)
        large[offset] = static_cast<char>(offset % 251);
    EXPECT_TRUE(client.send("one", large));
    EXPECT_TRUE(client.send("two"));
    EXPECT_TRUE(client.waitFor(2));
    EXPECT_EQ((Lines{"one:" + large, "two:"}), client.got);
}

TEST(CBusConnection, DeliversOnTheThreadThatRunsTheLoop) {
    TestPlatform platform;
    Client sender;
    Client receiver;
    ASSERT_TRUE(sender.connect("sender"));
    bool good = false;
    std::thread runner([&] {
        good = receiver.listen("receiver", "evt", "evt.a") && receiver.waitFor(1) &&
               pthread_equal(receiver.thread, pthread_self()) != 0;
        receiver.bus.disconnect();
        sender.stoppable.event.interrupt();
    });
    // Again and again: the receiver may not listen yet.
    const Ticking repeat(sender.stoppable.loop, 20, [&] { return sender.send("evt.a"); });
    EXPECT_TRUE(sender.stoppable.run());
    runner.join();
    EXPECT_TRUE(good);
}

TEST(CBusConnection, NameTakenFailsAndMayBeTriedAgain) {
    TestPlatform platform;
    Client first;
    Client second;
    ASSERT_TRUE(first.connect("fwdownload"));
    EXPECT_FALSE(second.connect("fwdownload"));
    EXPECT_EQ("cannot connect to the bus " + platform.bus().address() +
                  " as vex.client.fwdownload: the name is taken",
              second.bus.lastError());
    EXPECT_EQ(nullptr, second.bus.getHandle());
    EXPECT_FALSE(second.connect("no such name")) << "not a bus name";
    EXPECT_FALSE(second.connect(nullptr));
    first.bus.disconnect();
    EXPECT_TRUE(second.connect("fwdownload"));
}

TEST(CBusConnection, NothingWorksUnconnectedOrUnderABadName) {
    TestPlatform platform;
    Client client;
    for (const bool before : {true, false}) {
        EXPECT_FALSE(client.bus.connected() || client.send("a") || client.bus.addFilter("a"));
        EXPECT_FALSE(client.bus.registerSignalHandler("a", &client));
        EXPECT_LT(cbus_send_signal(client.bus.getHandle(), "a", nullptr, 0), 0);
        if (before) {
            ASSERT_TRUE(client.connect("client"));
            EXPECT_FALSE(client.bus.registerSignalHandler("a", nullptr));
            EXPECT_LT(cbus_send_signal(client.bus.getHandle(), nullptr, nullptr, 0), 0);
            EXPECT_LT(cbus_send_signal(client.bus.getHandle(), "a", nullptr, 1), 0);
            for (const char* const prefix : {".", "a.", "a..b", "1a", "a'", "a,b"})
                EXPECT_FALSE(client.bus.addFilter(prefix)) << prefix;
        }
        client.bus.disconnect();
    }
}

TEST(CBusConnection, DisconnectForgetsFiltersAndHandlersAlsoInsideOne) {
    TestPlatform platform;
    Client sender;
    Client receiver;
    ASSERT_TRUE(sender.connect("sender"));
    ASSERT_TRUE(receiver.connect("receiver"));
    ASSERT_TRUE(receiver.bus.addFilter("evt"));
    Client second; // of the same connection
    ASSERT_TRUE(receiver.bus.registerSignalHandler("evt.a", &receiver));
    ASSERT_TRUE(receiver.bus.registerSignalHandler("evt.a", &second));
    receiver.isLeaving = true;
    EXPECT_TRUE(sender.send("evt.a"));
    EXPECT_TRUE(receiver.waitFor(1));
    ASSERT_TRUE(receiver.connect("receiver"));
    EXPECT_TRUE(sender.send("evt.a"));
    EXPECT_FALSE(receiver.waitFor(2, std::chrono::milliseconds(100)));
    EXPECT_TRUE(second.got.empty());
}

TEST(CBusConnection, BusThatEndsFailsSendsAndDoesNotSpinTheLoop) {
    TestPlatform platform;
    Client running;
    Client resting;
    ASSERT_TRUE(running.listen("running", "evt", "evt.a"));
    ASSERT_TRUE(resting.connect("resting"));
    platform.bus().stop();

    EXPECT_FALSE(resting.send("evt.a")) << "a client that has not run its loop since";
    const double before = processorMs();
    EXPECT_FALSE(running.stoppable.run(std::chrono::milliseconds(300)));
    EXPECT_LT(processorMs() - before, 50.0);
    EXPECT_FALSE(running.bus.connected());
    EXPECT_FALSE(running.send("evt.a"));
    EXPECT_NE(0, cbus_send_signal(running.bus.getHandle(), "evt.a", nullptr, 0));
    EXPECT_FALSE(running.connect("running")) << "no bus";

    platform.bus().start();
    ASSERT_TRUE(running.connect("running"));
    EXPECT_TRUE(running.send("evt.a"));
}

// A server that accepts and never speaks.
TEST(CBusConnection, BusThatDoesNotAnswerHoldsUpNobodyForLong) {
    const lab::TemporaryDirectory directory;
    const support::ScopedEnvironment address("VEX_CBUS_ADDRESS", "unix:path=" + directory.file("mute"));
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    directory.file("mute").copy(name.sun_path, sizeof name.sun_path - 1);
    ASSERT_EQ(0, bind(server, reinterpret_cast<sockaddr*>(&name), sizeof name));
    ASSERT_EQ(0, listen(server, 1));
    const auto start = std::chrono::steady_clock::now();
    Client client;
    EXPECT_FALSE(client.connect("client"));
    EXPECT_LT(elapsedMs(start), 6000.0);
    close(server);
}

TEST(CBusConnection, OneThatWasMadeBeforeAForkIsTheParentsAlone) {
    TestPlatform platform;
    Client client;
    ASSERT_TRUE(client.listen("client", "evt", nullptr));
    const pid_t child = fork();
    if (child == 0) {
        bool good = !client.bus.connected() && client.bus.getHandle() == nullptr && !client.send("evt.child");
        client.bus.disconnect();
        good = good && client.connect("child") && client.send("evt.child");
        client.bus.disconnect();
        _exit(good ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_TRUE(client.waitFor(1));
    EXPECT_EQ(Lines{"evt.child:"}, client.got);
}

} // namespace
