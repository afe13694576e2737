// The gate of a terminal that may have keys: with keys, a release needs a seal by one of them, and a serial
// that is no lower than that of the last release.
#ifndef SEAL_SEALGATE_H
#define SEAL_SEALGATE_H

#include "seal/Gate.h"
#include "seal/KeyRing.h"

namespace seal {

class SealGate : public Gate {
  public:
    static constexpr const char* KeyDirectory = "/etc/fw_download/keys.d";
    static constexpr const char* SerialFile = "/var/lib/fw_download/serial";

    explicit SealGate(std::string keyDirectory = KeyDirectory, std::string serialFile = SerialFile);

    // Says in the log what it found, unless there are no keys. What keys there are is found out anew for each
    // seal, whether seals are needed at all is not.
    void readKeys() override;

    std::shared_ptr<const Voucher> withoutSeal() const override;
    std::string sealUrl(const std::string& imageUrl) const override;
    std::string keptName(const std::string& image) const override;
    Opened readSeal(const std::string& filename, const std::string& release) const override;

  private:
    const std::string mKeyDirectory;
    const std::string mSerialFile;
    KeyRing::State mState = KeyRing::Off;
};

} // namespace seal

#endif
