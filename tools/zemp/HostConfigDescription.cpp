#include "zemp/HostConfigDescription.h"

#include "zemp/DescriptionTable.h"
#include <limits>

namespace zemp {

namespace {

constexpr int64_t MaximumU8 = std::numeric_limits<uint8_t>::max();
constexpr int64_t MaximumU32 = std::numeric_limits<uint32_t>::max();

hostcfg::Version readVersion(DescriptionTable& table) {
    const imagefile::Version version = table.version("version");
    return {version.major, version.minor, version.build};
}

hostcfg::Release readRelease(DescriptionTable table) {
    hostcfg::Release release;
    release.name = table.text("name", sizeof zemp_content_release_header_t::name);
    release.version = readVersion(table);
    release.time = table.time("time");
    table.rejectOtherKeys();
    return release;
}

// Index of the element with this name, or -1.
template <typename Named>
int indexOf(const std::vector<Named>& elements, const std::string& name) {
    for (size_t i = 0; i < elements.size(); ++i)
        if (elements[i].name == name)
            return static_cast<int>(i);
    return -1;
}

hostcfg::Set readSet(DescriptionTable table, const std::vector<hostcfg::Release>& releases) {
    hostcfg::Set set;
    set.name = table.text("name", sizeof suu_set_t::name);
    set.bootable = table.flag("bootable", true);
    set.references = static_cast<uint8_t>(table.number("references", 0, MaximumU8, 0));
    if (table.has("release")) {
        const std::string name = table.text("release", sizeof zemp_content_release_header_t::name);
        const int index = indexOf(releases, name);
        if (index < 0)
            table.fail("release", "there is no release '" + name + "'");
        set.releaseHeader = static_cast<uint8_t>(index);
    }
    table.rejectOtherKeys();
    return set;
}

hostcfg::Partition readPartition(DescriptionTable table) {
    hostcfg::Partition partition;
    partition.pool = table.text("pool", sizeof suu_partition_t::name);
    if (partition.pool.empty())
        table.fail("pool", "'pool' must not be empty");
    partition.version = readVersion(table);
    partition.number = static_cast<uint8_t>(table.number("number", 0, MaximumU8, 0));
    partition.offset = static_cast<uint32_t>(table.number("offset", 0, MaximumU32, 0));
    partition.size = static_cast<uint32_t>(table.number("size", 0, MaximumU32, 0));
    partition.mountPoint = table.text("mountpoint", sizeof suu_partition_t::mountPoint, "");
    partition.fsType = table.text("filesystem", sizeof suu_partition_t::fsType, "");
    partition.contentName = table.text("content", sizeof zemp_content_header_t::name, partition.pool);
    partition.buildId = table.text("build-id", sizeof zemp_content_software_blob_t::build_id, "");
    partition.length = static_cast<uint32_t>(table.number("length", 0, MaximumU32, 0));
    partition.crc = static_cast<uint32_t>(table.number("crc", 0, MaximumU32, 0));
    table.rejectOtherKeys();
    return partition;
}

void limit(DescriptionTable& root, const std::string& key, size_t count, size_t maximum) {
    if (count > maximum)
        root.fail(key, "there are " + std::to_string(count) + " of '" + key + "'; at most " +
                           std::to_string(maximum) + " fit");
}

} // namespace

hostcfg::Description readHostConfigDescription(const std::string& file) {
    const Description document(file);
    DescriptionTable root = document.root();
    hostcfg::Description description;
    for (const DescriptionTable& release : root.tables("release", "release"))
        description.releases.push_back(readRelease(release));
    for (const DescriptionTable& set : root.tables("set", "set"))
        description.sets.push_back(readSet(set, description.releases));
    for (const DescriptionTable& partition : root.tables("partition", "partition"))
        description.partitions.push_back(readPartition(partition));
    limit(root, "release", description.releases.size(), suu_data_t::SetCount);
    limit(root, "set", description.sets.size(), suu_data_t::SetCount);
    limit(root, "partition", description.partitions.size(), suu_data_t::PartitionCount);
    if (root.has("active-set")) {
        const std::string name = root.text("active-set", sizeof suu_set_t::name);
        description.activeSet = indexOf(description.sets, name);
        if (description.activeSet < 0)
            root.fail("active-set", "there is no set '" + name + "'");
    }
    root.rejectOtherKeys();
    return description;
}

} // namespace zemp
