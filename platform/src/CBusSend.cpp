#include "CBusHandle.h"
#include "CancellationBlock.h"
#include "vex/CBusConnection.h"
#include <cerrno>
#include <unistd.h>

bool cbusIsOpen(const cbus_handle_t* handle) {
    return handle != nullptr && handle->bus != nullptr && handle->owner == getpid() &&
           sd_bus_is_open(handle->bus) > 0;
}

int cbus_send_signal(cbus_handle_t* handle, const char* name, const void* data, unsigned length) {
    if (handle == nullptr || name == nullptr || *name == '\0' || (data == nullptr && length != 0))
        return -EINVAL;
    if (!cbusIsOpen(handle))
        return -ENOTCONN;

    const CancellationBlock block;
    sd_bus_message* message = nullptr;
    int result =
        sd_bus_message_new_signal(handle->bus, &message, cbus::sPath, cbus::sInterface, cbus::sMember);
    if (result >= 0)
        result = sd_bus_message_append(message, "s", name);
    if (result >= 0)
        result = sd_bus_message_append_array(message, 'y', data, length);
    if (result >= 0)
        result = sd_bus_send(handle->bus, message, nullptr);
    sd_bus_message_unref(message);
    return result < 0 ? result : 0;
}
