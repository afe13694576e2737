// Images for the tests of the image tool, good ones and ones that are wrong in a chosen way.
#ifndef TESTS_TOOLS_ZEMPSAMPLES_H
#define TESTS_TOOLS_ZEMPSAMPLES_H

#include "update/rig/Samples.h"

// Release 1.05-7, the given manifest, and for each name a software part of version 1.02-3.
inline imagefile::ImageBuilder imageOf(const std::string& manifest, const std::vector<std::string>& names,
                                       size_t bodySize = 600) {
    imagefile::ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL-1.05-7", "Release 1.05-7\n");
    image.manifest(manifest);
    for (const std::string& name : names)
        image.software(name, {1, 2, 3}, name + "-build",
                       rig::bodyOf(bodySize, static_cast<unsigned>(name.size())));
    return image;
}

inline const std::string KernelLine = "2,kernel,0,-,-,4813,1.2.3,1\n";
inline const std::string RootLine = "4,root,0,/,ext4,-,1.2.3,1\n";

inline imagefile::ImageBuilder goodImage() {
    return imageOf("# suum\n" + KernelLine + RootLine, {"kernel", "root"});
}

inline std::string textOf(const imagefile::Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

#endif
