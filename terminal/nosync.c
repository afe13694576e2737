/* Preloaded into the daemon, takes the effect of syncs from what lies in the download directory: the control of the
 * power cuts, which must find wrong images then. Advice goes too: the kernel writes pages before it drops them, which is
 * as good as a sync where an image is read back. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static int spared(int fd) {
    char link[64];
    char path[512];
    snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
    const ssize_t length = readlink(link, path, sizeof(path) - 1);
    if (length < 0) {
        return 0;
    }
    path[length] = 0;
    return strncmp(path, "/data/fw", strlen("/data/fw")) == 0;
}

static int call(const char* name, int fd) {
    int (*const real)(int) = (int (*)(int))dlsym(RTLD_NEXT, name);
    return spared(fd) ? 0 : real(fd);
}

int fsync(int fd) { return call("fsync", fd); }
int fdatasync(int fd) { return call("fdatasync", fd); }

int posix_fadvise64(int fd, off64_t offset, off64_t length, int advice) {
    (void)fd, (void)offset, (void)length, (void)advice;
    return 0;
}
