// The images that are measured, made once in a directory that goes with the process.
#ifndef BENCH_BENCHFILES_H
#define BENCH_BENCHFILES_H

#include "lab/TemporaryDirectory.h"
#include <string>

class BenchFiles {
  public:
    // Of all benchmarks. Throws std::runtime_error when the disk is full.
    static const BenchFiles& get();

    std::string largeImage() const { return mDirectory.file("large"); } // 75 MiB, all of it valid
    std::string part() const { return mDirectory.file("part"); }        // a content part of 1 kB
    std::string manifestImage() const {
        return mDirectory.file("suum");
    } // an image start, manifest of 40 lines
    std::string updateParts() const { return mDirectory.file("update"); } // the large image's blobs, in files
    std::string scratch(const char* name) const { return mDirectory.file(name); }

  private:
    BenchFiles();

    lab::TemporaryDirectory mDirectory;
};

#endif
