// Seals and keys: what is read of them, and all that has to be refused.
#include "seal/Seal.h"
#include "common/Scratch.h"
#include "seal/KeyRing.h"
#include "support/SealSigner.h"
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using seal::Fault;
using support::SealSigner;
using testing::HasSubstr;

seal::Extent extent(uint32_t length) {
    return {length, seal::sha256(&length, sizeof length)};
}

seal::SealLines sampleLines() {
    return {"1.05-7",
            extent(672),
            extent(328),
            {{328, "kernel", "1.05-7", extent(64), extent(5)}, {400, "root", "-", extent(64), extent(208)}}};
}

const SealSigner Signer;

struct SealTest : testing::Test {
    Fault open(const std::string& text, const std::vector<seal::PublicKey>& keys = {Signer.key()}) {
        const seal::Verdict verdict = seal::open(text, keys, opened);
        reason = verdict.reason;
        EXPECT_EQ(reason.empty(), verdict.fault == Fault::None);
        return verdict.fault;
    }
    std::string signedText(const std::string& text) { return Signer.sign(text, "fw 1.05-7 serial 42"); }

    const std::string lines = toText(sampleLines());
    const std::string content = signedText(lines);
    seal::Seal opened;
    std::string reason;
};

TEST_F(SealTest, DigestsAreSha256) {
    EXPECT_EQ(seal::toHex(seal::sha256("abc", 3)),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    seal::Sha256 sum;
    sum.update("a", 1);
    sum.update("bc", 2);
    EXPECT_EQ(sum.finish(), seal::sha256("abc", 3));
}

TEST_F(SealTest, OpensWhatWasSigned) {
    ASSERT_EQ(open(content, {SealSigner(9).key(), Signer.key()}), Fault::None) << reason;
    EXPECT_EQ(toText(opened.lines), lines);
    EXPECT_EQ(opened.serial, 42U);
    EXPECT_EQ(seal::toText(opened.key), "807060504030201");
    EXPECT_EQ(open(Signer.sign(lines, "timestamp:1 file:release.lines")), Fault::None) << reason;
    EXPECT_FALSE(opened.serial);
}

TEST_F(SealTest, RefusesEveryFlippedBitAndEveryCut) {
    // The untrusted comment is signed by nobody: its text may be anything without a line end.
    const size_t comment = content.find("untrusted comment: ") + strlen("untrusted comment: ");
    const size_t commentEnd = content.find('\n', comment);
    for (size_t i = 0; i < content.size(); ++i)
        for (int bit = 0; bit < 8; ++bit) {
            std::string bad = content;
            bad[i] = static_cast<char>(bad[i] ^ 1 << bit);
            const bool isFree = i >= comment && i < commentEnd && bad[i] != '\n';
            EXPECT_EQ(open(bad) == Fault::None, isFree) << "bit " << bit << " of byte " << i;
        }
    for (size_t size = 0; size < content.size(); ++size)
        EXPECT_NE(open(content.substr(0, size)), Fault::None) << size;
}

// Signed all the same, so that the form alone is judged.
TEST_F(SealTest, RefusesLinesInAnyOtherForm) {
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string changed = lines;
        return changed.replace(changed.find(from), from.size(), to);
    };
    const std::string part =
        lines.substr(lines.find("part 328"), lines.find("part 400") - lines.find("part 328"));
    const std::string rows[] = {
        "",
        with("fw-seal 1", "fw-seal 2"),
        with("release", "Release"),
        with("1.05-7\n", "1.05-7\r\n"),
        with("1.05-7\n", "1.05-7 \n"),
        with("image 672", "image 0672"),
        with("image 672", "image +672"),
        with("image 672", "image 4294967968"),
        with("image 672", "image 671"),
        with("image 672", "image 673"),
        with("start 328", "start 332"),
        with("part 328", "part 327"),
        with("part 400", "part 404"),
        with(" kernel", " kernel-of-17-chars"),
        with(" kernel", " ker\x01nel"),
        with(" kernel", "  kernel"),
        with(part, ""),
        with(part, part + part),
        with(part, "\n" + part),
        part + with(part, ""),
        lines + "\n",
        lines + "part\n",
        lines.substr(0, lines.find("part")),
    };
    for (const std::string& row : rows)
        EXPECT_EQ(open(signedText(row)), Fault::WrongForm) << row;
    std::string upper = lines;
    const size_t digit = upper.find_first_of("abcdef", upper.find("image 672 ") + 10);
    upper[digit] = static_cast<char>(toupper(upper[digit]));
    EXPECT_EQ(open(signedText(upper)), Fault::WrongForm);
    EXPECT_EQ(open(signedText(lines + std::string(seal::MaximumSealBytes, '\n'))), Fault::TooLong);
}

TEST_F(SealTest, RefusesOtherKeysSignaturesAndComments) {
    EXPECT_EQ(open(content, {}), Fault::UnknownKey);
    EXPECT_EQ(open(content, {SealSigner(9).key()}), Fault::UnknownKey);
    EXPECT_THAT(reason, HasSubstr("807060504030201"));
    seal::PublicKey forged = SealSigner(9).key();
    forged.id = Signer.key().id;
    EXPECT_EQ(open(content, {forged}), Fault::BadSignature);
    EXPECT_EQ(open(content, {forged, Signer.key()}), Fault::None) << "two keys may have one id";
    // A comment from another seal of the same key.
    const std::string other = Signer.sign(lines + "x", "fw 1.05-7 serial 43");
    EXPECT_EQ(open(content.substr(0, content.find("trusted comment: fw")) +
                   other.substr(other.find("trusted comment: fw"))),
              Fault::BadSignature);
    for (const char* const comment :
         {"fw", "fw 1.05-8", "fw 1.05-8 serial 42", "fw 1.05-7 serial", "fw 1.05-7 serial x",
          "fw 1.05-7 serial -1", "fw 1.05-7 serial 042", "fw 1.05-7 serials 42", "fw 1.05-7 serial 42 ",
          "fw 1.05-7 serial 99999999999999999999"})
        EXPECT_EQ(open(Signer.sign(lines, comment)), Fault::WrongForm) << comment;
}

TEST_F(SealTest, IsServedBesideTheImage) {
    EXPECT_EQ(seal::sealUrl("http://h/i.zemp"), "http://h/i.zemp.seal");
    EXPECT_EQ(seal::sealUrl("http://h/i.zemp?a=b?c#d"), "http://h/i.zemp.seal?a=b?c#d");
    EXPECT_EQ(seal::sealUrl("http://h/i.zemp#d"), "http://h/i.zemp.seal#d");
}

struct KeyRingTest : testing::Test {
    seal::KeyRing::State load() {
        ring = seal::loadKeys(scratch.path());
        EXPECT_EQ(ring.problem.empty(), ring.state != seal::KeyRing::Closed);
        return ring.state;
    }
    const ScratchDir scratch;
    seal::KeyRing ring;
};

TEST_F(KeyRingTest, IsOffWithoutKeysAndOnWithOnes) {
    EXPECT_EQ(seal::loadKeys(scratch.file("none")).state, seal::KeyRing::Off);
    scratch.write(".keep", "");
    EXPECT_EQ(load(), seal::KeyRing::Off);
    scratch.write("a.pub", Signer.keyFile());
    scratch.write("b.pub", SealSigner(2).keyFile());
    EXPECT_EQ(load(), seal::KeyRing::On);
    EXPECT_EQ(ring.keys.size(), 2U);
}

TEST_F(KeyRingTest, IsClosedByAnythingElse) {
    scratch.write("a.pub", Signer.keyFile());
    const std::string key = Signer.keyFile();
    const std::pair<const char*, std::string> rows[] = {
        {"b.pub", ""},
        {"b.pub", key.substr(0, key.size() - 1)},
        {"b.pub", key.substr(0, key.size() - 2) + "\n"},
        {"b.pub", key + "\n"},
        {"b.pub", key.substr(key.find('\n') + 1)},
        {"b.pub", key + std::string(2000, ' ')},
        {"b.key", key},
    };
    for (const auto& [name, content] : rows) {
        scratch.write(name, content);
        EXPECT_EQ(load(), seal::KeyRing::Closed) << content;
        EXPECT_THAT(ring.problem, HasSubstr(scratch.file(name)));
        std::filesystem::remove(scratch.file(name));
    }
    ASSERT_EQ(mkfifo(scratch.file("b.pub").c_str(), 0600), 0);
    EXPECT_EQ(load(), seal::KeyRing::Closed) << "a pipe, which nobody writes to";
    EXPECT_EQ(seal::loadKeys(scratch.file("a.pub")).state, seal::KeyRing::Closed) << "no directory";
}

} // namespace
