// The terminal's configuration as its operator sets it and the daemon reports in it.
//
// One at a time in a process; used by one thread.
#ifndef LAB_CONFIGSTORE_H
#define LAB_CONFIGSTORE_H

#include "lab/ScopedEnvironment.h"
#include <string>

namespace lab {

// A version as the configuration has it.
struct ConfiguredVersion {
    std::string major;
    std::string minor;
    std::string buildLabel;

    // From a text like "1.05-7". Throws std::runtime_error when it is none.
    static ConfiguredVersion parse(const std::string& text);

    // "1.05-7", as the daemon reports it.
    std::string toString() const;
};

class ConfigStore {
  public:
    // Opens the database file, making it when absent. All calls throw std::runtime_error with the
    // database's reason on failure.
    explicit ConfigStore(const std::string& file);
    ~ConfigStore();
    ConfigStore(const ConfigStore&) = delete;
    ConfigStore& operator=(const ConfigStore&) = delete;

    // Configures the version and where it is served.
    void configure(const ConfiguredVersion& version, const std::string& url);

    // What runs now: major, two-digit minor, a blank and the build, for example "1.04 3".
    void setInstalledVersion(const std::string& version);

    // The compiled image that is flagged ready, as the terminal names it; empty while there is none.
    std::string readyForInstall();

    // Empty when absent.
    std::string get(const std::string& key);
    void set(const std::string& key, const std::string& value);

  private:
    const ScopedEnvironment mFile;
};

} // namespace lab

#endif
