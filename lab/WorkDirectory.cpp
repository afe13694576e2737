#include "lab/WorkDirectory.h"

#include "lab/ChildProcess.h"
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace lab {

namespace fs = std::filesystem;

WorkDirectory::WorkDirectory(std::string path) : mPath(std::move(path)) {
    for (const std::string& directory :
         {downloads(), temporary(), run() + "/fw_download", database(), web()}) {
        std::error_code error;
        fs::create_directories(directory, error);
        if (error)
            throw std::runtime_error("cannot make directory '" + directory + "': " + error.message());
    }
}

std::string WorkDirectory::onMachine(const std::string& inTerminal) const {
    const std::pair<const char*, std::string> places[] = {{"/data/fw/", downloads()}, {"/tmp/", temporary()},
                                                          {"/var/run/", run()},       {"/run/", run()},
                                                          {"/lab/db/", database()},   {"/lab/web/", web()}};
    for (const auto& [place, directory] : places) {
        const std::string prefix(place);
        if (inTerminal.compare(0, prefix.size(), prefix) == 0)
            return directory + "/" + inTerminal.substr(prefix.size());
    }
    return "";
}

namespace {

std::string findBeside(const fs::path& directory, const std::string& name) {
    for (const fs::path& candidate : {directory / name, directory.parent_path() / "sbin" / name})
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    return findProgram(name);
}

std::string findLibrary() {
    void* const symbol = dlsym(RTLD_DEFAULT, "cbus_send_signal");
    Dl_info info{};
    if (symbol == nullptr || dladdr(symbol, &info) == 0)
        throw std::runtime_error("cannot find libvex.so");
    return fs::canonical(info.dli_fname);
}

} // namespace

Programs Programs::find() {
    const fs::path directory = fs::read_symlink("/proc/self/exe").parent_path();
    return {findBeside(directory, "fw_download"), findBeside(directory, "fw_lab"), findLibrary()};
}

} // namespace lab
