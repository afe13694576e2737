#include "image/ZempCreator.h"

#include "common/File.h"
#include "common/Thread.h"
#include "common/VexStreamLog.h"
#include "image/ReleaseHeaderPart.h"
#include "image/SuumBlob.h"
#include "image/SwBlob.h"
#include "image/ZempHeaderPart.h"
#include "image/ZempReadBack.h"
#include "image/readInSteps.h"
#include "image/zemp_validate.h"
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <limits.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

std::string ZempCreator::sTempFilename = "/tmp/zempparts";

namespace {

constexpr size_t MinimumParts = 3;

// Ends the name under which an image is written.
constexpr const char* PartialSuffix = ".part";

// So that no single wait for the disk is long, and a stop is obeyed soon.
constexpr uint64_t SyncBytes = 8388608;

// Removes a file at the end of its scope.
class FileRemover {
  public:
    explicit FileRemover(const std::string& filename) : mFilename(filename) {}
    ~FileRemover() {
        if (mIsArmed)
            unlink(mFilename.c_str());
    }
    FileRemover(const FileRemover&) = delete;
    FileRemover& operator=(const FileRemover&) = delete;
    void disarm() { mIsArmed = false; }

  private:
    const std::string mFilename;
    bool mIsArmed = true;
};

// Why bytes were not read or written, for messages.
const char* reason() {
    return errno == 0 ? "unexpected end of file" : strerror(errno);
}

bool refuse(const char* text) {
    VEX_LOG(LogWarning) << text;
    return false;
}

// What a failed call of the system means, by its error number.
ZempCreator::Failure failureOf(int error) {
    return error == ENOSPC || error == EDQUOT ? ZempCreator::Failure::Space
                                              : ZempCreator::Failure::Surroundings;
}

// Tells the reason, before the line that says what follows from it.
void logOpenError(const std::string& filename) {
    VEX_LOG(LogWarning) << "ZempCreator::createZemp: Unable to open '" << filename << "' (" << strerror(errno)
                        << ").";
}

bool invalid(const char* type) {
    VEX_LOG(LogWarning) << "ZempCreator::createZemp: Invalid " << type << ". Aborting!";
    return false;
}

// Whether these first 64 bytes of a file are the part's headers, as they were when it was parsed.
bool isPartsHeader(const SwBlob& part, const uint8_t* bytes) {
    return memcmp(bytes, part.getHeader(), ZempPart::ZempContentHeaderSize) == 0 &&
           memcmp(bytes + ZempPart::ZempContentHeaderSize, part.getExtendedHeader(),
                  ZempPart::ZempSwBlobHeaderSize) == 0;
}

// Writes the parts to the temporary file.
class BodyWriter {
  public:
    BodyWriter(File& file, zemp_header_t& header, const seal::Voucher& voucher)
        : mFile(file), mHeader(header), mVoucher(voucher), mHash(voucher.makeHash()) {}

    // Takes over the main header, or writes any other part. False, and logged, when that cannot be done.
    bool add(ZempPart* part);

    // What made add() return false.
    ZempCreator::Failure failure() const { return mFailure; }

    const std::vector<WrittenPart>& parts() const { return mParts; }

  private:
    bool takeHeader(const ZempHeaderPart* part);
    bool writeRelease(const ReleaseHeaderPart* part);
    bool writeManifest(const SuumBlob* part);
    bool writeSoftware(const SwBlob* part);
    bool writeHeadersOnly(const SwBlob& part);
    bool copyFromFile(const SwBlob& part);
    bool write(const void* data, size_t size);
    bool writeBody(const void* data, size_t size);
    seal::Digest digestOf(const void* data, size_t size) const;

    // Writes the part's content header and the bytes of its extended header. Both together have the length
    // that the part's kind has: what the header declares beyond is no part of the image.
    bool writeHeaders(const zemp_content_header_t& header, const void* extension, size_t extensionSize);

    static bool isHeaderUsable(const ZempPart* part) {
        return part != nullptr && part->isContentHeaderValid();
    }

    File& mFile;
    zemp_header_t& mHeader;
    const seal::Voucher& mVoucher;
    const std::unique_ptr<seal::Hash> mHash; // null: no digests are asked for
    std::vector<WrittenPart> mParts;
    ZempCreator::Failure mFailure = ZempCreator::Failure::Parts; // unless a write fails
};

bool BodyWriter::add(ZempPart* part) {
    const ZempPart::PartType type = part != nullptr ? part->getPartType() : ZempPart::UnspecifiedPart;
    switch (type) {
    case ZempPart::ZempHeader:
        return takeHeader(dynamic_cast<ZempHeaderPart*>(part));
    case ZempPart::ReleaseHeader:
        return writeRelease(dynamic_cast<ReleaseHeaderPart*>(part));
    case ZempPart::SuumBlob:
        return writeManifest(dynamic_cast<SuumBlob*>(part));
    case ZempPart::KernelBlob:
    case ZempPart::Kernel4812Blob:
    case ZempPart::RootBlob:
    case ZempPart::AppBlob:
    case ZempPart::ThirdAppBlob:
        if (const auto* const blob = dynamic_cast<SwBlob*>(part))
            return writeSoftware(blob);
        return invalid(ZempPart::getString(type));
    case ZempPart::UnspecifiedBlob:
    case ZempPart::UnspecifiedSwBlob:
    case ZempPart::UnspecifiedPart:
        break;
    }
    VEX_LOG(LogWarning) << "ZempCreator::createZemp: " << ZempPart::getString(type)
                        << " is unknown. Aborting!";
    return false;
}

bool BodyWriter::takeHeader(const ZempHeaderPart* part) {
    if (part == nullptr || !part->isZempHeaderValid())
        return refuse("ZempCreator::createZemp: Invalid ZEMP header. Aborting!");
    mHeader = *part->getZempHeader();
    VEX_LOG(LogDebug) << "ZempCreator::createZemp: zempHeader.version = " << unsigned{mHeader.version};
    VEX_LOG(LogDebug) << "ZempCreator::createZemp: zempHeader.reserved = " << std::hex << std::showbase
                      << unsigned{mHeader.reserved};
    VEX_LOG(LogDebug) << "ZempCreator::createZemp: zempHeader.hdr_length = " << mHeader.hdr_length;
    return true;
}

bool BodyWriter::writeRelease(const ReleaseHeaderPart* part) {
    if (!isHeaderUsable(part) || !part->isReleaseHeaderValid() || !part->isBodyValid())
        return refuse("ZempCreator::createZemp: Invalid Release header. Aborting!");
    const std::string text = part->getReleaseHeaderBody();
    return writeHeaders(*part->getHeader(), part->getReleaseHeader(), ZempPart::ZempReleaseHeaderSize) &&
           writeBody(text.c_str(), text.size() + 1);
}

bool BodyWriter::writeManifest(const SuumBlob* part) {
    if (!isHeaderUsable(part) || !part->isSuumValid())
        return refuse("ZempCreator::createZemp: Invalid SUUM blob. Aborting!");
    return writeHeaders(*part->getHeader(), nullptr, 0) && writeBody(part->getBlob(), part->getBlobSize());
}

bool BodyWriter::writeSoftware(const SwBlob* part) {
    const char* const type = ZempPart::getString(part->getPartType());
    if (!isHeaderUsable(part) || !part->isExtendedHeaderValid())
        return invalid(type);
    if (!part->isBodyValid()) {
        VEX_LOG(LogInfo) << "ZempCreator::createZemp: " << type << " not needed. Only write headers";
        return writeHeadersOnly(*part);
    }
    VEX_LOG(LogInfo) << "ZempCreator::createZemp: " << type << ". We need this";
    return copyFromFile(*part);
}

bool BodyWriter::writeHeadersOnly(const SwBlob& part) {
    zemp_content_header_t header = *part.getHeader();
    header.body_length = 0;
    header.body_crc = 0;
    return writeHeaders(header, part.getExtendedHeader(), ZempPart::ZempSwBlobHeaderSize) &&
           writeBody(nullptr, 0);
}

bool BodyWriter::writeHeaders(const zemp_content_header_t& header, const void* extension,
                              size_t extensionSize) {
    std::vector<uint8_t> record(sizeof header + extensionSize);
    zemp_content_header_t written = header;
    written.hdr_length = static_cast<uint16_t>(record.size());
    memcpy(record.data(), &written, sizeof written);
    if (extensionSize > 0)
        memcpy(record.data() + sizeof written, extension, extensionSize);
    written.hdr_crc =
        crc32_calc(0, record.data() + ZempFormat::CrcFieldSize, record.size() - ZempFormat::CrcFieldSize);
    ZempFormat::putLe32(record.data(), written.hdr_crc);
    mParts.push_back({written, {digestOf(record.data(), record.size()), {}}});
    return write(record.data(), record.size());
}

bool BodyWriter::copyFromFile(const SwBlob& part) {
    const char* const type = ZempPart::getString(part.getPartType());
    const std::string filename = part.getFilename();
    const uint64_t length = uint64_t{ZempFormat::SwBlobBodyOffset} + part.getBodyLength();
    const uint32_t padding = ZempPart::getPadding(part.getBodyLength());
    VEX_LOG(LogDebug) << "ZempCreator::createZemp: length=" << length << ", padding=" << padding;

    File file;
    if (!file.openRegularForReading(filename, File::Links::Follow)) {
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Unable to open '" << filename << "' ("
                            << strerror(errno) << ").";
        return invalid(type);
    }
    // The file was checked when it was parsed; it may have changed since.
    uint8_t headers[ZempFormat::SwBlobBodyOffset];
    if (file.read(headers, sizeof headers) != sizeof headers || !isPartsHeader(part, headers)) {
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: '" << filename
                            << "' does not begin with the part's header.";
        return invalid(type);
    }
    if (!writeHeaders(*part.getHeader(), headers + ZempPart::ZempContentHeaderSize,
                      ZempPart::ZempSwBlobHeaderSize))
        return false;
    bool isWritten = true;
    uint32_t crc = 0;
    const uint64_t body =
        readInSteps(file, part.getBodyLength(), mFile.position(), [&](const uint8_t* data, size_t size) {
            crc = crc32_calc(crc, data, size);
            if (mHash)
                mHash->update(data, size);
            return isWritten = write(data, size);
        });
    if (!isWritten)
        return false;
    if (body != part.getBodyLength()) {
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Unable to read '" << filename << "' (" << reason()
                            << ").";
        return invalid(type);
    }
    if (crc != part.getBodyCrc()) {
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: '" << filename << "' does not hold the part's body.";
        return invalid(type);
    }
    if (mHash)
        mParts.back().digests.body = mHash->finish();
    if (!mVoucher.isPart({part.getDigests().header, mParts.back().digests.body})) {
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: '" << filename
                            << "' is not what the seal of the release has.";
        return invalid(type);
    }
    VEX_LOG(LogDebug) << "ZempCreator::createZemp: " << length << " bytes read from " << filename
                      << " and written to temp file.";
    const uint8_t zeros[ZempFormat::Alignment] = {};
    return write(zeros, padding);
}

// The body, and what pads it.
bool BodyWriter::writeBody(const void* data, size_t size) {
    WrittenPart& part = mParts.back();
    part.digests.body = digestOf(data, std::min<size_t>(size, part.header.body_length));
    return write(data, size);
}

seal::Digest BodyWriter::digestOf(const void* data, size_t size) const {
    if (!mHash)
        return {};
    mHash->update(data, size);
    return mHash->finish();
}

bool BodyWriter::write(const void* data, size_t size) {
    if (size == 0 || mFile.write(data, size))
        return true;
    mFailure = failureOf(errno);
    VEX_LOG(LogWarning) << "ZempCreator::createZemp: Error while writing temporary file (" << strerror(errno)
                        << ").";
    return false;
}

// Completes the main header for the body in the temporary file.
bool describeBody(File& temp, zemp_header_t& header) {
    uint32_t crc = 0;
    uint64_t length = 0;
    if (temp.seek(0))
        length = readInSteps(temp, UINT32_MAX, 0, [&crc](const uint8_t* data, size_t size) {
            crc = crc32_calc(crc, data, size);
            return true;
        });
    if (length != temp.position() || length == UINT32_MAX) {
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Unable to read temporary file (" << reason() << ").";
        return false;
    }
    VEX_LOG(LogDebug) << "ZempCreator::createZemp: Tempfile read (" << length << " bytes)";
    header.body_length = static_cast<uint32_t>(length);
    header.body_crc = crc;
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&header);
    header.hdr_crc =
        crc32_calc(0, bytes + ZempFormat::CrcFieldSize, sizeof header - ZempFormat::CrcFieldSize);
    return true;
}

// A name beside the image's; one that is as long as a name may be gives way at its end.
std::string partialNameOf(const std::string& filename) {
    const size_t base = filename.rfind('/') + 1; // 0 without a directory
    return filename.substr(0, base) + filename.substr(base, NAME_MAX - strlen(PartialSuffix)) + PartialSuffix;
}

// What is there under the image's name already may be an image, but nothing else: a device would be replaced.
bool mayReplace(const std::string& filename) {
    struct stat status {};
    if (stat(filename.c_str(), &status) != 0 || S_ISREG(status.st_mode))
        return true;
    VEX_LOG(LogWarning) << "ZempCreator::createZemp: '" << filename << "' is not a regular file.";
    return false;
}

// Writes the image's bytes into `file` and syncs them.
bool fillImage(File& file, File& temp, const zemp_header_t& header) {
    if (!temp.seek(0) || !file.write(ZempPart::MagicHeader, ZempPart::ZempFileIdentifierSize) ||
        !file.write(&header, sizeof header))
        return false;
    uint64_t unsynced = 0;
    const uint64_t length = readInSteps(temp, header.body_length, file.position(),
                                        [&file, &unsynced](const uint8_t* data, size_t size) {
                                            unsynced += size;
                                            if (unsynced < SyncBytes)
                                                return file.write(data, size);
                                            unsynced = 0;
                                            return file.write(data, size) && file.sync();
                                        });
    if (length != header.body_length || !file.sync())
        return false;
    VEX_LOG(LogInfo) << "ZempCreator::createZemp: " << length
                     << " bytes read from temp file and written to dest file.";
    return true;
}

// An image of this version may be flagged as ready already, so it stays whole until the new one, which was
// read back, replaces it.
bool writeImage(const std::string& filename, File& temp, const zemp_header_t& header,
                const std::vector<WrittenPart>& parts, const std::shared_ptr<const seal::Voucher>& voucher,
                ZempCreator::Failure& failure) {
    const std::string partial = partialNameOf(filename);
    File file;
    const bool isFree = mayReplace(filename);
    if (!isFree || !file.createAnew(partial, File::PublicMode)) {
        if (isFree) {
            failure = failureOf(errno);
            logOpenError(partial);
        }
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Unable to open output file.";
        return false;
    }
    FileRemover remover(partial);
    bool isReplaced = fillImage(file, temp, header);
    if (isReplaced) {
        if (!readBackImage(partial, header, parts, voucher)) {
            failure = ZempCreator::Failure::Parts; // or the disk's: both are fetched and written anew
            return false;
        }
        isReplaced = file.close() && rename(partial.c_str(), filename.c_str()) == 0;
    }
    if (isReplaced)
        remover.disarm();
    if (!isReplaced || !File::syncDirectoryOf(filename)) {
        failure = failureOf(errno);
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Error while writing output file '" << filename
                            << "' (" << reason() << ").";
        return false;
    }
    return true;
}

} // namespace

ZempCreator::ZempCreator(std::map<const unsigned, ZempPart*> parts,
                         std::shared_ptr<const seal::Voucher> voucher)
    : mParts(std::move(parts)), mVoucher(std::move(voucher)) {}

bool ZempCreator::createZemp(std::string filename) {
    mFailure = Failure::Parts;
    if (mParts.size() < MinimumParts) {
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Insufficient ZEMP parts. Aborting!";
        return false;
    }
    File temp;
    if (!temp.createAnew(sTempFilename, File::PrivateMode)) {
        mFailure = failureOf(errno);
        logOpenError(sTempFilename);
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Unable to create temporary file.";
        return false;
    }
    FileRemover tempRemover(sTempFilename);

    zemp_header_t header{};
    header.version = ZempFormat::Version; // unless the parts hold a main header
    header.hdr_length = ZempFormat::HeaderSize;
    BodyWriter writer(temp, header, *mVoucher);
    for (const auto& entry : mParts) {
        if (!writer.add(entry.second)) {
            mFailure = writer.failure();
            return false;
        }
    }
    mFailure = Failure::Surroundings;
    if (!describeBody(temp, header) ||
        !writeImage(filename, temp, header, writer.parts(), mVoucher, mFailure))
        return false;
    if (std::string problem; !mVoucher->keep(filename, problem)) {
        mFailure = failureOf(errno);
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Error while writing '" << problem << "' ("
                            << strerror(errno) << ").";
        return false;
    }
    mFailure = Failure::None;
    tempRemover.disarm();
    if (unlink(sTempFilename.c_str()) != 0) {
        VEX_LOG(LogWarning) << "ZempCreator::createZemp: Error while deleting temporary file.";
    }
    return true;
}
