// Which folder may include which, no include cycles, and no file that has grown out of hand.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr size_t MaximumSourceLines = 450;
constexpr size_t MaximumHeaderLines = 230;

// An entry of what a folder may include is a folder or one header. Every folder may include itself; "vex" is
// the platform's public headers.
struct Rule {
    const char* folder;
    std::vector<std::string> mayInclude;
};

const std::string Fragment = "update/FileFragment.h";
const std::string Gate = "seal/Gate.h"; // no other header of that folder
const std::string Settings = "main/ArgParser.h";

const Rule Rules[] = {
    {"src/common", {"vex"}},
    {"src/image", {"vex", "common", Gate, Fragment}},
    {"src/seal", {"common"}},
    {"src/workitems", {"vex", "common", "image", Gate, Fragment}},
    {"src/installed", {"vex", "common", "image"}},
    {"src/workers", {"vex", "common", "image", "workitems", Gate, Fragment, Settings}},
    {"src/update", {"vex", "common", "image", "workitems", "installed", "workers", "state", Gate, Settings}},
    {"src/state", {}},
    {"src/status", {"common", "image", "workitems", "installed", "workers", "update"}},
    {"src/main",
     {"vex", "common", "image", "workitems", "installed", "workers", "update", "status", "state", "seal"}},
    {"platform", {"vex"}},
    // Plans updates with the daemon's own decisions.
    {"tools/plan",
     {"common", "image", "installed", "workitems", "update", Settings, "imagefile", "hostconfig"}},
    {"tools/fwcheck",
     {"vex", "common", "image", "installed", "seal", "workers/ConfigNames.h", Fragment, Settings, "imagefile",
      "plan", "fwctl"}},
    {"tools/fwctl", {"vex", "cli", "workers/ConfigNames.h"}},
    {"tools/vexctl", {"vex", "cli", "workers/ConfigNames.h"}},
    {"tools", {"vex", "common", "image", "installed", "seal", Fragment}},
    {"lab", {"vex", "cli", "fwctl/DaemonStatus.h", "hostconfig", "imagefile", "plan"}},
};

const fs::path Root = FW_SOURCE_DIR;

struct Source {
    std::string name; // from the root of the tree
    size_t lines = 0;
    std::vector<std::string> includes; // as written between quotes
};

Source read(const fs::path& path) {
    Source source;
    source.name = fs::relative(path, Root);
    std::ifstream file(path);
    std::string line;
    const std::string mark = "#include \"";
    while (std::getline(file, line)) {
        ++source.lines;
        if (line.rfind(mark, 0) == 0)
            source.includes.push_back(line.substr(mark.size(), line.find('"', mark.size()) - mark.size()));
    }
    return source;
}

const std::vector<Source>& sources() {
    static const std::vector<Source> all = [] {
        std::vector<Source> found;
        for (const char* const top : {"src", "platform", "tools", "lab"})
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(Root / top))
                if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h")
                    found.push_back(read(entry.path()));
        return found;
    }();
    return all;
}

bool isIn(const std::string& folder, const std::string& file) {
    return file.rfind(folder + "/", 0) == 0;
}

const Rule* ruleFor(const Source& source) {
    return std::find_if(std::begin(Rules), std::end(Rules),
                        [&](const Rule& rule) { return isIn(rule.folder, source.name); });
}

// The file that an include line names, from the root of the tree; empty when there is none.
std::string resolve(const Source& from, const std::string& include) {
    for (const fs::path& place : {fs::path(from.name).parent_path(), fs::path("src"),
                                  fs::path("platform/include"), fs::path("tools"), fs::path()})
        if (fs::is_regular_file(Root / place / include))
            return (place / include).lexically_normal();
    return "";
}

bool isAllowed(const Rule& rule, const std::string& include, const std::string& file) {
    return isIn(rule.folder, file) ||
           std::any_of(rule.mayInclude.begin(), rule.mayInclude.end(), [&](const std::string& allowed) {
               return include == allowed || isIn(allowed, include);
           });
}

TEST(FolderRules, FoldersIncludeOnlyWhatTheyMay) {
    ASSERT_GT(sources().size(), 50U);
    for (const Source& source : sources()) {
        const Rule* const rule = ruleFor(source);
        ASSERT_NE(rule, std::end(Rules)) << source.name << " has no rule";
        for (const std::string& include : source.includes) {
            const std::string file = resolve(source, include);
            EXPECT_NE(file, "") << source.name << " includes \"" << include << "\", which is not there";
            EXPECT_TRUE(isAllowed(*rule, include, file))
                << source.name << " includes \"" << include << "\"; " << rule->folder << " must not";
        }
    }
}

// Takes away, again and again, the files that include nothing that is left.
TEST(FolderRules, NoFileIncludesItselfOverOthers) {
    std::map<std::string, std::set<std::string>> left;
    for (const Source& source : sources())
        for (const std::string& include : source.includes)
            left[source.name].insert(resolve(source, include));
    const auto isFree = [&](const auto& entry) {
        return std::none_of(entry.second.begin(), entry.second.end(),
                            [&](const std::string& file) { return left.count(file) != 0; });
    };
    auto next = left.begin();
    while ((next = std::find_if(left.begin(), left.end(), isFree)) != left.end())
        left.erase(next);
    std::string cycles;
    for (const auto& [file, includes] : left)
        cycles += file + "\n";
    EXPECT_EQ(cycles, "") << "these include each other, or files that do";
}

TEST(FolderRules, NoFileIsTooLong) {
    for (const Source& source : sources()) {
        const bool isHeader = fs::path(source.name).extension() == ".h";
        EXPECT_LE(source.lines, isHeader ? MaximumHeaderLines : MaximumSourceLines)
            << source.name << " wants to be two files";
    }
}

} // namespace
