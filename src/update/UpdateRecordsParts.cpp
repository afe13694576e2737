// The fragments and the parts.
#include "common/VexStreamLog.h"
#include "image/SwBlob.h"
#include "update/UpdateRecords.h"
#include <algorithm>

namespace {

constexpr const char* OtherPlatform = "4812"; // its kernel is a part of another name
constexpr const char* OtherPlatformKernel = "kernel4812";

} // namespace

bool UpdateRecords::addFileFragment(FileFragment* fragment) {
    if (fragment == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::addFileFragment() FileFragment is NULL!";
        return false;
    }
    const bool added = mFragments.emplace(fragment->getFilename(), fragment).second;
    VEX_LOG(LogDebug) << (added ? "UpdateHandler::addFileFragment() Add "
                                : "UpdateHandler::addFileFragment() Map already contain ")
                      << fragment->toString();
    return added;
}

FileFragment* UpdateRecords::getFileFragment(const std::string& filename) const {
    const auto entry = mFragments.find(filename);
    return entry != mFragments.end() ? entry->second : nullptr;
}

FileFragment* UpdateRecords::getFileFragment(const std::string& version, FileFragment::FragmentType type,
                                             ZempPart::PartType partType) const {
    FileFragment* fragment = getFileFragment(FileFragment::getVersionedFilename(version, type, partType));
    if (fragment == nullptr || fragment->getFragmentType() != type)
        return nullptr;
    if (partType != ZempPart::UnspecifiedPart && fragment->getZempPartType() != partType)
        return nullptr;
    return fragment;
}

void UpdateRecords::deleteFileFragment(const std::string& filename) {
    const auto entry = mFragments.find(filename);
    if (entry == mFragments.end())
        return;
    FileFragment* fragment = entry->second;
    VEX_LOG(LogDebug) << "UpdateHandler::deleteFileFragment() Delete " << fragment->toString();
    mFragments.erase(entry);
    mForgottenFragments.push_back(fragment);
    freeForgottenFragments();
}

void UpdateRecords::deleteAllFileFragments() {
    VEX_LOG(LogDebug) << "UpdateHandler::deleteAllFileFragments() Deleting " << mFragments.size();
    while (!mFragments.empty())
        deleteFileFragment(mFragments.begin()->first);
}

void UpdateRecords::deleteNotFoundFileFragments() {
    std::vector<std::string> names;
    for (const auto& [name, fragment] : mFragments) {
        if (!fragment->isFoundInScan() && !isFileFragmentInUse(fragment))
            names.push_back(name);
    }
    for (const std::string& name : names) {
        VEX_LOG(LogDebug) << "UpdateHandler::deleteNotFoundFileFragments() Delete " << name;
        deleteFileFragment(name);
    }
}

void UpdateRecords::clearFetchedSinceStart() {
    for (const auto& [name, fragment] : mFragments)
        fragment->setIsFetchedSinceStart(false);
}

bool UpdateRecords::isFileFragmentInUse(const FileFragment* fragment) const {
    const auto downloads = mRequests.list<DownloadRequest>(FwWorkItem::DownloadRequest);
    const auto parses = mRequests.list<ParseFileRequest>(FwWorkItem::ParseFileRequest);
    const auto pointsAt = [fragment](const auto* request) { return request->getFileFragment() == fragment; };
    return std::any_of(downloads.begin(), downloads.end(), pointsAt) ||
           std::any_of(parses.begin(), parses.end(), pointsAt);
}

void UpdateRecords::freeForgottenFragments() {
    const auto kept = std::partition(mForgottenFragments.begin(), mForgottenFragments.end(),
                                     [this](const FileFragment* f) { return isFileFragmentInUse(f); });
    for (auto fragment = kept; fragment != mForgottenFragments.end(); ++fragment)
        delete *fragment;
    mForgottenFragments.erase(kept, mForgottenFragments.end());
}

void UpdateRecords::updateZempHeader(ZempHeaderPart* part) {
    if (part == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::updateZempHeader() ZempHeader is NULL!";
        return;
    }
    std::unique_ptr<ZempHeaderPart> taken(part);
    if (!mZempHeader) {
        mZempHeader = std::move(taken);
        return;
    }
    if (isWantedStart(mZempHeader->getFilename()) && !isWantedStart(part->getFilename()))
        return; // a start of another version does not hide the wanted one
    VEX_LOG(LogDebug) << "UpdateHandler::updateZempHeader() ZempHeader already exist! Update "
                      << mZempHeader->toString();
    mZempHeader->update(part);
}

bool UpdateRecords::isWantedStart(const std::string& filename) const {
    return filename ==
           FileFragment::getVersionedFilename(mVersion, FileFragment::ZempStart, ZempPart::UnspecifiedPart);
}

bool UpdateRecords::isZempHeaderValid() const {
    return mZempHeader && mZempHeader->isZempHeaderValid();
}

void UpdateRecords::updateZempPart(ZempPart* part) {
    if (part == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::updateZempPart() ZempPart is NULL!";
        return;
    }
    const std::string key = part->getMapKey();
    const auto [entry, added] = mZempParts.emplace(key, part);
    if (added)
        return;
    const std::unique_ptr<ZempPart> taken(part);
    ZempPart* existing = entry->second;
    if (keepsExisting(*existing, *part)) {
        VEX_LOG(LogDebug) << "UpdateHandler::updateZempPart() Keep the good '" << key << "' of "
                          << existing->getFilename() << ".";
        return;
    }
    VEX_LOG(LogDebug) << "UpdateHandler::updateZempPart() ZempPart '" << key
                      << "' already exist! Update the existing.";
    existing->update(part);
}

// A second file with less of the part must not hide a good one, nor one that the body can be taken from.
bool UpdateRecords::keepsExisting(const ZempPart& existing, const ZempPart& part) const {
    if (existing.getFilename() == part.getFilename() || getFileFragment(existing.getFilename()) == nullptr)
        return false;
    const bool isSoftware = dynamic_cast<const SwBlob*>(&existing) != nullptr;
    if (isSoftware && isInStart(&existing) != isInStart(&part))
        return isInStart(&part);
    return existing.isBodyValid() && !part.isBodyValid();
}

bool UpdateRecords::isInStart(const ZempPart* part) {
    return FileFragment::parseFragmentType(part->getFilename()) == FileFragment::ZempStart;
}

ZempPart* UpdateRecords::getZempPart(const std::string& key) const {
    VEX_LOG(LogDebug) << "UpdateHandler::getZempPart() Look for '" << key << "'.";
    const auto entry = mZempParts.find(key);
    if (entry == mZempParts.end()) {
        VEX_LOG(LogDebug) << "UpdateHandler::getZempPart() No entry with key='" << key << "'.";
        return nullptr;
    }
    if (entry->second == nullptr)
        VEX_LOG(LogWarning) << "UpdateHandler::getZempPart() Entry with key='" << key << "' is NULL!";
    return entry->second;
}

ZempPart* UpdateRecords::getZempPart(unsigned int index) const {
    const auto entry = mSuumZempParts.find(index);
    if (entry == mSuumZempParts.end()) {
        VEX_LOG(LogDebug) << "UpdateHandler::getZempPart() No entry with index=" << index << ".";
        return nullptr;
    }
    if (entry->second == nullptr)
        VEX_LOG(LogWarning) << "UpdateHandler::getZempPart() Entry with index=" << index << " is NULL!";
    return entry->second;
}

ZempPart* UpdateRecords::getZempPart(const SuumBlob::Element& element) const {
    const std::string key = partKey(element);
    VEX_LOG(LogDebug) << "UpdateHandler::getZempPart() Generated MapKey='" << key << "'.";
    return getZempPart(key);
}

std::string UpdateRecords::partName(const SuumBlob::Element& element) {
    return element.getPlatform() == OtherPlatform ? OtherPlatformKernel : element.getPoolname();
}

std::string UpdateRecords::partKey(const SuumBlob::Element& element) {
    return partName(element) + " " +
           ZempPart::getVersionString(element.getMajor(), element.getMinor(), element.getBuild());
}

SuumBlob* UpdateRecords::getSuum() const {
    return dynamic_cast<SuumBlob*>(getZempPart(ZempPart::sSuumBlobKey));
}

ReleaseHeaderPart* UpdateRecords::getReleaseHeader() const {
    return dynamic_cast<ReleaseHeaderPart*>(getZempPart(ZempPart::sReleaseHeaderKey));
}

bool UpdateRecords::addToSuumZempParts(const std::string& key, ZempPart::PartType type, const char* line) {
    ZempPart* part = getZempPart(key);
    if (part == nullptr || part->getPartType() != type)
        return false;
    VEX_LOG(LogDebug) << line << part->toString();
    return mSuumZempParts.emplace(part->getContentIndex(), part).second;
}

bool UpdateRecords::addSuumToSuumZempParts() {
    return addToSuumZempParts("suum " + mVersion, ZempPart::SuumBlob,
                              "UpdateHandler::addSuumToSuumZempParts() Add part ");
}

bool UpdateRecords::addReleaseHeaderToSuumZempParts() {
    return addToSuumZempParts("ReleaseHeader " + mVersion, ZempPart::ReleaseHeader,
                              "UpdateHandler::addReleaseHeaderToSuumZempParts() Add part ");
}

unsigned int UpdateRecords::getSizeInZempFile(unsigned int index) const {
    const ZempPart* part = getZempPart(index);
    return part != nullptr ? part->getSizeInZempFile() : 0;
}

bool UpdateRecords::isPartReady(const ZempPart* part, bool fullBlob) const {
    if (part == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::isPartReady() ZempPart is NULL!";
        return false;
    }
    if (!part->isContentHeaderValid()) {
        VEX_LOG(LogDebug) << "UpdateHandler::isPartReady() Invalid content header!";
        return false;
    }
    if (fullBlob && !part->isBodyValid()) {
        VEX_LOG(LogDebug) << "UpdateHandler::isPartReady() Invalid body!";
        return false;
    }
    return true;
}

bool UpdateRecords::isPartOverSize(const ZempPart* part, bool fullBlob) const {
    if (part == nullptr) {
        VEX_LOG(LogWarning) << "UpdateHandler::isPartOverSize() ZempPart is NULL!";
        return false;
    }
    const FileFragment* fragment = getFileFragment(part->getFilename());
    if (fragment == nullptr)
        return false;
    unsigned int limit = FileFragment::ContentPartInitialSize;
    if (fullBlob && part->isContentHeaderValid())
        limit = part->getSizeInZempFile() + 1;
    const unsigned int size = fragment->getFileSize();
    VEX_LOG(LogDebug) << "UpdateHandler::isPartOverSize() ZempPart is " << size << " max " << limit;
    return size > limit;
}

void UpdateRecords::deleteZempPart(const std::string& key) {
    const auto entry = mZempParts.find(key);
    if (entry == mZempParts.end())
        return;
    delete entry->second;
    mZempParts.erase(entry);
}

void UpdateRecords::deleteAllZempParts() {
    VEX_LOG(LogDebug) << "UpdateHandler::deleteAllZempParts() Deleting " << mZempParts.size()
                      << " ZEMP parts.";
    while (!mZempParts.empty())
        deleteZempPart(mZempParts.begin()->first);
}

void UpdateRecords::clearSuumZempPartsMap() {
    VEX_LOG(LogDebug) << "UpdateHandler::clearSuumZempPartsMap() Clearing suum ZempParts.";
    mSuumZempParts.clear();
}

void UpdateRecords::deleteStrayZempParts() {
    std::vector<std::string> filenames;
    for (const auto& [key, part] : mZempParts) {
        if (getFileFragment(part->getFilename()) == nullptr)
            filenames.push_back(part->getFilename());
    }
    for (const std::string& filename : filenames)
        deleteZempPartsOfFile(filename);
}

void UpdateRecords::deleteZempPartsOfFile(const std::string& filename) {
    for (auto entry = mSuumZempParts.begin(); entry != mSuumZempParts.end();) {
        if (entry->second->getFilename() != filename) {
            ++entry;
            continue;
        }
        VEX_LOG(LogDebug) << "UpdateHandler::deleteStrayZempParts() Remove " << entry->second->toString();
        entry = mSuumZempParts.erase(entry);
    }
    for (auto entry = mZempParts.begin(); entry != mZempParts.end();) {
        if (entry->second->getFilename() != filename) {
            ++entry;
            continue;
        }
        VEX_LOG(LogDebug) << "UpdateHandler::deleteStrayZempParts() Delete " << entry->second->toString();
        delete entry->second;
        entry = mZempParts.erase(entry);
    }
}
