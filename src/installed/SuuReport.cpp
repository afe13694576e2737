#include "installed/SuuReport.h"

#include "common/printable.h"
#include "image/ZempPart.h"
#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

using Print = std::function<void(const std::string& line)>;

template <typename... Values>
std::string format(const char* pattern, Values... values) {
    char line[160]; // the widest row has 110 characters
    snprintf(line, sizeof line, pattern, values...);
    return line;
}

template <size_t Width>
std::string printable(const char (&field)[Width]) {
    return ::printable(ZempFormat::text(field));
}

unsigned usedSets(const suu_data_t& data) {
    return std::min<unsigned>(data.setCount, suu_data_t::SetCount);
}

// Calls `row` with the index of every partition record in use.
void forEachPartition(const suu_data_t& data, const std::function<void(unsigned)>& row) {
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i)
        if (data.partitions[i].name[0] != '\0')
            row(i);
}

void printSets(const suu_data_t& data, const Print& print) {
    print("Sets: (p1/2)");
    print("     name:            bootable:  rhdr:      refs:");
    for (unsigned i = 0; i < usedSets(data); ++i) {
        const suu_set_t& set = data.sets[i];
        const std::string row =
            format("     %-17s%-11s%-11u%u", printable(set.name).c_str(), set.bootable != 0 ? "yes" : "no",
                   unsigned{set.releaseHeader}, unsigned{set.references});
        print(data.activeSet == i ? row + "   ACTIVE SET" : row);
    }
    print("Sets: (p2/2)");
    print("     name:            release date:        release id:");
    for (unsigned i = 0; i < usedSets(data); ++i) {
        const suu_set_t& set = data.sets[i];
        std::string date = "-";
        std::string id = "-";
        if (set.releaseHeader < suu_data_t::SetCount) {
            const zemp_content_release_header_t& release = data.releases[set.releaseHeader];
            date = getSuuTimeText(release.time);
            id = printable(release.name);
        }
        print(format("     %-17s%-21s%s", printable(set.name).c_str(), date.c_str(), id.c_str()));
    }
}

void printPartitions(const suu_data_t& data, const Print& print) {
    print("Partitions: (p1/2)");
    print("     pn: poolname:        offset:     size:        ver:       fstype:   mountpnt:");
    forEachPartition(data, [&](unsigned i) {
        const suu_partition_t& partition = data.partitions[i];
        const zemp_content_software_blob_t& software = data.contents[i].software;
        const std::string version =
            ZempPart::getVersionString(software.major, software.minor, software.build);
        print(format("     %-4u%-17s  0x%08x  0x%08x %-10s %-9s %s", unsigned{partition.number},
                     printable(partition.name).c_str(), uint32_t{partition.offset}, uint32_t{partition.size},
                     version.c_str(), printable(partition.fsType).c_str(),
                     printable(partition.mountPoint).c_str()));
    });
    print("Partitions: (p2/2)");
    print("     poolname:        content name:     length:     crc32:");
    forEachPartition(data, [&](unsigned i) {
        const zemp_content_header_t& content = data.contents[i].header;
        print(format("     %-17s%-18s%-12u0x%08x", printable(data.partitions[i].name).c_str(),
                     printable(content.name).c_str(), uint32_t{content.body_length},
                     uint32_t{content.body_crc}));
    });
}

void printPools(const suul_ctx_t& ctx, const Print& print) {
    print("Pools:");
    print("     pool:            cnt:   type:");
    for (const suul_pool_t& pool : ctx.pools)
        if (pool.name[0] != '\0')
            print(format("     %-17s%-7u%s", printable(pool.name).c_str(), unsigned{pool.count},
                         pool.count == 1 ? "singleton" : "multi"));
}

const char* getUpgradeWord(int state) {
    switch (state) {
    case 2:
        return "TEST";
    case 1:
        return "BOOT";
    case 0:
        return "VALID";
    default:
        return "INVALID";
    }
}

} // namespace

void writeSuuReport(const suul_ctx_t& ctx, const Print& print) {
    print("               ---------- ---------- < SuuInfo > ---------- ----------");
    printSets(ctx.data, print);
    printPartitions(ctx.data, print);
    printPools(ctx, print);
    print(std::string("SUU Data Upgrade set ") + getUpgradeWord(get_upgrade_state()));
    print("               ---------- ---------- <  ----  > ---------- ----------");
}

std::string getSuuTimeText(int64_t seconds) {
    const auto time = static_cast<time_t>(seconds);
    struct tm fields = {};
    if (time != seconds || gmtime_r(&time, &fields) == nullptr)
        return "INVALID TIME       ";
    return format("%d.%02d.%02d %02d:%02d:%02d", fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday,
                  fields.tm_hour, fields.tm_min, fields.tm_sec);
}
