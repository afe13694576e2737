#include "hostconfig/HostConfigRecord.h"

#include "image/zemp_validate.h"
#include "installed/hostconfig.h"
#include <memory>

namespace hostcfg {

namespace {

using Findings = std::vector<Finding>;

void add(Findings& findings, bool isError, size_t offset, const std::string& text) {
    findings.push_back({isError, offset, text});
}

const char* describe(int validity) {
    switch (validity) {
    case ZempBadVersion:
        return "has a format version other than 1";
    case ZempBadHeaderLength:
        return "has a header length below its minimum";
    case ZempBadHeaderCrc:
        return "fails the check of its header CRC";
    case ZempBadBodyCrc:
        return "fails the check of its body CRC";
    default:
        return "declares more bytes than there are";
    }
}

// Offset of a member of the SUU data, in the record.
size_t offsetOf(const hostconfig_t& hc, const zemp_content_header_t* part, size_t offset) {
    const auto start = static_cast<size_t>(reinterpret_cast<const uint8_t*>(part) - hc.raw);
    return start + ZempFormat::BlobBodyOffset + offset;
}

void checkSets(Findings& findings, const hostconfig_t& hc, const zemp_content_header_t* part,
               const suu_data_t& data) {
    if (data.setCount > suu_data_t::SetCount)
        add(findings, false, offsetOf(hc, part, offsetof(suu_data_t, setCount)),
            "there are " + std::to_string(data.setCount) + " sets, more than the table has room for");
    if (data.activeSet != suu_data_t::NoActiveSet && data.activeSet >= data.setCount)
        add(findings, false, offsetOf(hc, part, offsetof(suu_data_t, activeSet)),
            "the active set " + std::to_string(data.activeSet) + " is not in use");
    for (unsigned i = 0; i < suu_data_t::SetCount && i < data.setCount; ++i)
        if (data.sets[i].releaseHeader >= suu_data_t::SetCount && data.sets[i].releaseHeader != NoRelease)
            add(findings, false, offsetOf(hc, part, i * sizeof(suu_set_t)),
                "set '" + ZempFormat::text(data.sets[i].name) + "' refers to release header " +
                    std::to_string(data.sets[i].releaseHeader) + ", which is none");
}

void checkSuuData(Findings& findings, hostconfig_t& hc) {
    const zemp_content_header_t* part = hostconfig_get_part(&hc, SuuDataPartName);
    const auto context = std::make_unique<suul_ctx_t>();
    suul_init(context.get());
    if (suul_hostconfig_import(context.get(), &hc) != 1) {
        add(findings, true, HostconfigMinimumSize,
            std::string("there is no content part '") + SuuDataPartName + "' among the first 20");
        return;
    }
    if (part->body_length < sizeof(suu_data_t))
        add(findings, false, offsetOf(hc, part, 0),
            "the SUU data has only " + std::to_string(uint32_t{part->body_length}) +
                " bytes; what is missing counts as zero");
    checkSets(findings, hc, part, context->data);
}

} // namespace

std::vector<Finding> check(const Bytes& record) {
    Findings findings;
    if (record.size() < HostconfigMinimumSize || record.size() > HostconfigMaximumSize) {
        add(findings, true, 0,
            "the record has " + std::to_string(record.size()) + " bytes; it must have 24 to 5120");
        return findings;
    }
    const auto hc = std::make_unique<hostconfig_t>();
    hostconfig_new(hc.get(), HostconfigMaximumSize);
    memcpy(hc->raw, record.data(), record.size());
    if (memcmp(hc->raw, ZempFormat::Magic, ZempFormat::MagicSize) != 0)
        add(findings, false, 0, "the magic at the start is not there");
    int validity = hostconfig_check_raw(hc.get());
    const uint64_t declared =
        uint64_t{ZempFormat::HeaderOffset} + hc->header->hdr_length + hc->header->body_length;
    if (validity == ZempBadBodyCrc && declared > record.size())
        validity = HostconfigBadLength; // as the daemon takes the missing bytes for zeros
    if (validity == ZempValid && declared > record.size())
        add(findings, false, ZempFormat::HeaderOffset,
            "the main header declares " + std::to_string(declared) +
                " bytes; the missing ones count as zeros");
    if (validity != ZempValid) {
        add(findings, true, ZempFormat::HeaderOffset, std::string("the main header ") + describe(validity));
        return findings;
    }
    unsigned fault = 0;
    validity = hostconfig_find_parts(hc.get(), &fault);
    if (validity != ZempValid) {
        add(findings, true, fault, std::string("the content part there ") + describe(validity));
        return findings;
    }
    checkSuuData(findings, *hc);
    return findings;
}

} // namespace hostcfg
