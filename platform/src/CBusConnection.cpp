#include "vex/CBusConnection.h"

#include "CBusHandle.h"
#include "CancellationBlock.h"
#include "FdLoopImpl.h"
#include "vex/kq.h"
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace common {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

// A bus that does not answer may hold up its client for so long per call.
constexpr microseconds sCallTimeout = std::chrono::seconds(3);

// What was sent gets so long to go out when a connection ends.
constexpr microseconds sFlushTimeout = std::chrono::seconds(1);

// The bus that the environment names; empty for the system's.
std::string busAddress() {
    const char* const address = getenv("VEX_CBUS_ADDRESS");
    return address != nullptr ? address : "";
}

int startBus(sd_bus** bus, const std::string& address) {
    if (address.empty())
        return sd_bus_open_system(bus);
    int result = sd_bus_new(bus);
    if (result >= 0)
        result = sd_bus_set_address(*bus, address.c_str());
    if (result >= 0)
        result = sd_bus_set_bus_client(*bus, 1);
    return result < 0 ? result : sd_bus_start(*bus);
}

// Reads and writes until `done`; 0, -ETIMEDOUT, or the bus's error.
template <typename Done>
int processUntil(sd_bus* bus, microseconds timeout, Done done) {
    const auto deadline = Clock::now() + timeout;
    while (!done()) {
        int result = sd_bus_process(bus, nullptr);
        if (result > 0)
            continue;
        const auto left = std::chrono::duration_cast<microseconds>(deadline - Clock::now());
        if (result == 0 && left.count() <= 0)
            return -ETIMEDOUT;
        if (result == 0)
            result = sd_bus_wait(bus, static_cast<uint64_t>(left.count()));
        if (result < 0 && result != -EINTR)
            return result;
    }
    return 0;
}

bool isPrefix(const std::string& text) {
    bool first = true; // of its element
    for (const char c : text) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '-';
        const bool digit = c >= '0' && c <= '9';
        if (!letter && !(digit && !first) && !(c == '.' && !first))
            return false;
        first = c == '.';
    }
    return !first;
}

std::string matchRule(const std::string& prefix) {
    std::string rule = std::string("type='signal',path='") + cbus::sPath + "',interface='" +
                       cbus::sInterface + "',member='" + cbus::sMember + "'";
    return prefix.empty() ? rule : rule + ",arg0namespace='" + prefix + "'";
}

} // namespace

struct [[gnu::visibility("hidden")]] CBusConnection::Impl {
    struct Registration {
        std::optional<std::string> name; // none: every name
        CBusMessageHandler* handler;
    };

    bool connect(const std::string& clientName, FdLoop::Impl& loop);
    int open(const std::string& busName, FdLoop::Impl& loop);
    void close();
    bool fail(const std::string& what, const std::string& why);
    bool fail(const std::string& what, int errorNumber) {
        return fail(what, strerror(-errorNumber));
    }
    void deliver(const char* name, const void* data, unsigned length);

    static int onMessage(sd_bus_message * message, void* userdata, sd_bus_error* error);

    cbus_handle_t handle;     // its bus is null when there is no connection
    unsigned connections = 0; // changes when a connection begins or ends
    std::vector<Registration> registrations;
    std::string lastError;
};

bool CBusConnection::Impl::fail(const std::string& what, const std::string& why) {
    lastError = what + ": " + why;
    kq_slog(LOG_ERR, "CBusConnection: %s", lastError.c_str());
    return false;
}

bool CBusConnection::Impl::connect(const std::string& clientName, FdLoop::Impl& loop) {
    const CancellationBlock block;
    close();
    const std::string busName = "vex.client." + clientName;
    const int result = open(busName, loop);
    if (result >= 0)
        return true;
    close();
    const std::string address = busAddress();
    const std::string what =
        "cannot connect to the " + (address.empty() ? "system bus" : "bus " + address) + " as " + busName;
    return result == -EEXIST ? fail(what, "the name is taken") : fail(what, result);
}

// The handshake is driven to its end here: until it is, everything sent would wait in the queue.
int CBusConnection::Impl::open(const std::string& busName, FdLoop::Impl& loop) {
    int result = loop.ensureEvent();
    if (result < 0)
        return result;
    ++connections;
    handle.owner = getpid();
    result = startBus(&handle.bus, busAddress());
    if (result < 0)
        return result;
    result = processUntil(handle.bus, sCallTimeout, [this] { return sd_bus_is_ready(handle.bus) > 0; });
    if (result < 0)
        return result;
    result = sd_bus_set_method_call_timeout(handle.bus, static_cast<uint64_t>(sCallTimeout.count()));
    if (result < 0)
        return result;
    result = sd_bus_request_name(handle.bus, busName.c_str(), 0);
    if (result < 0)
        return result;
    result = sd_bus_add_filter(handle.bus, nullptr, onMessage, this);
    return result < 0 ? result : sd_bus_attach_event(handle.bus, loop.event(), SD_EVENT_PRIORITY_NORMAL);
}

void CBusConnection::Impl::close() {
    const CancellationBlock block;
    ++connections;
    registrations.clear(); // so that what still comes in reaches nobody
    sd_bus* const bus = handle.bus;
    const bool ours = handle.owner == getpid();
    const bool ready = ours && bus != nullptr && sd_bus_is_ready(bus) > 0;
    handle = cbus_handle_t();
    if (bus == nullptr || !ours)
        return; // after a fork the connection is the parent's alone
    const auto sent = [bus] {
        uint64_t queued = 0;
        return sd_bus_get_n_queued_write(bus, &queued) < 0 || queued == 0;
    };
    if (ready && processUntil(bus, sFlushTimeout, sent) < 0)
        kq_slog(LOG_WARNING, "CBusConnection: signals were lost at the end of the connection");
    sd_bus_close(bus);
    sd_bus_detach_event(bus);
    sd_bus_unref(bus);
}

int CBusConnection::Impl::onMessage(sd_bus_message* message, void* userdata, sd_bus_error*) {
    if (sd_bus_message_is_signal(message, "org.freedesktop.DBus.Local", "Disconnected") > 0) {
        kq_slog(LOG_WARNING, "CBusConnection: the bus is gone");
        return 0;
    }
    const char* const path = sd_bus_message_get_path(message);
    if (sd_bus_message_is_signal(message, cbus::sInterface, cbus::sMember) <= 0 || path == nullptr ||
        strcmp(path, cbus::sPath) != 0 || sd_bus_message_has_signature(message, "say") <= 0)
        return 0;
    const char* name = nullptr;
    const void* data = nullptr;
    size_t length = 0;
    if (sd_bus_message_read(message, "s", &name) > 0 &&
        sd_bus_message_read_array(message, 'y', &data, &length) >= 0)
        static_cast<Impl*>(userdata)->deliver(name, data, static_cast<unsigned>(length));
    return 0;
}

// A handler may disconnect or register: the list is copied, and left when the connection is another.
void CBusConnection::Impl::deliver(const char* name, const void* data, unsigned length) {
    const unsigned connection = connections;
    const std::vector<Registration> current = registrations;
    for (const Registration& registration : current) {
        if (connection != connections)
            return;
        if (!registration.name || *registration.name == name)
            registration.handler->onCBusSignal(name, data, length);
    }
}

CBusConnection::CBusConnection() : mImpl(std::make_unique<Impl>()) {}

CBusConnection::~CBusConnection() {
    mImpl->close();
}

bool CBusConnection::connect(const char* name, FdLoop& loop) {
    if (name == nullptr || *name == '\0')
        return mImpl->fail("cannot connect to the bus", "no client name");
    return mImpl->connect(name, *loop.mImpl);
}

void CBusConnection::disconnect() {
    mImpl->close();
}

bool CBusConnection::connected() const {
    return cbusIsOpen(&mImpl->handle);
}

const std::string& CBusConnection::lastError() const {
    return mImpl->lastError;
}

bool CBusConnection::addFilter(const char* prefix) {
    const CancellationBlock block;
    const std::string text = prefix != nullptr ? prefix : "";
    const std::string what = "cannot listen to '" + text + "'";
    if (!connected())
        return mImpl->fail(what, "not connected");
    if (!text.empty() && !isPrefix(text))
        return mImpl->fail(what, "not a prefix of signal names");
    sd_bus_error error = {nullptr, nullptr, 0};
    const int result =
        sd_bus_call_method(mImpl->handle.bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "AddMatch", &error, nullptr, "s", matchRule(text).c_str());
    if (result < 0)
        mImpl->fail(what, error.message != nullptr ? error.message : strerror(-result));
    sd_bus_error_free(&error);
    return result >= 0;
}

bool CBusConnection::registerSignalHandler(const char* name, CBusMessageHandler* handler) {
    const std::string text = name != nullptr ? name : "every signal";
    if (!connected())
        return mImpl->fail("cannot register for " + text, "not connected");
    if (handler == nullptr)
        return mImpl->fail("cannot register for " + text, "no handler");
    const std::optional<std::string> wanted = name != nullptr ? std::make_optional(text) : std::nullopt;
    auto& all = mImpl->registrations;
    const bool known = std::any_of(all.begin(), all.end(), [&](const Impl::Registration& registration) {
        return registration.name == wanted && registration.handler == handler;
    });
    if (!known)
        all.push_back({wanted, handler});
    return true;
}

bool CBusConnection::sendSignal(const char* name, const void* data, unsigned length) {
    const int result = cbus_send_signal(getHandle(), name, data, length);
    if (result == 0)
        return true;
    return mImpl->fail(std::string("cannot send ") + (name != nullptr ? name : "a signal without a name"),
                       mImpl->handle.bus == nullptr ? -ENOTCONN : result);
}

cbus_handle_t* CBusConnection::getHandle() {
    return mImpl->handle.bus != nullptr && mImpl->handle.owner == getpid() ? &mImpl->handle : nullptr;
}

} // namespace common
