#include "common/instance.h"

#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

constexpr size_t PathSize = 32; // longer paths are cut
constexpr mode_t LockFileMode = 0644;

} // namespace

int instance_check(const char* name, unsigned slots) {
    const auto pid = static_cast<uint64_t>(getpid()); // starting here spreads the instances over the slots
    for (unsigned i = 0; i < slots; ++i) {
        const auto slot = static_cast<unsigned>((pid + i) % slots);
        char path[PathSize];
        snprintf(path, sizeof path, "/tmp/lock-%s-%u", name, slot);
        const int fd = open(path, O_RDONLY | O_CREAT, LockFileMode);
        if (fd < 0)
            continue;
        if (flock(fd, LOCK_EX | LOCK_NB) == 0)
            return 0; // the descriptor stays open and holds the lock
        close(fd);
    }
    return 1;
}
