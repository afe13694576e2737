#include "common/maskedurl.h"
#include "common/printable.h"
#include "fwcheck/Questions.h"
#include "imagefile/ImageSource.h"
#include "seal/Seal.h"
#include "seal/SealGate.h"
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

namespace fwcheck {

namespace {

// The seal at a URL in a file of its own, which is removed at the end.
class FetchedSeal {
  public:
    FetchedSeal(const std::string& url, const std::string& directory, const std::function<bool()>& isStopped)
        : mName(directory + "/fwctl-check.XXXXXX") {
        const auto source = imagefile::openImage(url, isStopped);
        if (source->size() > seal::MaximumSealBytes)
            throw std::runtime_error("it is longer than " + std::to_string(seal::MaximumSealBytes) +
                                     " bytes");
        source->load(0, source->size());
        mFd = mkstemp(mName.data());
        const auto size = static_cast<ssize_t>(source->size());
        if (mFd < 0 || write(mFd, source->data(), static_cast<size_t>(size)) != size)
            throw std::runtime_error(mName + ": " + strerror(errno));
    }
    ~FetchedSeal() {
        if (mFd < 0)
            return;
        close(mFd);
        unlink(mName.c_str());
    }
    FetchedSeal(const FetchedSeal&) = delete;
    FetchedSeal& operator=(const FetchedSeal&) = delete;

    const std::string& name() const { return mName; }

  private:
    std::string mName;
    int mFd = -1;
};

} // namespace

void askSeal(const Places& places, const Wish& wish, Teller& teller, const std::function<bool()>& isStopped) {
    const seal::KeyRing ring = seal::loadKeys(places.keys);
    if (ring.state == seal::KeyRing::Off)
        return;
    if (ring.state == seal::KeyRing::Closed)
        return teller.wrong("seal", printable(ring.problem) + ": no release is taken until it is right");
    seal::SealGate gate(places.keys, places.serial);
    gate.readKeys();
    const std::string url = gate.sealUrl(wish.url);
    std::string problem;
    try {
        const FetchedSeal seal(url, places.temporary, isStopped);
        const seal::Gate::Opened opened = gate.readSeal(seal.name(), wish.version);
        problem = opened.voucher ? opened.voucher->objection() : opened.problem;
    } catch (const std::exception& error) {
        problem = error.what();
        const size_t at = problem.find(url);
        if (at != std::string::npos)
            problem.replace(at, url.size(), maskedUrl(url));
    }
    if (problem.empty())
        teller.ok("seal", "by a key of this terminal");
    else
        teller.wrong("seal", printable(problem) +
                                 ": this terminal takes sealed releases only; publish the right seal");
}

} // namespace fwcheck
