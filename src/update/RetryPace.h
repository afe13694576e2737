// How long a failed piece of work rests before it is tried again: one beat of a timer, then two, four, eight,
// and eight from then on, so that what fails for days does not wear the flash.
#ifndef UPDATE_RETRYPACE_H
#define UPDATE_RETRYPACE_H

#include <algorithm>

class RetryPace {
  public:
    static constexpr unsigned MaximumBeats = 8;

    void reset() { *this = RetryPace(); }
    void onFailure() {
        mBeatsLeft = mNextBeats;
        mNextBeats = std::min(2 * mNextBeats, MaximumBeats);
    }

    // To be called at each beat. True when it is time for the next try, once after each failure.
    bool onBeat() { return mBeatsLeft > 0 && --mBeatsLeft == 0; }

  private:
    unsigned mBeatsLeft = 0;
    unsigned mNextBeats = 1;
};

#endif
