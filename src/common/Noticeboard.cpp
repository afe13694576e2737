#include "common/Noticeboard.h"

Noticeboard& Noticeboard::instance() {
    static auto* const board = new Noticeboard; // never freed: threads may post until the process ends
    return *board;
}

void Noticeboard::postValue(const std::string& key, const std::string& value) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mContent.values[key] = value;
}

void Noticeboard::postFailure(Failure kind, const std::string& text) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mContent.failures[kind] = {text, time(nullptr), false};
}

void Noticeboard::postSuccess(Failure kind) {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto failure = mContent.failures.find(kind);
    if (failure != mContent.failures.end())
        failure->second.isOver = true;
}

void Noticeboard::postTransfer(const Transfer& transfer) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mContent.transfer = transfer;
}

void Noticeboard::clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mContent = {};
}

Noticeboard::Content Noticeboard::content() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mContent;
}
