// Whether an update can run: asked by a program of its own, which loads the HTTP library.
#include "Commands.h"
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

int checkTerminal(const std::string& runDirectory, bool asJson) {
    std::error_code error;
    const std::filesystem::path place = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    for (const std::filesystem::path& folder : {place, place / FWCTL_LIBEXEC}) {
        const std::string program = folder / "fwctl-check";
        execl(program.c_str(), program.c_str(), runDirectory.c_str(), asJson ? "--json" : nullptr, nullptr);
        if (errno != ENOENT)
            return complain(sFailed, program + ": " + strerror(errno));
    }
    return complain(sFailed, "fwctl-check is not installed");
}
