// The platform of one test: private bus and database, named to this process and its children by environment.
#ifndef SUPPORT_TESTPLATFORM_H
#define SUPPORT_TESTPLATFORM_H

#include "support/PrivateBus.h"
#include "support/TemporaryDirectory.h"
#include <optional>
#include <string>

namespace support {

// Sets an environment variable and puts back what was there. Only while no other thread reads the
// environment.
class ScopedEnvironment {
  public:
    ScopedEnvironment(std::string name, const std::string& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    const std::string mName;
    std::optional<std::string> mBefore;
};

// VEX_CBUS_ADDRESS names the bus, VEX_CONFIGDB a file that does not exist yet in the directory.
class TestPlatform {
  public:
    PrivateBus& bus() { return mBus; }
    const TemporaryDirectory& directory() const { return mDirectory; }
    std::string database() const { return mDirectory.file("config.db"); }

  private:
    TemporaryDirectory mDirectory;
    PrivateBus mBus;
    ScopedEnvironment mBusAddress{"VEX_CBUS_ADDRESS", mBus.address()};
    ScopedEnvironment mDatabaseFile{"VEX_CONFIGDB", mDirectory.file("config.db")};
};

} // namespace support

#endif
