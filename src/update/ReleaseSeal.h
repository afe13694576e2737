// What is known of the wanted release's seal. Main thread only. On a terminal without keys there is nothing
// to know, and nothing is ever awaited.
#ifndef UPDATE_RELEASESEAL_H
#define UPDATE_RELEASESEAL_H

#include "seal/Gate.h"
#include <memory>
#include <string>

class ReleaseSeal {
  public:
    explicit ReleaseSeal(const seal::Gate& gate) : mGate(gate), mVoucher(gate.withoutSeal()) {}

    const seal::Gate& gate() const { return mGate; }

    // What vouches for the release; null while its seal has to be read first.
    const std::shared_ptr<const seal::Voucher>& voucher() const { return mVoucher; }

    // The seal has to be read anew: another release is wanted, or this one is doubted.
    void forget() { mVoucher = mGate.withoutSeal(); }

    // Reads the seal of a release from a file; `problem` is why it is not to be read, if there is a reason.
    // What speaks against a good one does not count when the update is forced. Logs what is wrong.
    void read(const std::string& filename, std::string problem, const std::string& release, bool isForced);

    // True once after a seal was read: what is on disk has not been compared with it.
    bool takeIsNew();

  private:
    const seal::Gate& mGate;
    std::shared_ptr<const seal::Voucher> mVoucher;
    bool mIsNew = false;
};

#endif
