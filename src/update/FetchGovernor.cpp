#include "update/FetchGovernor.h"

FetchGovernor::Verdict FetchGovernor::onFetch(unsigned position) {
    if (!mHasFetched || position > mFurthest) {
        mHasFetched = true;
        mFurthest = position;
        mWithoutProgress = 0;
        return FetchNow;
    }
    ++mWithoutProgress;
    if (mWithoutProgress <= ImmediateFetches)
        return FetchNow;
    return mWithoutProgress <= ImmediateFetches + DelayedFetches ? FetchLater : GiveUp;
}

bool FetchGovernor::takeStartDoubt() {
    if (mStartDoubted || mWithoutProgress <= FetchesBeforeStartDoubt)
        return false;
    mStartDoubted = true;
    return true;
}
