#include "common/fileutil.h"
#include "common/envfile.h"

#include "common/Scratch.h"
#include "common/SlogCapture.h"
#include "support/Faults.h"
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Text = std::unique_ptr<char, decltype(&free)>;

std::string payload(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
    return bytes;
}

TEST(Fileutil, WritesAndReadsWholeFiles) {
    const ScratchDir scratch;
    const std::string path = scratch.file("f");
    const std::string bytes = payload(3000);
    EXPECT_EQ(fnwrite(path.c_str(), bytes.data(), bytes.size()), 3000);
    std::string back(4000, '\0');
    EXPECT_EQ(fnread(path.c_str(), back.data(), back.size()), 3000);
    EXPECT_EQ(back.substr(0, 3000), bytes);
    EXPECT_EQ(fnread(path.c_str(), back.data(), 10), 10);

    EXPECT_EQ(fnprintf(path.c_str(), "%s=%d\n", "n", 12), 5);
    EXPECT_EQ(ScratchDir::read(path), "n=12\n");
    char name = 0;
    int number = 0;
    EXPECT_EQ(fnscanf(path.c_str(), "%c=%d", &name, &number), 2);
    EXPECT_EQ(name, 'n');
    EXPECT_EQ(number, 12);
}

TEST(Fileutil, MinusOneWhenOpeningOrClosingFails) {
    const ScratchDir scratch;
    const std::string missing = scratch.file("no/such");
    char byte = 0;
    EXPECT_EQ(fnwrite(missing.c_str(), "x", 1), -1);
    EXPECT_EQ(fnread(missing.c_str(), &byte, 1), -1);
    EXPECT_EQ(fnprintf(missing.c_str(), "x"), -1);
    EXPECT_EQ(fnscanf(missing.c_str(), "%c", &byte), -1);

    {
        const support::FullDisk disk;
        const std::string file = scratch.file("f");
        EXPECT_EQ(fnwrite(file.c_str(), "x", 1), -1);
        EXPECT_EQ(fnprintf(file.c_str(), "x"), -1);
    }
    EXPECT_EQ(takeSlog(), "");
}

TEST(Fileutil, ExistenceAndSize) {
    const ScratchDir scratch;
    const std::string file = scratch.write("f", "12345");
    EXPECT_EQ(fnexists(file.c_str()), 1);
    EXPECT_EQ(fnsize(file.c_str()), 5);
    const std::string dangling = scratch.file("dangling");
    ASSERT_EQ(symlink(scratch.file("gone").c_str(), dangling.c_str()), 0);
    EXPECT_EQ(fnexists(dangling.c_str()), 0);
    EXPECT_EQ(fnsize(dangling.c_str()), -1);

    ASSERT_EQ(truncate(file.c_str(), 0x7fffffff), 0);
    EXPECT_EQ(fnsize(file.c_str()), 0x7fffffff);
    ASSERT_EQ(truncate(file.c_str(), 0x80000000), 0);
    EXPECT_EQ(fnsize(file.c_str()), -1);
}

TEST(Slurp, KeepsEveryByteAndEndsInAZero) {
    const ScratchDir scratch;
    for (const size_t size : {0U, 1U, 4095U, 4096U, 4097U, 8192U, 20000U}) {
        const std::string bytes = payload(size);
        size_t length = 99;
        const Text text(fnslurp(scratch.write("f", bytes).c_str(), &length), &free);
        ASSERT_TRUE(text);
        EXPECT_EQ(std::string(text.get(), length), bytes) << size;
        EXPECT_EQ(text.get()[length], '\0');
    }
    const Text withoutLength(fnslurp(scratch.write("f", "abc").c_str(), nullptr), &free);
    EXPECT_STREQ(withoutLength.get(), "abc");
}

TEST(Slurp, EndsWhereOpeningOrReadingFails) {
    const ScratchDir scratch;
    size_t length = 99;
    const Text text(fnslurp(scratch.path().c_str(), &length), &free); // a directory opens but cannot be read
    EXPECT_STREQ(text.get(), "");
    EXPECT_EQ(length, 0U);
    length = 99;
    EXPECT_EQ(fnslurp("/no/such", &length), nullptr);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(takeSlog(), "<3> fnslurp: No such file or directory: /no/such\n");
}

TEST(Slurp, GoesOnAfterAnInterruption) {
    const support::Interruptions interruptions;
    size_t length = 0;
    const Text text(pslurp("echo a; sleep 0.2; echo b", &length), &free);
    EXPECT_STREQ(text.get(), "a\nb\n");
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
}

// The rules of the format stand in the fuzz target "envfile".
TEST(EnvSource, ChangesTheEnvironment) {
    const ScratchDir scratch;
    EXPECT_EQ(env_source(scratch.write("env", "export FWTEST=1\nexport FWTEST='2 3'\n").c_str()), 0);
    EXPECT_STREQ(getenv("FWTEST"), "2 3");
    EXPECT_EQ(env_source("/no/such"), 0);
}

} // namespace
