// Keeps what happens in a lab run, for a report that is written at its end.
#ifndef LAB_REPORTRECORDER_H
#define LAB_REPORTRECORDER_H

#include "lab/LabEvent.h"
#include <string>
#include <vector>

namespace lab {

// What the daemon does from some time on, named as its next action.
struct ActionChange {
    double time = 0; // in seconds since the run began, as exactly as the log is read
    std::string action;
};

// The changes that the lines of the daemon's log tell, most of which come at level 7 only.
std::vector<ActionChange> findActions(const std::vector<LabEvent>& events);

// All names that findActions() uses, in the order of an undisturbed update.
std::vector<std::string> actionNames();

class ReportRecorder : public LabObserver {
  public:
    // Passes everything on to `next`, which must outlive it.
    explicit ReportRecorder(LabObserver& next) : mNext(next) {}

    void onEvent(const LabEvent& event) override {
        mEvents.push_back(event);
        mNext.onEvent(event);
    }
    void onProgress(const LabProgress& progress) override { mNext.onProgress(progress); }
    bool isStopRequested() override { return mNext.isStopRequested(); }

    const std::vector<LabEvent>& events() const { return mEvents; }

  private:
    LabObserver& mNext;
    std::vector<LabEvent> mEvents;
};

} // namespace lab

#endif
