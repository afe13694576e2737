// Small images and terminals, and what tests do with programs in a terminal.
#ifndef TESTS_SYSTEM_LABFIXTURES_H
#define TESTS_SYSTEM_LABFIXTURES_H

#include "hostconfig/HostConfigRecord.h"
#include "image/ImageFixtures.h"
#include "lab/LabRun.h"
#include "lab/SampleImage.h"
#include <chrono>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

using lab::Milliseconds;

constexpr Milliseconds VeryLong{60000}; // nothing that works takes so long, also on a busy machine

// Waits until `condition` holds; false when that takes very long.
template <typename Condition>
bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + VeryLong;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(Milliseconds(2));
    }
    return true;
}

inline std::string readText(const std::string& filename) {
    return lab::TemporaryDirectory::read(filename);
}

inline size_t countIn(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size()))
        ++count;
    return count;
}

// A socket at a path in the file system.
inline lab::Descriptor localSocket(const std::string& path, int type) {
    lab::Descriptor result(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot bind " + path);
    return result;
}

// Starts a program that appends what it prints to a file.
inline std::unique_ptr<lab::TerminalProcess> startIn(const lab::Terminal& terminal, lab::ChildOptions options,
                                                     const std::string& log) {
    const lab::Descriptor output = lab::Descriptor::open(log, O_WRONLY | O_CREAT | O_APPEND);
    options.output = output.get();
    return terminal.start(options);
}

// A whole update that nobody watches.
inline lab::LabResult runLab(const lab::LabOptions& options, const std::string& directory) {
    struct : lab::LabObserver {
        void onEvent(const lab::LabEvent&) override {}
    } nobody;
    return lab::runLab(options, lab::WorkDirectory(directory), nobody);
}

// What went wrong in it; empty: nothing.
inline std::string failureOf(const lab::LabResult& result) {
    return result.isGood() ? ""
                           : std::string(lab::getName(result.step)) + ": " + result.failure + "\n" +
                                 readText(result.daemonLog);
}

// Release 1.05-7 with a kernel and a root of these sizes, both 1.02-3.
inline imagefile::ImageBuilder twoPartImage(size_t kernelSize, size_t rootSize) {
    imagefile::ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL-1.05-7", "Release 1.05-7\n", true);
    image.manifest("2,kernel,0,-,-,4813,1.2.3,1\n4,root,0,/,ext4,-,1.2.3,1\n");
    image.software("kernel", {1, 2, 3}, "kern-build", lab::patternBytes(kernelSize, 1));
    image.software("root", {1, 2, 3}, "root-build", lab::patternBytes(rootSize, 2));
    return image;
}

// The record of a terminal that runs release 1.04-3, with kernel 1.02-2, and root of the given version.
inline Bytes recordWithRoot(hostcfg::Version root) {
    hostcfg::Description record;
    record.releases = {{"REL-1.04-3", {1, 4, 3}, 0}};
    record.sets = {{"set1", true, 0, 1}};
    record.activeSet = 0;
    for (const auto& [pool, version] : {std::pair<const char*, hostcfg::Version>{"kernel", {1, 2, 2}},
                                        std::pair<const char*, hostcfg::Version>{"root", root}}) {
        hostcfg::Partition partition;
        partition.pool = pool;
        partition.version = version;
        record.partitions.push_back(partition);
    }
    return hostcfg::build(record);
}

#endif
