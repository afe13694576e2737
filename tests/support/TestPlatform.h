// The platform of one test: private bus and database, named to this process and its children by environment.
#ifndef SUPPORT_TESTPLATFORM_H
#define SUPPORT_TESTPLATFORM_H

#include "lab/PrivateBus.h"
#include "lab/ScopedEnvironment.h"
#include "lab/TemporaryDirectory.h"
#include <string>

namespace support {

using lab::ScopedEnvironment;

// VEX_CBUS_ADDRESS names the bus, VEX_CONFIGDB a file that does not exist yet in the directory.
class TestPlatform {
  public:
    lab::PrivateBus& bus() { return mBus; }
    const lab::TemporaryDirectory& directory() const { return mDirectory; }
    std::string database() const { return mDirectory.file("config.db"); }

  private:
    lab::TemporaryDirectory mDirectory;
    lab::PrivateBus mBus;
    ScopedEnvironment mBusAddress{"VEX_CBUS_ADDRESS", mBus.address()};
    ScopedEnvironment mDatabaseFile{"VEX_CONFIGDB", mDirectory.file("config.db")};
};

} // namespace support

#endif
