// A terminal that may have public keys, and a server with seals.
#ifndef TESTS_UPDATE_RIG_SEALEDTERMINAL_H
#define TESTS_UPDATE_RIG_SEALEDTERMINAL_H

#include "support/SealSigner.h"
#include "update/rig/Terminal.h"

namespace rig {

class SealedTerminal : public Terminal {
  public:
    // With a key whose maker seals what is published.
    SealedTerminal() { trust("maker.pub", support::SealSigner().keyFile()); }

    // Puts the seal of what is on the server under a version beside it. Returns the seal.
    std::string seal(const std::string& version, const std::string& comment = "by the maker",
                     const support::SealSigner& signer = support::SealSigner());
    void serveSeal(const std::string& version, const std::string& seal);

    // Gives the terminal a file in its directory of keys; whether there are any counts from the next start
    // on.
    void trust(const std::string& name, const std::string& keyFile) const;
    void distrust() const; // takes the directory away

    // Published images, their seals and the one key are as they should be.
    void makeHonest();

    // The highest serial that the terminal keeps, as in its file.
    void keepSerial(const std::string& text) const;
    std::string serial() const;

  private:
    std::unique_ptr<seal::Gate> makeGate() const override;
    void onPublished(const std::string& version) override { seal(version); }

    lab::TemporaryDirectory mSystem;
};

} // namespace rig

#endif
