// Writes the reduced update image that the installer takes after the reboot: main header, release header,
// manifest, and every software blob; blobs that are not needed are reduced to their headers.
//
// Used by the file handler's thread. Nothing here throws. Copying is a cancellation point; a stop leaves no
// partial image behind.
#ifndef IMAGE_ZEMPCREATOR_H
#define IMAGE_ZEMPCREATOR_H

#include "image/ZempPart.h"
#include <map>
#include <memory>
#include <string>

class ZempCreator {
  public:
    enum class Failure {
        None,
        Parts,       // the parts, or the files that hold their bodies: another try of the same fails again
        Space,       // the disk or the quota is full
        Surroundings // anything else that may be better another time
    };

    // The parts by content index, which is their order in the image. They are not owned, and must live, with
    // the files that hold their bodies, until createZemp() has returned.
    // Whatever `voucher` does not vouch for makes the compile fail; not null.
    explicit ZempCreator(
        std::map<const unsigned, ZempPart*> parts,
        std::shared_ptr<const seal::Voucher> voucher = std::make_shared<const seal::Voucher>());
    ~ZempCreator() = default;
    ZempCreator(const ZempCreator&) = delete;
    ZempCreator& operator=(const ZempCreator&) = delete;

    // True when the image has been written to `filename` completely and is on disk, its directory entry
    // included. It is written under that name with ".part" behind it, and takes the place of an older image
    // at the end; then what the voucher keeps of it is on disk, too. On failure, which is logged, the partial
    // file is removed and an older image stays as it was; only when the directory cannot be synced, or the
    // voucher keep what it has to, the new one is there already.
    [[nodiscard]] bool createZemp(std::string filename);

    // Why the last createZemp() failed.
    Failure getFailure() const { return mFailure; }

    // The file that holds the image's body while it is built, at first "/tmp/zempparts". Tests that run side
    // by side set one of their own. Set it before threads that compile are started.
    static void setTempFilename(const std::string& filename) { sTempFilename = filename; }
    static std::string getTempFilename() { return sTempFilename; }

  private:
    static std::string sTempFilename;

    const std::map<const unsigned, ZempPart*> mParts;
    const std::shared_ptr<const seal::Voucher> mVoucher;
    Failure mFailure = Failure::None;
};

#endif
