// The platform library's bus and configuration database as the rig has them: the classes that the daemon uses
// lead to the current Platform of the process, in memory and at once. The event loop is the real one.
#ifndef TESTS_UPDATE_RIG_PLATFORM_H
#define TESTS_UPDATE_RIG_PLATFORM_H

#include <string>

namespace rig {

class Platform {
  public:
    Platform() { sCurrent = this; }
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    // False when the key is absent or the read fails.
    virtual bool onRead(const std::string& key, std::string& value) = 0;

    // False when the write fails. An empty value stands for an erasure.
    virtual bool onWrite(const std::string& key, const std::string& value) = 0;

    // The daemon sent a signal.
    virtual void onSignal(const std::string& name) = 0;

    static Platform* sCurrent; // the one made last; null when it is gone

  protected:
    ~Platform() { sCurrent = sCurrent == this ? nullptr : sCurrent; }
};

} // namespace rig

#endif
