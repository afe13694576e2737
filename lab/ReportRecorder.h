// Keeps what happens in a lab run, for a report that is written at its end.
#ifndef LAB_REPORTRECORDER_H
#define LAB_REPORTRECORDER_H

#include "lab/LabEvent.h"
#include <string>
#include <vector>

namespace lab {

// What the daemon does from some time on.
struct ActionChange {
    double time = 0; // in seconds since the run began, as exactly as its status is read
    std::string action;
};

std::vector<ActionChange> findActions(const std::vector<LabEvent>& events);

// The next actions in the order of an undisturbed update, and what each means.
struct ActionMeaning {
    const char* action;
    const char* meaning;
};
extern const std::vector<ActionMeaning> sActions;

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
