#include "update/FetchGovernor.h"

void FetchGovernor::reset() {
    const bool givenUp = mGivenUp;
    *this = FetchGovernor();
    mGivenUp = givenUp;
}

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

bool FetchGovernor::isStartDoubtVain() const {
    return mStartDoubted && !mPartsDoubted && mWithoutProgress > FetchesBeforePartsDoubt;
}

void FetchGovernor::onPartsDoubted() {
    if (mPartsDoubted)
        return;
    mPartsDoubted = true;
    mFurthest = StartPosition; // so that the next part is progress
}
