// What is done when the disk is full, and when an update image cannot be compiled.
#include "main/ArgParser.h"
#include "update/UpdateHandler.h"
#include <set>

// Looks at the directory, to delete what the manifest does not name.
void UpdateHandler::scanForSpace() {
    mSpaceIsShort = true;
    if (FileScanRequest* scan = createFileScanRequest())
        addToMasterQueue(scan);
}

// Whether a file that a scan found is to be kept when space is short. Files of others are not ours to delete.
bool UpdateHandler::isWorthItsSpace(const std::string& filename) const {
    switch (FileFragment::parseFragmentType(filename)) {
    case FileFragment::UnknownType:
    case FileFragment::ZempFile:
        return true;
    case FileFragment::UpdateZempFile: {
        const std::string image = mDirName + "/" + ArgParser::getFwUpdateBaseFilename() + "-" + mVersion;
        return filename == image || filename == mSeal.gate().keptName(image);
    }
    case FileFragment::ZempStart:
    case FileFragment::ContentPart:
    case FileFragment::SealFile:
        break;
    }
    const FileFragment* fragment = getFileFragment(filename);
    return fragment != nullptr &&
           (isFileFragmentInUse(fragment) || isWantedStart(filename) || isNamedByManifest(filename));
}

void UpdateHandler::deleteFilesOf(const CompileUpdateZempRequest& request) {
    std::set<std::string> names;
    for (const auto& [index, part] : request.getZempParts()) {
        if (part != nullptr)
            names.insert(part->getFilename());
    }
    for (const std::string& name : names)
        createFileDeleteRequest(name);
}

// A compile that failed is tried again behind a scan.
void UpdateHandler::handOutScanOfFailedCompile() {
    if (!mScanIsRecordedOnly || !mCompilePace.onBeat())
        return;
    mScanToHandOut = true;
    addToMasterQueue(createFileScanRequest());
}
