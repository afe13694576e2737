// Paces the fetches of one update that bring it no further, so that a server or an image that is wrong for
// good is not asked in a hot loop. Main thread only.
#ifndef UPDATE_FETCHGOVERNOR_H
#define UPDATE_FETCHGOVERNOR_H

class FetchGovernor {
  public:
    enum Verdict {
        FetchNow,   // queue the request
        FetchLater, // leave it to the download timer
        GiveUp      // too many fetches without progress: end the daemon
    };

    static constexpr unsigned StartPosition = 0;    // of the image start; the first element has 1
    static constexpr unsigned ImmediateFetches = 4; // without progress: a body after its header, and slack
    static constexpr unsigned MaximumFailures = 42; // of one request; one more ends the daemon
    static constexpr unsigned DelayedFetches = MaximumFailures;
    static constexpr unsigned FetchesBeforeStartDoubt = 6; // then the image may have changed on the server
    static constexpr unsigned FetchesBeforePartsDoubt = 9; // then parts may be of another image

    // Begins anew, for another version or URL. What was given up stays so.
    void reset();

    // Asked once for each fetch. `position` is the place of the fetched element in the image; going further
    // than ever before is progress, and forgives what was before.
    Verdict onFetch(unsigned position);

    // True once in the life of a version, when the fetches go round: the image start should be fetched anew.
    bool takeStartDoubt();

    // Whether they still go round with the start fetched anew, and the parts have not been doubted yet.
    bool isStartDoubtVain() const;

    // Parts of another image are fetched anew. Once in the life of a version that forgives what was before.
    void onPartsDoubted();

    // Fetches in a row that brought no progress.
    unsigned getWithoutProgress() const { return mWithoutProgress; }

    // Nothing is fetched any more: the daemon ends.
    void giveUp() { mGivenUp = true; }
    bool hasGivenUp() const { return mGivenUp; }

  private:
    bool mHasFetched = false;
    bool mStartDoubted = false;
    bool mPartsDoubted = false;
    bool mGivenUp = false;
    unsigned mFurthest = 0;
    unsigned mWithoutProgress = 0;
};

#endif
