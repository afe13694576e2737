// A message bus of a test's own.
#ifndef SUPPORT_PRIVATEBUS_H
#define SUPPORT_PRIVATEBUS_H

#include "lab/PrivateBus.h"

namespace support {
using lab::PrivateBus;
}

#endif
