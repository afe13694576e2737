// Runs the image tool in the test's process, in a directory of the test's own.
#ifndef TESTS_TOOLS_ZEMPRUN_H
#define TESTS_TOOLS_ZEMPRUN_H

#include "common/Scratch.h"
#include "zemp/Cli.h"
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <vector>

struct ZempRun : testing::Test {
    // Runs the tool. Arguments that begin with "@" are files in the directory; the directory's path is cut
    // out of what the tool prints.
    int zemp(std::vector<std::string> arguments) {
        for (std::string& argument : arguments)
            if (argument[0] == '@')
                argument = scratch.file(argument.substr(1));
        arguments.insert(arguments.begin(), "zemp");
        std::vector<const char*> argv;
        argv.reserve(arguments.size());
        for (const std::string& argument : arguments)
            argv.push_back(argument.c_str());
        std::ostringstream outStream;
        std::ostringstream errStream;
        const int status = zemp::run(static_cast<int>(argv.size()), argv.data(), outStream, errStream);
        out = withoutDirectory(outStream.str());
        err = withoutDirectory(errStream.str());
        return status;
    }

    // The tool has to refuse these arguments with one line of its own, and print nothing else.
    void refuses(const std::vector<std::string>& arguments, const std::string& message) {
        EXPECT_EQ(zemp(arguments), 1) << message;
        EXPECT_EQ(err, "zemp: " + message + "\n");
        EXPECT_EQ(out, "");
    }

    std::string withoutDirectory(std::string text) const {
        const std::string prefix = scratch.path() + "/";
        for (size_t at = 0; (at = text.find(prefix, at)) != std::string::npos;)
            text.erase(at, prefix.size());
        return text;
    }

    // Names of the files in the directory, hidden ones too.
    std::string files() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(scratch.path()))
            names.insert(entry.path().filename().string());
        std::string text;
        for (const std::string& name : names)
            text += (text.empty() ? "" : " ") + name;
        return text;
    }

    ScratchDir scratch;
    std::string out;
    std::string err;
};

#endif
