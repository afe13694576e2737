// The parts of an image as the daemon has them when it compiles an update: every software blob in a file of
// its own, all of them needed.
#ifndef BENCH_UPDATEPARTS_H
#define BENCH_UPDATEPARTS_H

#include "image/ZempParser.h"
#include <map>
#include <memory>
#include <string>
#include <vector>

class UpdateParts {
  public:
    // Cuts the image's blobs into files in `directory`, which exists. Throws std::runtime_error when the
    // image cannot be read.
    static void cut(const std::string& image, const std::string& directory);

    // Parses the image's start and the files that cut() made. Throws std::runtime_error when one is not
    // valid.
    UpdateParts(const std::string& image, const std::string& directory);

    const std::map<const unsigned, ZempPart*>& map() const { return mMap; }

  private:
    std::vector<std::unique_ptr<ZempPart>> mParts;
    std::map<const unsigned, ZempPart*> mMap;
};

#endif
