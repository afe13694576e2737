// Which room may include which, no include cycles, and no file that has grown out of hand.
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

// A room is a folder; an entry of what it may include is a room's folder or one header. Every room may
// include itself; "vex" is the platform's public headers.
struct Room {
    const char* folder;
    std::vector<std::string> mayInclude;
};

const std::string Fragment = "update/FileFragment.h";
const std::string Settings = "main/ArgParser.h";

const Room Rooms[] = {
    {"src/common", {"vex"}},
    {"src/image", {"vex", "common", Fragment}},
    {"src/workitems", {"vex", "common", "image", Fragment}},
    {"src/installed", {"vex", "common", "image"}},
    {"src/workers", {"vex", "common", "image", "workitems", Fragment, Settings}},
    {"src/update", {"vex", "common", "image", "workitems", "installed", "workers", "state", Settings}},
    {"src/state", {}},
    {"src/main", {"vex", "common", "image", "workitems", "installed", "workers", "update", "state"}},
    {"platform", {"vex"}},
    // Plans updates with the daemon's own decisions.
    {"tools/plan",
     {"common", "image", "installed", "workitems", "update", Settings, "imagefile", "hostconfig"}},
    {"tools", {"vex", "common", "image", "installed", Fragment}},
    {"lab", {"vex", "cli", "hostconfig", "imagefile", "updateplan"}},
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

bool beginsWith(const std::string& text, const std::string& prefix) {
    return text.rfind(prefix, 0) == 0;
}

const Room* roomOf(const Source& source) {
    for (const Room& room : Rooms)
        if (beginsWith(source.name, std::string(room.folder) + "/"))
            return &room;
    return nullptr;
}

// The file that an include line names, from the root of the tree; empty when there is none.
std::string resolve(const Source& from, const std::string& include) {
    const fs::path places[] = {fs::path(from.name).parent_path() / include, "src/" + include,
                               "platform/include/" + include, "tools/" + include, include};
    for (const fs::path& place : places)
        if (fs::is_regular_file(Root / place))
            return place.lexically_normal();
    return "";
}

bool isAllowed(const Room& room, const std::string& include, const std::string& file) {
    if (beginsWith(file, std::string(room.folder) + "/"))
        return true;
    return std::any_of(room.mayInclude.begin(), room.mayInclude.end(), [&](const std::string& allowed) {
        return include == allowed || beginsWith(include, allowed + "/");
    });
}

TEST(FolderRules, RoomsIncludeOnlyWhatTheyMay) {
    ASSERT_GT(sources().size(), 50U);
    for (const Source& source : sources()) {
        const Room* const room = roomOf(source);
        ASSERT_NE(room, nullptr) << source.name << " is in no room";
        for (const std::string& include : source.includes) {
            const std::string file = resolve(source, include);
            EXPECT_NE(file, "") << source.name << " includes \"" << include << "\", which is not there";
            EXPECT_TRUE(isAllowed(*room, include, file))
                << source.name << " includes \"" << include << "\"; " << room->folder << " must not";
        }
    }
}

// Depth first; `path` is the chain of files on the way.
void findCycle(const std::map<std::string, std::vector<std::string>>& graph, const std::string& file,
               std::vector<std::string>& path, std::set<std::string>& done) {
    const auto again = std::find(path.begin(), path.end(), file);
    if (again != path.end()) {
        std::string chain;
        for (auto step = again; step != path.end(); ++step)
            chain += *step + " -> ";
        ADD_FAILURE() << "include cycle: " << chain << file;
        return;
    }
    if (done.count(file) != 0 || graph.count(file) == 0)
        return;
    path.push_back(file);
    for (const std::string& next : graph.at(file))
        findCycle(graph, next, path, done);
    path.pop_back();
    done.insert(file);
}

TEST(FolderRules, NoFileIncludesItselfOverOthers) {
    std::map<std::string, std::vector<std::string>> graph;
    for (const Source& source : sources())
        for (const std::string& include : source.includes)
            graph[source.name].push_back(resolve(source, include));
    std::set<std::string> done;
    for (const auto& [file, ignored] : graph) {
        std::vector<std::string> path;
        findCycle(graph, file, path, done);
    }
}

TEST(FolderRules, NoFileIsTooLong) {
    for (const Source& source : sources()) {
        const bool isHeader = fs::path(source.name).extension() == ".h";
        EXPECT_LE(source.lines, isHeader ? MaximumHeaderLines : MaximumSourceLines)
            << source.name << " wants to be two files";
    }
}

} // namespace
