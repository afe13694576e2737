// Updates of a terminal that trusts its maker's key only, over a server, a network and a disk that anybody
// may have been at: nothing but what was sealed is flagged, and when the attack is over the update completes.
#include "support/LogCapture.h"
#include "update/rig/SealedTerminal.h"
#include <filesystem>
#include <gmock/gmock.h>

using namespace rig;
using support::SealSigner;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
namespace fs = std::filesystem;

namespace {

constexpr unsigned Hour = 3600;
const std::string Version = "1.05-7";
const std::string Comment = "fw 1.05-7 serial 42";

// A terminal with a key, and a sealed release that it is to get.
struct Sealed : SealedTerminal {
    Sealed() {
        prepare(*this, 7);
        content = seal(Version, Comment);
    }

    // As it was before the attack.
    void endAttack() {
        server.fault = Fault::None;
        server.alter = nullptr;
        between = nullptr;
        keepSerial("41\n");
        publish(Version, makeImage(7));
        makeHonest();
        serveSeal(Version, content);
    }

    void serve(const imagefile::ImageBuilder& image) { server.images[urlOf(Version)] = image.build(); }

    // Serves one part, which has the same length, of another image.
    void splice(size_t index, const imagefile::ImageBuilder& image) {
        const imagefile::Bytes part = image.buildPart(index);
        std::copy(part.begin(), part.end(),
                  server.images[urlOf(Version)].begin() + static_cast<long>(image.offsetOf(index)));
    }

    // The maker publishes another image of the same version.
    void rebuild() {
        publish(Version, makeImage(7, standardPools(), "Rebuilt, with more to read than before\n"));
        content = seal(Version, Comment);
    }

    // Runs `event` behind the master's turn that changes the next action from `previous` to `next`.
    void onChange(FwAction::NextAction previous, FwAction::NextAction next,
                  const std::function<void()>& event) {
        bool isDone = false;
        for (unsigned i = 0; i < Hour && !isDone; ++i) {
            stepsBefore = 2;
            between = [&] {
                isDone = action() == next && daemon->mUpdateHandler &&
                         daemon->mUpdateHandler->getPreviousAction() == previous;
                if (isDone)
                    event();
            };
            tick();
        }
    }

    std::string content;
};

// The same release with something forged in it; all checksums are right.
imagefile::ImageBuilder forge(const std::function<void(imagefile::ImageBuilder&)>& change) {
    imagefile::ImageBuilder image = makeImage(7);
    change(image);
    return image;
}

const imagefile::ImageBuilder ForgedKernel =
    forge([](auto& image) { image.at(2).body = forgeBody(image.at(2).body); });

imagefile::ImageBuilder withLongManifest() {
    return forge([](auto& image) {
        imagefile::Bytes& text = image.at(1).body;
        const std::string line = std::string(600, '#') + "\n";
        text.insert(text.begin(), line.begin(), line.end());
    });
}

struct Attack {
    const char* name;
    std::string said; // in the log
    std::function<void(Sealed&)> begin;
    bool isHealed = false; // without an end of the attack
};

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
        lines.push_back(text.substr(begin, end + 1 - begin));
    return lines;
}

std::string join(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line;
    return text;
}

// The seal with one of its lines dropped, doubled, or moved to the next one's place.
std::vector<Attack> attacksOnLines(const std::string& content) {
    std::vector<Attack> attacks;
    const std::vector<std::string> lines = linesOf(content);
    const auto add = [&](const char* name, const std::vector<std::string>& changed) {
        if (changed != lines)
            attacks.push_back({name, "has no good seal", [text = join(changed)](Sealed& terminal) {
                                   terminal.serveSeal(Version, text);
                               }});
    };
    for (size_t i = 0; i < lines.size(); ++i) {
        std::vector<std::string> changed = lines;
        changed.erase(changed.begin() + static_cast<long>(i));
        add("dropped line", changed);
        changed = lines;
        changed.insert(changed.begin() + static_cast<long>(i), lines[i]);
        add("doubled line", changed);
        changed = lines;
        std::swap(changed[i], changed[(i + 1) % lines.size()]);
        add("swapped lines", changed);
    }
    return attacks;
}

const std::string NoSeal = "has no good seal, ";
const std::string NotSealed = "is not what the seal of the release has";

const std::vector<Attack> Attacks = {
    {"no seal", NoSeal + "the server has none",
     [](Sealed& terminal) {
         terminal.server.images.erase(seal::SealGate().sealUrl(Terminal::urlOf(Version)));
     }},
    {"endless seal", NoSeal + "it is longer than 65536 bytes",
     [](Sealed& terminal) { terminal.serveSeal(Version, std::string(100000, 'x')); }},
    {"empty seal", NoSeal + "it does not end in a signature",
     [](Sealed& terminal) { terminal.serveSeal(Version, "\n"); }},
    {"image for seal", NoSeal,
     [](Sealed& terminal) { terminal.serveSeal(Version, std::string(5000, '\0')); }},
    {"another key", NoSeal + "it is signed by the unknown key 807060504030209",
     [](Sealed& terminal) { terminal.seal(Version, Comment, SealSigner(9)); }},
    {"unsigned serial", NoSeal,
     [](Sealed& terminal) {
         std::string text = terminal.content;
         terminal.serveSeal(Version, text.replace(text.find("serial 42"), 9, "serial 43"));
     }},
    {"another release", NoSeal + "it is of release 1.05-8",
     [](Sealed& terminal) {
         terminal.publish("1.05-8", makeImage(8));
         terminal.serveSeal(Version, terminal.seal("1.05-8", "fw 1.05-8 serial 43"));
     }},
    {"older release under the new name", NoSeal + "it is of release 1.05-6",
     [](Sealed& terminal) {
         terminal.publish("1.05-6", makeImage(6));
         terminal.serveSeal(Version, terminal.seal("1.05-6", "fw 1.05-6 serial 41"));
         terminal.serve(makeImage(6));
     }},
    {"older seal replayed", NoSeal + "its serial 42 is lower than 50",
     [](Sealed& terminal) { terminal.keepSerial("50\n"); }},
    {"serial damaged", "is no serial", [](Sealed& terminal) { terminal.keepSerial("4x\n"); }},
    {"truncated key", "is no public key",
     [](Sealed& terminal) { terminal.trust("next.pub", SealSigner(2).keyFile().substr(0, 60)); }},
    {"empty key", "is no public key", [](Sealed& terminal) { terminal.trust("next.pub", ""); }},
    {"key of another name", "is not named as a public key",
     [](Sealed& terminal) { terminal.trust("next.txt", SealSigner(2).keyFile()); }},
    {"keys taken away", "has no keys any more", [](Sealed& terminal) { terminal.distrust(); }},
    {"forged body with the right checksum", NotSealed,
     [](Sealed& terminal) { terminal.splice(2, ForgedKernel); }},
    {"forged body with a header to it", NotSealed,
     [](Sealed& terminal) { terminal.splice(5, forge([](auto& image) { image.at(5).body[9] ^= 1; })); }},
    {"forged header of a part that is not needed", NotSealed,
     [](Sealed& terminal) { terminal.splice(4, forge([](auto& image) { image.at(4).extension[9] ^= 1; })); }},
    {"forged version of a part", NotSealed,
     [](Sealed& terminal) { terminal.splice(2, forge([](auto& image) { image.at(2).extension[2] ^= 1; })); }},
    {"forged manifest", NotSealed,
     [](Sealed& terminal) {
         terminal.serve(forge([](auto& image) {
             imagefile::Bytes& text = image.at(1).body;
             const auto at = std::find(text.begin(), text.end(), 'r'); // root
             *at = 'R';
         }));
     }},
    {"longer manifest", NotSealed, [](Sealed& terminal) { terminal.serve(withLongManifest()); }},
    {"shorter manifest", NotSealed,
     [](Sealed& terminal) {
         terminal.publish(Version, withLongManifest());
         terminal.seal(Version, Comment);
         terminal.serve(makeImage(7));
     }},
    {"forged release text", NotSealed,
     [](Sealed& terminal) { terminal.serve(forge([](auto& image) { image.at(0).body[0] = 'r'; })); }},
    {"forged release time", NotSealed,
     [](Sealed& terminal) { terminal.serve(forge([](auto& image) { image.at(0).extension[4] ^= 1; })); }},
    {"forged main header", NotSealed,
     [](Sealed& terminal) { terminal.serve(forge([](auto& image) { image.header.reserved = 9; })); }},
    {"rebuilt in the same length under an old version", NotSealed,
     [](Sealed& terminal) {
         terminal.splice(5, forge([](auto& image) { image.at(5).body = bodyOf(1201, 99); }));
     }},
    {"part of another sealed release", NotSealed, [](Sealed& terminal) { terminal.splice(2, makeImage(8)); }},
    {"release replaced behind its seal", NotSealed,
     [](Sealed& terminal) {
         terminal.onChange(FwAction::GetZempParts, FwAction::ScanExistingFiles, [&] { terminal.rebuild(); });
     },
     true},
    {"release replaced behind its start", "Failed parse of ZEMP part",
     [](Sealed& terminal) {
         terminal.onChange(FwAction::FindNeededParts, FwAction::GetZempParts, [&] { terminal.rebuild(); });
     },
     true},
    {"parts planted on disk", NotSealed,
     [](Sealed& terminal) {
         terminal.write("ContentPart-KernelBlob-1.05-7", ForgedKernel.buildPart(2));
         terminal.write("ContentPart-abcdef", ForgedKernel.buildPart(2));
     },
     true},
    {"start planted on disk", NotSealed,
     [](Sealed& terminal) {
         const imagefile::Bytes image = makeImage(7, standardPools(), "Another text\n").build();
         terminal.write("ZempStart-1.05-7", {image.begin(), image.begin() + 512});
     },
     true},
    {"part replaced between parse and compile", NotSealed,
     [](Sealed& terminal) {
         terminal.onChange(FwAction::FindNeededParts, FwAction::CompileUpdateZempFile, [&] {
             terminal.write("ContentPart-KernelBlob-1.05-7", ForgedKernel.buildPart(2));
         });
     },
     true},
    {"image replaced between compile and flag", NotSealed,
     [](Sealed& terminal) {
         terminal.onChange(FwAction::CompileUpdateZempFile, FwAction::SetReadyForUpdate,
                           [&] { terminal.write("fw_download_update.zemp-1.05-7", ForgedKernel.build()); });
     }},
    {"seal taken away between compile and flag", NoSeal,
     [](Sealed& terminal) {
         terminal.onChange(FwAction::CompileUpdateZempFile, FwAction::SetReadyForUpdate,
                           [&] { fs::remove(terminal.path("fw_download_update.zemp-1.05-7.seal")); });
     }},
    {"flagged image without a seal", "is ready no more",
     [](Sealed& terminal) {
         terminal.write("fw_download_update.zemp-1.05-7", makeImage(7).build());
         terminal.config.ready = terminal.path("fw_download_update.zemp-1.05-7");
         terminal.server.fault = Fault::Stall;
         terminal.restart();
     }},
    {"flagged image forged while the daemon rested", "is ready no more",
     [](Sealed& terminal) {
         terminal.runUntilSettled(Hour);
         terminal.write("fw_download_update.zemp-1.05-7", ForgedKernel.build());
         terminal.server.fault = Fault::Stall;
         terminal.restart();
     }},
};

void expectRefusedAndHealed(const Attack& attack) {
    SCOPED_TRACE(attack.name);
    Sealed terminal;
    const support::LogCapture log(LogInfo);
    attack.begin(terminal);
    terminal.run(Hour);
    EXPECT_GE(log.count(attack.said), 1U);
    EXPECT_EQ(terminal.isReady(), attack.isHealed);
    terminal.endAttack();
    for (int lives = 0; lives < 2 && !terminal.isReady(); ++lives) {
        if (terminal.isTerminated())
            terminal.restart();
        terminal.runUntilSettled(14 * Hour);
    }
    EXPECT_TRUE(terminal.isReady());
    EXPECT_EQ(terminal.checkReadyImage(), "");
    EXPECT_EQ(terminal.read("fw_download_update.zemp-1.05-7.seal"), terminal.content);
    EXPECT_THAT(terminal.violations(), IsEmpty());
}

} // namespace

TEST(SealedUpdate, HonestReleaseIsFetchedBehindItsSeal) {
    Sealed terminal;
    terminal.runUntilSettled(Hour);
    EXPECT_TRUE(terminal.isReady());
    EXPECT_EQ(terminal.checkReadyImage(), "");
    std::vector<std::string> ranges = expectedRanges(makeImage(7), standardPools());
    ranges.insert(ranges.begin(), "0-65536");
    EXPECT_EQ(terminal.server.ranges(), ranges);
    EXPECT_EQ(terminal.read("fw_download_update.zemp-1.05-7.seal"), terminal.content);
    EXPECT_EQ(terminal.serial(), "42\n");

    terminal.publish("1.05-8", makeImage(8));
    const std::string next = terminal.seal("1.05-8", "fw 1.05-8 serial 43");
    terminal.configure("1.05-8");
    terminal.runUntilSettled(Hour);
    EXPECT_EQ(terminal.checkReadyImage(), "");
    EXPECT_EQ(terminal.read("fw_download_update.zemp-1.05-8.seal"), next);
    EXPECT_EQ(terminal.serial(), "43\n");
    EXPECT_THAT(terminal.files(), Not(Contains(HasSubstr("zemp-1.05-7")))) << "an image's seal goes with it";
    EXPECT_EQ(terminal.server.ranges().size(), 2 * ranges.size());
    EXPECT_THAT(terminal.violations(), IsEmpty());
}

// What the attacks are worth where nothing is signed.
TEST(SealedUpdate, WithoutKeysAForgedBodyIsTaken) {
    Sealed terminal;
    terminal.distrust();
    terminal.splice(2, ForgedKernel);
    terminal.restart();
    terminal.runUntilSettled(Hour);
    EXPECT_TRUE(terminal.isReady());
    EXPECT_NE(terminal.checkReadyImage(), "");
    EXPECT_EQ(terminal.server.ranges(), expectedRanges(makeImage(7), standardPools()));
    EXPECT_THAT(terminal.files(), Not(Contains(HasSubstr("eal"))));
    EXPECT_EQ(terminal.serial(), "");
}

TEST(SealedUpdate, ForcedUpdateMayGoBack) {
    Sealed terminal;
    terminal.keepSerial("50\n");
    terminal.config.forced = true;
    const support::LogCapture log(LogWarning);
    terminal.runUntilSettled(Hour);
    EXPECT_TRUE(terminal.isReady());
    EXPECT_EQ(log.count("is forced, although its serial 42 is lower than 50"), 1U);
    EXPECT_EQ(terminal.serial(), "50\n");
}

TEST(SealedUpdate, AttacksAreRefusedAndTheUpdateCompletesBehindThem) {
    for (const Attack& attack : Attacks)
        expectRefusedAndHealed(attack);
}

TEST(SealedUpdate, SealIsTakenInItsOneFormOnly) {
    const std::string content = Sealed().content;
    for (const Attack& attack : attacksOnLines(content))
        expectRefusedAndHealed(attack);
}
