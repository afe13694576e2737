// Signed releases: the lines to sign, the seal made of them, and the check of an image against its seal. As
// Commands.h says of what these return and throw.
#ifndef ZEMP_SEALCOMMANDS_H
#define ZEMP_SEALCOMMANDS_H

#include "zemp/Commands.h"
#include <vector>

namespace zemp {

// Writes the lines of a sound image to `output`.
int writeDigest(const std::string& image, const std::string& output, const Console& console);

// Joins the lines and minisign's signature of them. With a public key file in `keys` the signature is
// checked.
int writeSeal(const std::string& lines, const std::string& signature, const std::vector<std::string>& keys,
              const std::string& output, const Console& console);

// Checks an image, a file or a URL, against its seal; an empty `seal` is the one beside the image.
int verifyImage(const std::string& image, const std::vector<std::string>& keys, const std::string& seal,
                const Console& console);

// What there is to say of a seal beside an image file, without keys: a line, empty when there is none.
std::string describeSeal(const std::string& image);

} // namespace zemp

#endif
