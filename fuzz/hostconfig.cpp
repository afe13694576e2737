// Fuzz target: the host configuration record, from its file to the answers of the installed-software view.

#include "fuzz/Container.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/PartChecks.h"
#include "fuzz/QuietLog.h"
#include "hostconfig/HostConfigRecord.h"
#include "installed/SuuInfo.h"
#include "installed/loadHostConfig.h"
#include <algorithm>
#include <memory>

using fuzz::View;

namespace {

// A record that passed both checks has every part inside the body, with CRCs that match.
void checkParts(const hostconfig_t& hc, const View& raw) {
    const size_t end = HostconfigMinimumSize + size_t{hc.header->body_length};
    FUZZ_REQUIRE(end <= HostconfigMaximumSize);
    FUZZ_REQUIRE(hc.count > 0 && hc.count <= static_cast<int>(HostconfigMaximumParts));
    size_t expected = HostconfigMinimumSize;
    for (int i = 0; i < hc.count; ++i) {
        const zemp_content_header_t& part = *hc.parts[i];
        const auto at = static_cast<size_t>(reinterpret_cast<const uint8_t*>(&part) - hc.raw);
        FUZZ_REQUIRE(at == expected);
        FUZZ_REQUIRE(part.hdr_length >= ZempFormat::ContentHeaderSize && part.hdr_length <= end - at);
        FUZZ_REQUIRE(part.body_length <= end - at - part.hdr_length);
        FUZZ_REQUIRE(part.hdr_crc == referenceCrc(raw, at + 4, part.hdr_length - 4U));
        FUZZ_REQUIRE(part.body_crc == referenceCrc(raw, at + part.hdr_length, part.body_length));
        expected = at + part.hdr_length + part.body_length + ZempFormat::padding(part.body_length);
    }
}

void checkBody(hostconfig_t& hc, const suul_ctx_t& ctx) {
    const zemp_content_header_t* const part = hostconfig_get_part(&hc, SuuDataPartName);
    FUZZ_REQUIRE(part != nullptr);
    FUZZ_REQUIRE(ZempFormat::text(part->name).rfind(SuuDataPartName, 0) == 0);
    const auto* const body = static_cast<const uint8_t*>(hostconfig_get_body(&hc, SuuDataPartName));
    const auto* const data = reinterpret_cast<const uint8_t*>(&ctx.data);
    for (size_t i = 0; i < sizeof ctx.data; ++i)
        FUZZ_REQUIRE(data[i] == (i < part->body_length ? body[i] : 0));
}

// Every partition in use is in exactly one pool, that of its name.
void checkPools(const suul_ctx_t& ctx) {
    bool isSeen[suu_data_t::PartitionCount] = {};
    FUZZ_REQUIRE(ctx.poolCount <= suu_data_t::PartitionCount);
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        const suul_pool_t& pool = ctx.pools[i];
        FUZZ_REQUIRE((pool.name[0] != '\0') == (i < ctx.poolCount));
        FUZZ_REQUIRE((pool.count > 0) == (i < ctx.poolCount) && pool.count <= suu_data_t::PartitionCount);
        for (unsigned member = 0; member < pool.count; ++member) {
            const uint8_t index = pool.members[member];
            FUZZ_REQUIRE(index < suu_data_t::PartitionCount && !isSeen[index]);
            FUZZ_REQUIRE(member == 0 || index > pool.members[member - 1]);
            FUZZ_REQUIRE(ZempFormat::text(ctx.data.partitions[index].name) == ZempFormat::text(pool.name));
            isSeen[index] = true;
        }
    }
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i)
        FUZZ_REQUIRE(isSeen[i] == (ctx.data.partitions[i].name[0] != '\0'));
}

// What a partition holds is installed.
void checkAnswers(const SuuInfo& info, const suu_data_t& data) {
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        const std::string name = ZempFormat::text(data.partitions[i].name);
        const zemp_content_software_blob_t software = data.contents[i].software;
        const SuumBlob::Element element(2, name, 0, 0, "", "", "-", software.major, software.minor,
                                        software.build, 1, true);
        FUZZ_REQUIRE(info.isDownloadNeeded(&element) == name.empty());
        FUZZ_REQUIRE(name.empty() || software.build > 255 ||
                     info.isCurrentContentPart(name, software.major, software.minor,
                                               static_cast<uint8_t>(software.build)));
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile file;
    static hostconfig_t hc;
    static suul_ctx_t ctx;
    fuzz::quietLog(data, size);
    file.write(data, size);

    options_t options = {};
    file.path().copy(options.primary, sizeof options.primary - 1);
    const bool isLoaded = loadHostConfig(&options, &ctx, &hc) == 1;
    const auto findings = hostcfg::check({data, data + size});
    FUZZ_REQUIRE(isLoaded == std::none_of(findings.begin(), findings.end(),
                                          [](const hostcfg::Finding& finding) { return finding.isError; }));
    SuuInfo info({file.path(), ""});
    FUZZ_REQUIRE(info.initialize() == isLoaded);
    if (!isLoaded)
        return 0;
    FUZZ_REQUIRE(size >= HostconfigMinimumSize && size <= HostconfigMaximumSize);
    checkParts(hc, View(hc.raw, sizeof hc.raw));
    checkBody(hc, ctx);
    FUZZ_REQUIRE(suul_partpool_generate(&ctx) == 1);
    checkPools(ctx);
    checkAnswers(info, ctx.data);
    info.logSuuInfo();
    return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    return fuzz::mutateContainer(data, size, maxSize, seed, fuzz::Layout::Record);
}
