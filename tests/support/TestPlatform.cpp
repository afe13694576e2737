#include "support/TestPlatform.h"

#include <cstdlib>
#include <utility>

namespace support {

ScopedEnvironment::ScopedEnvironment(std::string name, const std::string& value) : mName(std::move(name)) {
    if (const char* const before = getenv(mName.c_str()))
        mBefore = before;
    setenv(mName.c_str(), value.c_str(), 1);
}

ScopedEnvironment::~ScopedEnvironment() {
    if (mBefore)
        setenv(mName.c_str(), mBefore->c_str(), 1);
    else
        unsetenv(mName.c_str());
}

} // namespace support
