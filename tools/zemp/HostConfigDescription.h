// Descriptions of host configuration records: what is installed on a terminal.
//
//     active-set = "A"                   # the set that is in use; none if missing
//
//     [[release]]                        # at most 3
//     name = "REL-1.05-7"                # at most 36 bytes
//     version = "1.5.7"
//     time = 2024-05-01T12:00:00Z        # or seconds since 1970; 0 if missing
//
//     [[set]]                            # at most 3
//     name = "A"                         # at most 16 bytes
//     release = "REL-1.05-7"             # name of a release above; none if missing
//     bootable = true                    # true if missing
//     references = 1                     # 0 if missing
//
//     [[partition]]                      # at most 20; only pool and version have to be given
//     pool = "kernel"                    # at most 16 bytes
//     version = "1.2.3"                  # of what is installed
//     number = 2
//     offset = 0x100000                  # on the flash, in bytes
//     size = 0x400000                    # in bytes
//     mountpoint = "/boot"               # at most 32 bytes
//     filesystem = "ext4"                # at most 12 bytes
//     content = "kernel"                 # name of what is installed, at most 16 bytes; the pool's if missing
//     build-id = "kern-build"            # at most 28 bytes
//     length = 1234                      # of what is installed, in bytes
//     crc = 0x12345678                   # its CRC-32
#ifndef ZEMP_HOSTCONFIGDESCRIPTION_H
#define ZEMP_HOSTCONFIGDESCRIPTION_H

#include "hostconfig/HostConfigRecord.h"
#include <string>

namespace zemp {

// Throws InputError that begins with file, line and column.
hostcfg::Description readHostConfigDescription(const std::string& file);

} // namespace zemp

#endif
