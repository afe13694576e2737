// Shows a lab run on standard output: plain lines, and in a terminal a progress bar below them.
#ifndef LAB_CONSOLEVIEW_H
#define LAB_CONSOLEVIEW_H

#include "lab/LabEvent.h"
#include "lab/LabRun.h"
#include <atomic>
#include <cstdio>
#include <string>

namespace lab {

class ConsoleView : public LabObserver {
  public:
    // Writes to `out`, with a progress bar if it is a terminal. The run ends early when `stop` turns true.
    ConsoleView(FILE* out, const std::atomic<bool>& stop);
    ~ConsoleView() override { clearBar(); }

    void onEvent(const LabEvent& event) override;
    void onProgress(const LabProgress& progress) override;
    bool isStopRequested() override { return mStop; }

    // The requests, the verdict on the image, and the sum.
    void showResult(const LabResult& result);

  private:
    void line(double time, const std::string& text);
    void drawBar();
    void clearBar();
    void showRequests(const LabResult& result);
    void showVerdict(const LabResult& result);

    FILE* const mOut;
    const std::atomic<bool>& mStop;
    const bool mHasBar;
    std::string mBar; // as drawn; empty while there is none
    LabProgress mProgress;
};

} // namespace lab

#endif
