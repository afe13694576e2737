#include "update/StartRange.h"

#include "common/File.h"
#include "image/ReleaseHeaderPart.h"
#include "image/ZempHeaderPart.h"
#include "image/zemp_validate.h"

unsigned findLastByteOfManifest(const std::string& filename, const ZempHeaderPart& header,
                                const ReleaseHeaderPart& release) {
    const uint64_t offset = uint64_t{ZempPart::ZempFileIdentifierSize} + header.getZempHeader()->hdr_length +
                            release.getSizeInZempFile();
    if (offset > MaximumZempStartSize)
        return 0;
    File file;
    zemp_content_header_t manifest;
    if (!file.openRegularForReading(filename, File::Links::Follow) || !file.seek(offset) ||
        file.read(&manifest, sizeof manifest) != sizeof manifest)
        return 0;
    // A manifest has no extended header, so what was read is all that the header's CRC covers.
    if (manifest.type != ZempFormat::BlobType || manifest.hdr_length != sizeof manifest ||
        !ZempFormat::equals(manifest.name, ZempFormat::ManifestName) ||
        zemp_validate_content_header(&manifest) != 1)
        return 0;
    const uint64_t end = offset + manifest.hdr_length + manifest.body_length +
                         uint64_t{ZempPart::getPadding(manifest.body_length)};
    return end <= MaximumZempStartSize ? static_cast<unsigned>(end - 1) : 0;
}
