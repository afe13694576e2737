// Fuzz target: part files that change between their parse and the compile, as the input says. Either the
// image is the one of the files as they were, or there is none.

#include "fuzz/FuzzTarget.h"
#include "fuzz/PartChecks.h"
#include "fuzz/Script.h"
#include "image/ZempCreator.h"
#include "lab/TemporaryDirectory.h"
#include "update/rig/Samples.h"
#include <deque>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using lab::TemporaryDirectory;

namespace {

constexpr size_t MaximumFile = 65536;
constexpr size_t Files = 3; // image start, two needed parts

enum Step { Flip, Cut, Longer, Replace, Link, Directory, Gone, Steps };

void play(fuzz::Script& script, const std::vector<std::string>& files) {
    const std::string& path = files[script.byte() % Files];
    std::error_code none; // such as for a link to itself
    const std::string text = fs::is_regular_file(path, none) ? TemporaryDirectory::read(path) : "";
    std::vector<uint8_t> bytes(text.begin(), text.end());
    const unsigned step = script.byte() % Steps;
    fs::remove_all(path);
    if (step == Directory)
        fs::create_directory(path);
    if (step == Link)
        fs::create_symlink(files[script.byte() % Files], path);
    if (step >= Link)
        return;
    if (step == Flip)
        script.flipIn(bytes);
    if (step == Cut)
        bytes.resize(bytes.size() * script.byte() / 256);
    if (step == Longer && bytes.size() < MaximumFile)
        bytes.insert(bytes.end(), 1 + size_t{script.byte()}, script.byte());
    if (step == Replace)
        bytes.assign(bytes.size(), script.byte());
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const auto image =
        rig::makeImage(7, {{2, "kernel", "-", 3000, false}, {4, "root", "-", 1, false}});
    const TemporaryDirectory directory;
    ZempCreator::setTempFilename(directory.file("body"));
    const imagefile::Bytes whole = image.build();
    std::vector<std::string> files;
    std::deque<fuzz::Parts> parsed;
    std::map<const unsigned, ZempPart*> parts;
    unsigned index = 0;
    for (size_t i = 0; i < Files; ++i) {
        const imagefile::Bytes bytes =
            i == 0 ? imagefile::Bytes(whole.begin(), whole.begin() + static_cast<long>(image.offsetOf(2)))
                   : image.buildPart(i + 1);
        files.push_back(directory.write("part" + std::to_string(i), std::string(bytes.begin(), bytes.end())));
        FUZZ_REQUIRE(parsed.emplace_back().parseFile(
            files[i], 0, i == 0 ? FileFragment::ZempStart : FileFragment::ContentPart));
        for (size_t k = 0; k < parsed.back().count(); ++k) {
            parsed.back().at(k)->setFilename(files[i]);
            parts[index++] = parsed.back().at(k);
        }
    }
    ZempCreator creator(parts);
    FUZZ_REQUIRE(creator.createZemp(directory.file("before")));
    for (fuzz::Script script(data, size); !script.isOver();)
        play(script, files);
    const bool isCompiled = creator.createZemp(directory.file("after"));
    FUZZ_REQUIRE(isCompiled == fs::exists(directory.file("after")));
    FUZZ_REQUIRE(!fs::exists(directory.file("after.part")) && !fs::exists(directory.file("body")));
    FUZZ_REQUIRE(!isCompiled || TemporaryDirectory::read(directory.file("after")) ==
                                    TemporaryDirectory::read(directory.file("before")));
    return 0;
}
