// Reads a finished update image once more, as the installer will: what was written is not always what is
// there.
#ifndef IMAGE_ZEMPREADBACK_H
#define IMAGE_ZEMPREADBACK_H

#include "image/ZempFormat.h"
#include "seal/Gate.h"
#include <memory>
#include <string>
#include <vector>

// A part as it was written.
struct WrittenPart {
    zemp_content_header_t header;
    seal::Digests digests; // all zero unless they are asked for
};

// Whether the file holds an image with this main header and exactly these parts in this order: its length,
// the checksum over the whole body, each part's header and body, and their digests if `voucher` asks for any.
// False, and logged, when it does not, or cannot be read. A cancellation point.
[[nodiscard]] bool readBackImage(const std::string& filename, const zemp_header_t& header,
                                 const std::vector<WrittenPart>& parts,
                                 const std::shared_ptr<const seal::Voucher>& voucher);

// Whether the file holds an update image of the release that `voucher` knows: sound, with a part for each of
// the release's, each with the name and version of one, and its very bytes unless it has no body. False, and
// logged, when it does not, or cannot be read. Reads nothing when nothing is asked for. A cancellation point.
[[nodiscard]] bool isImageVouchedFor(const std::string& filename,
                                     const std::shared_ptr<const seal::Voucher>& voucher);

#endif
