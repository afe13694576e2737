#include "update/ReleaseSeal.h"

#include "common/Noticeboard.h"
#include "common/VexStreamLog.h"
#include <utility>

void ReleaseSeal::read(const std::string& filename, std::string problem, const std::string& release,
                       bool isForced) {
    seal::Gate::Opened seal;
    if (problem.empty()) {
        seal = mGate.readSeal(filename, release);
        problem = seal.problem;
    }
    const std::string objection = seal.voucher ? seal.voucher->objection() : "";
    if (!objection.empty() && isForced)
        VEX_LOG(LogWarning) << "ReleaseSeal::read() Release " << release << " is forced, although "
                            << objection << ".";
    else if (!objection.empty())
        problem = objection;
    if (!problem.empty()) {
        VEX_LOG(LogWarning) << "ReleaseSeal::read() Release " << release << " has no good seal, " << problem
                            << ".";
        Noticeboard::instance().postFailure(Noticeboard::Failure::Seal, problem);
        return;
    }
    Noticeboard::instance().postSuccess(Noticeboard::Failure::Seal);
    mVoucher = std::move(seal.voucher);
    mIsNew = true;
}

bool ReleaseSeal::takeIsNew() {
    return std::exchange(mIsNew, false);
}
