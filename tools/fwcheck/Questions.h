// The questions, by what they are about. Each tells its answers.
#ifndef FWCHECK_QUESTIONS_H
#define FWCHECK_QUESTIONS_H

#include "fwcheck/Check.h"
#include "plan/UpdatePlan.h"
#include <optional>

namespace fwcheck {

// Takes answers, and knows whether one was wrong.
class Teller {
  public:
    explicit Teller(const std::function<void(const Answer&)>& tell) : mTell(tell) {}

    void ok(const char* question, const std::string& text = "") { mTell({question, Verdict::Ok, text}); }
    void wrong(const char* question, const std::string& text) {
        mIsGood = false;
        mTell({question, Verdict::Wrong, text});
    }
    void notAsked(const char* question, const std::string& why) { mTell({question, Verdict::NotAsked, why}); }

    bool isGood() const { return mIsGood; }

  private:
    const std::function<void(const Answer&)>& mTell;
    bool mIsGood = true;
};

// Whether the daemon runs and is alone, and whether it has the bus.
void askDaemonAndBus(const Places& places, Teller& teller);

// What the configuration database asks for, as far as it does.
struct Wish {
    std::string version; // like "1.05-7"; empty when it is not of that form
    std::string url;     // empty when it cannot be
    bool isNeeded = true;
};
Wish askConfiguration(Teller& teller);

// The file of the host configuration record that the daemon would take; nothing when it can take none.
std::optional<std::string> askRecord(const Places& places, Teller& teller);

// The wish's URL is not empty.
void askClock(const Places& places, const Wish& wish, Teller& teller);

// What an update would do; nothing when the server cannot be used or serves something else. Without a record
// the server is still asked, as one of a terminal that has nothing installed.
std::optional<plan::UpdatePlan> askServer(const Wish& wish, const std::optional<std::string>& record,
                                          Teller& teller, const std::function<bool()>& isStopped);

#ifdef FW_SEAL
// Whether the release has a good seal; nothing is told where there are no keys.
void askSeal(const Places& places, const Wish& wish, Teller& teller, const std::function<bool()>& isStopped);
#else
inline void askSeal(const Places& /*places*/, const Wish& /*wish*/, Teller& /*teller*/,
                    const std::function<bool()>& /*isStopped*/) {}
#endif

// `plan` is null when the need is not known.
void askSpace(const Places& places, const plan::UpdatePlan* plan, Teller& teller);

} // namespace fwcheck

#endif
