// The software update manifest: which parts an image has, where they go, and in which versions.
#ifndef IMAGE_SUUMBLOB_H
#define IMAGE_SUUMBLOB_H

#include "image/ZempPart.h"
#include <memory>
#include <vector>

class SuumBlob : public ZempPart {
  public:
    // One line of the manifest.
    class Element {
      public:
        // `reserved` has no source in the manifest and is only carried. `metaValid` is the last column.
        Element(uint32_t contentIndex, const std::string& poolname, int reserved, uint32_t partsize,
                const std::string& mountpoint, const std::string& filesystem, const std::string& platform,
                uint8_t major, uint8_t minor, uint16_t build, char metaValid, bool versionValid);
        Element(const Element& other) = default;
        Element& operator=(const Element&) = delete;

        uint32_t getContentIndex() const { return mContentIndex; }
        std::string getPoolname() const { return mPoolname; }
        int getReserved() const { return mReserved; }
        uint32_t getPartsize() const { return mPartsize; }
        std::string getMountPoint() const { return mMountpoint; }
        std::string getFilesystem() const { return mFilesystem; }
        std::string getPlatform() const { return mPlatform; }
        uint8_t getMajor() const { return mMajor; }
        uint8_t getMinor() const { return mMinor; }
        uint16_t getBuild() const { return mBuild; }
        bool isMetaValid() const { return mMetaValid != 0; }
        bool isVersionValid() const { return mVersionValid; }

      private:
        const uint32_t mContentIndex;
        const std::string mPoolname;
        const int mReserved;
        const uint32_t mPartsize;
        const std::string mMountpoint;
        const std::string mFilesystem;
        const std::string mPlatform;
        const uint8_t mMajor;
        const uint8_t mMinor;
        const uint16_t mBuild;
        const char mMetaValid;
        const bool mVersionValid;
    };

    explicit SuumBlob(const zemp_content_header_t* header);

    void update(ZempPart* other) override;
    std::string getPartVersion() override;
    // True when the version text, with `minor` as one raw character, differs from the one set.
    bool isVersion(uint8_t major, uint8_t minor, uint16_t build) override;
    std::string getMapKey() override;
    std::string toString() override;

    // Appends an element; the arguments are those of Element.
    void addSuumElement(uint32_t contentIndex, const std::string& poolname, int reserved, uint32_t partsize,
                        const std::string& mountpoint, const std::string& filesystem,
                        const std::string& platform, uint8_t major, uint8_t minor, uint16_t build,
                        char metaValid, bool versionValid);

    // Null when out of range; otherwise valid until the next update().
    const Element* getElementAt(uint32_t index) const;
    uint32_t getNumberOfElements() const { return static_cast<uint32_t>(mElements.size()); }

    // Whether all versions in the manifest could be read.
    void setIsSuumValid(bool valid) { mIsSuumValid = valid; }
    bool isSuumValid() const { return mIsSuumValid; }

    // Version text of the release that the manifest came with.
    void setPartVersion(const std::string& version) { mPartVersion = version; }

    // The manifest's bytes in the file, body and padding. setBlob() copies as many of them as there are,
    // zeros follow; null `data` or a `size` of 0 leaves no copy. getBlob() is null without one.
    void setBlob(const uint8_t* data, uint32_t size) { setBlob(data, size, size); }
    void setBlob(const uint8_t* data, uint32_t size, uint32_t available);
    const uint8_t* getBlob() const { return mBlob.get(); }
    uint32_t getBlobSize() const { return mBlobSize; }

  private:
    std::vector<std::unique_ptr<Element>> mElements;
    bool mIsSuumValid = false;
    std::string mPartVersion;
    std::unique_ptr<uint8_t[]> mBlob;
    uint32_t mBlobSize = 0;
};

#endif
