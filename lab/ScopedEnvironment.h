// An environment variable that is set for a while.
#ifndef LAB_SCOPEDENVIRONMENT_H
#define LAB_SCOPEDENVIRONMENT_H

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace lab {

// Sets the variable and puts back what was there. Only while no other thread reads the environment.
class ScopedEnvironment {
  public:
    ScopedEnvironment(std::string name, const std::string& value) : mName(std::move(name)) {
        if (const char* const before = getenv(mName.c_str()))
            mBefore = before;
        setenv(mName.c_str(), value.c_str(), 1);
    }
    ~ScopedEnvironment() {
        if (mBefore)
            setenv(mName.c_str(), mBefore->c_str(), 1);
        else
            unsetenv(mName.c_str());
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    const std::string mName;
    std::optional<std::string> mBefore;
};

} // namespace lab

#endif
