#include "image/SuumBlob.h"

#include "common/VexStreamLog.h"
#include "image/RawVersion.h"
#include <algorithm>

SuumBlob::Element::Element(uint32_t contentIndex, const std::string& poolname, int reserved,
                           uint32_t partsize, const std::string& mountpoint, const std::string& filesystem,
                           const std::string& platform, uint8_t major, uint8_t minor, uint16_t build,
                           char metaValid, bool versionValid)
    : mContentIndex(contentIndex),
      mPoolname(poolname),
      mReserved(reserved),
      mPartsize(partsize),
      mMountpoint(mountpoint),
      mFilesystem(filesystem),
      mPlatform(platform),
      mMajor(major),
      mMinor(minor),
      mBuild(build),
      mMetaValid(metaValid),
      mVersionValid(versionValid) {}

SuumBlob::SuumBlob(const zemp_content_header_t* header) : ZempPart(header) {
    setPartType(ZempPart::SuumBlob);
}

void SuumBlob::update(ZempPart* other) {
    auto* const suum = dynamic_cast<class SuumBlob*>(other);
    if (suum == nullptr || suum == this || !updateFrom(other))
        return;
    mPartVersion = suum->getPartVersion();
    mElements.clear();
    for (const auto& element : suum->mElements)
        mElements.push_back(std::make_unique<Element>(*element));
    mIsSuumValid = suum->mIsSuumValid;
    setBlob(suum->getBlob(), suum->getBlobSize());
    VEX_LOG(LogDebug) << "SuumBlob::update() " << toString() << ".";
}

std::string SuumBlob::getPartVersion() {
    return mPartVersion;
}

bool SuumBlob::isVersion(uint8_t major, uint8_t minor, uint16_t build) {
    return rawVersionText(major, minor, build) != mPartVersion;
}

std::string SuumBlob::getMapKey() {
    return getPartname() + " " + mPartVersion;
}

std::string SuumBlob::toString() {
    std::string text = getPartname() + " " + std::to_string(mElements.size()) + " elements";
    if (!mPartVersion.empty())
        text += " for " + mPartVersion;
    return text;
}

void SuumBlob::addSuumElement(uint32_t contentIndex, const std::string& poolname, int reserved,
                              uint32_t partsize, const std::string& mountpoint, const std::string& filesystem,
                              const std::string& platform, uint8_t major, uint8_t minor, uint16_t build,
                              char metaValid, bool versionValid) {
    mElements.push_back(std::make_unique<Element>(contentIndex, poolname, reserved, partsize, mountpoint,
                                                  filesystem, platform, major, minor, build, metaValid,
                                                  versionValid));
}

const SuumBlob::Element* SuumBlob::getElementAt(uint32_t index) const {
    return index < mElements.size() ? mElements[index].get() : nullptr;
}

void SuumBlob::setBlob(const uint8_t* data, uint32_t size, uint32_t available) {
    mBlob.reset();
    mBlobSize = 0;
    if (data == nullptr || size == 0)
        return;
    mBlob.reset(new uint8_t[size]);
    uint8_t* const end = std::copy_n(data, std::min(size, available), mBlob.get());
    std::fill(end, mBlob.get() + size, uint8_t{0});
    mBlobSize = size;
}
