// A directory of a test's own, removed with everything in it.
#ifndef SUPPORT_TEMPORARYDIRECTORY_H
#define SUPPORT_TEMPORARYDIRECTORY_H

#include "lab/TemporaryDirectory.h"

namespace support {
using lab::TemporaryDirectory;
}

#endif
