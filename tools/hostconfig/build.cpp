#include "hostconfig/HostConfigRecord.h"

#include "image/zemp_validate.h"

namespace hostcfg {

namespace {

void require(bool condition, const std::string& text) {
    if (!condition)
        throw Error(text);
}

// Fills a fixed-width field; a text that fills it has no terminator.
template <size_t Width>
void setText(char (&field)[Width], const std::string& value, const std::string& what) {
    require(value.size() <= Width,
            what + " '" + value + "' is longer than " + std::to_string(Width) + " bytes");
    require(value.find('\0') == std::string::npos, what + " has a zero byte");
    memcpy(field, value.data(), value.size());
}

void append(Bytes& bytes, const void* data, size_t size) {
    const auto* first = static_cast<const uint8_t*>(data);
    bytes.insert(bytes.end(), first, first + size);
}

// CRC-32 of a header structure behind its own CRC field.
template <typename Header>
uint32_t headerCrc(const Header& header) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
    return crc32_calc(0, bytes + ZempFormat::CrcFieldSize, sizeof header - ZempFormat::CrcFieldSize);
}

void appendPart(Bytes& record, const std::string& name, const void* body, size_t size) {
    zemp_content_header_t header = {};
    header.type = ZempFormat::BlobType;
    header.hdr_length = ZempFormat::ContentHeaderSize;
    header.body_length = static_cast<uint32_t>(size);
    setText(header.name, name, "part name");
    header.body_crc = crc32_calc(0, body, size);
    header.hdr_crc = headerCrc(header);
    append(record, &header, sizeof header);
    append(record, body, size);
    record.resize(record.size() + ZempFormat::padding(header.body_length));
}

void fillSets(suu_data_t& data, const Description& description) {
    const size_t count = description.sets.size();
    require(count <= suu_data_t::SetCount, "more than 3 sets");
    require(description.releases.size() <= suu_data_t::SetCount, "more than 3 releases");
    require(description.activeSet >= -1 && description.activeSet < static_cast<int>(count),
            "there is no set " + std::to_string(description.activeSet) + " to be the active one");
    for (size_t i = 0; i < count; ++i) {
        const Set& set = description.sets[i];
        setText(data.sets[i].name, set.name, "set name");
        data.sets[i].bootable = set.bootable ? 1 : 0;
        data.sets[i].releaseHeader = set.releaseHeader;
        data.sets[i].references = set.references;
    }
    data.setCount = static_cast<uint8_t>(count);
    data.activeSet =
        description.activeSet < 0 ? suu_data_t::NoActiveSet : static_cast<uint8_t>(description.activeSet);
    for (size_t i = 0; i < description.releases.size(); ++i) {
        const Release& release = description.releases[i];
        setText(data.releases[i].name, release.name, "release name");
        data.releases[i].major = release.version.major;
        data.releases[i].minor = release.version.minor;
        data.releases[i].build = release.version.build;
        data.releases[i].time = release.time;
    }
}

void fillPartition(suu_partition_t& record, suu_content_t& content, const Partition& partition) {
    setText(record.name, partition.pool, "pool name");
    record.number = partition.number;
    record.offset = partition.offset;
    record.size = partition.size;
    setText(record.mountPoint, partition.mountPoint, "mount point");
    setText(record.fsType, partition.fsType, "file system type");

    content.header.type = ZempFormat::SwBlobType;
    content.header.hdr_length = ZempFormat::SwBlobBodyOffset;
    content.header.body_length = partition.length;
    setText(content.header.name, partition.contentName, "content name");
    content.header.body_crc = partition.crc;
    content.software.major = partition.version.major;
    content.software.minor = partition.version.minor;
    content.software.build = partition.version.build;
    setText(content.software.build_id, partition.buildId, "build id");
    content.header.hdr_crc = headerCrc(content);
}

suu_data_t makeSuuData(const Description& description) {
    suu_data_t data = {};
    fillSets(data, description);
    require(description.partitions.size() <= suu_data_t::PartitionCount, "more than 20 partitions");
    for (size_t i = 0; i < description.partitions.size(); ++i)
        fillPartition(data.partitions[i], data.contents[i], description.partitions[i]);
    if (description.changeSuuData)
        description.changeSuuData(data);
    return data;
}

} // namespace

Bytes build(const Description& description) {
    const suu_data_t data = makeSuuData(description);
    Bytes record(HostconfigMinimumSize);
    for (const Part& part : description.partsBefore)
        appendPart(record, part.name, part.body.data(), part.body.size());
    appendPart(record, SuuDataPartName, &data, sizeof data);
    for (const Part& part : description.partsAfter)
        appendPart(record, part.name, part.body.data(), part.body.size());
    record.resize(record.size() + description.unusedBytes);
    require(record.size() <= HostconfigMaximumSize, "the record has " + std::to_string(record.size()) +
                                                        " bytes, more than " +
                                                        std::to_string(HostconfigMaximumSize));
    memcpy(record.data(), ZempFormat::Magic, ZempFormat::MagicSize);
    reseal(record);
    return record;
}

void reseal(Bytes& record) {
    auto* header = reinterpret_cast<zemp_header_t*>(record.data() + ZempFormat::HeaderOffset);
    header->version = ZempFormat::Version;
    header->reserved = 0;
    header->hdr_length = ZempFormat::HeaderSize;
    header->body_length = static_cast<uint32_t>(record.size() - HostconfigMinimumSize);
    header->body_crc = crc32_calc(0, record.data() + HostconfigMinimumSize, header->body_length);
    header->hdr_crc = headerCrc(*header);
}

} // namespace hostcfg
