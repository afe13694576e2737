// One local file of the download directory that belongs to an update: what it is, which bytes of the remote
// image it mirrors, its name, and how many bytes are on disk.
//
// A fragment is used by the main thread and, while a work item that points at it is out, by one worker. It
// takes no locks; only the recorded size may be read while a worker sets it. Destroying a fragment leaves its
// file alone: files are removed by delete requests only. Nothing here throws; failures are logged.
#ifndef UPDATE_FILEFRAGMENT_H
#define UPDATE_FILEFRAGMENT_H

#include "image/ZempPart.h"
#include <atomic>
#include <cstdint>
#include <limits>
#include <string>

class FileFragment {
  public:
    enum FragmentType : int {
        UnknownType = 0,    // not one of the system's files
        ZempStart = 1,      // first bytes of the remote image
        ContentPart = 2,    // one content part of the remote image
        ZempFile = 3,       // a whole image
        UpdateZempFile = 4, // the compiled update image
        SealFile = 5        // the seal of the remote image
    };

    static constexpr unsigned ZempStartSize = 511;           // last byte of the image start's range
    static constexpr unsigned MaximumZempStartSize = 131072; // bytes up to the end of the manifest
    static constexpr unsigned MinimumFileSize = 511;         // smallest plausible image file, bytes
    static constexpr unsigned MaximumFileSize = 78643200;    // largest accepted image file: 75 MiB
    static constexpr unsigned ContentPartInitialSize = 511;  // span fetched first for a content part
    static constexpr const char* TempFileTemplate = "XXXXXX";

    // A fragment for a new download of the bytes `rangeStart` to `rangeEnd` (inclusive). It has no file yet.
    FileFragment(FragmentType type, unsigned int rangeStart, unsigned int rangeEnd);

    // A fragment for a file found on disk, of the type that its name tells.
    FileFragment(const std::string& filename, unsigned int fileSize);

    ~FileFragment();
    FileFragment(const FileFragment&) = delete;
    FileFragment& operator=(const FileFragment&) = delete;

    // Range from `start` to `start` + `length`: one byte more than `length`, since the end is inclusive.
    void setDownloadRange(unsigned int start, unsigned int length);
    unsigned int getRangeStart() const { return mRangeStart; }
    unsigned int getRangeEnd() const { return mRangeEnd; }

    // Marks that the part's body is to be fetched too, for good.
    void setFullBlobNeeded() { mFullBlobNeeded = true; }
    bool isFullBlobNeeded() const { return mFullBlobNeeded; }

    // Full path; empty until a name was made.
    std::string getFilename() const { return mFilename; }
    void setFilename(const std::string& filename) { mFilename = filename; }

    // Bytes of the fragment on disk, as last recorded. setFileSize() always returns true.
    unsigned int getFileSize() const { return mFileSize; }
    bool setFileSize(unsigned int size);

    // Says that the bytes on disk from the `size`th on are not the image's: they came with an answer to
    // something else, as an error page does. They stay until cutSurplus().
    void setForeignFrom(unsigned int size) { mForeignFrom = size; }
    bool hasForeignBytes() const { return mForeignFrom < mFileSize; }

    // To be called before each fetch: cuts off the file, and the recorded size, what is not the image's or
    // lies behind the range, so that the fetch goes on with the right byte. A file that is gone counts as
    // cut. False when the file cannot be cut; then all stays as it is.
    [[nodiscard]] bool cutSurplus();

    // Whether nothing of the range is left to fetch; never for a whole image or without a range.
    bool isRangeOnDisk();

    // Whether the fragment was made from a file found on disk.
    bool isExistingFile() const { return mIsExistingFile; }

    bool isFoundInScan() const { return mFoundInScan; }
    void setIsFoundInScan(bool found) { mFoundInScan = found; }

    // Whether all of the fragment was fetched after the image start that is in use.
    bool isFetchedSinceStart() const { return mFetchedSinceStart; }
    void setIsFetchedSinceStart(bool since) { mFetchedSinceStart = since; }

    FragmentType getFragmentType() const { return mFragmentType; }

    // The content part in the file; UnspecifiedPart until it is known.
    ZempPart::PartType getZempPartType() const { return mZempPartType; }
    void setZempPartType(ZempPart::PartType type) { mZempPartType = type; }

    // Empties the file; the recorded size stays. Does nothing without a name.
    void truncateFile();

    // Makes an empty file of a unique temporary name in the download directory. On failure the name stays
    // empty. A fragment that has a name keeps it.
    void initFilename();

    // Renames the file to its versioned name, unless its name contains the version already. False only when
    // the rename fails; then the old name stays.
    [[nodiscard]] bool changeFilename(const std::string& version);

    // The HTTP range of the next fetch, "first-last", resuming after the bytes on disk; empty for a whole
    // image. An image start without a range is given the first 512 bytes.
    std::string getCurlRange();

    // Bytes that the range spans; 0 for a whole image and without a range.
    uint64_t getRangeSize();

    // File name and type.
    std::string toString() const;

    static bool isMinimumFileSize(unsigned int size) { return size > MinimumFileSize - 1; }
    static bool isMaximumFileSize(unsigned int size) { return size <= MaximumFileSize; }

    // Printed name of a type; "<unknown type>" outside the enumeration.
    static const char* getString(FragmentType type);

    // What names of this type begin with.
    static std::string getFilenamePrefix(FragmentType type);

    // The type that a file's name, with or without its path, tells.
    static FragmentType parseFragmentType(const std::string& filename);

    // Full path of a file whose content is known.
    static std::string getVersionedFilename(const std::string& version, FragmentType type,
                                            ZempPart::PartType partType);

  private:
    static constexpr unsigned NothingForeign = std::numeric_limits<unsigned>::max();

    void initRange();

    FragmentType mFragmentType;
    ZempPart::PartType mZempPartType = ZempPart::UnspecifiedPart;
    unsigned int mRangeStart;
    unsigned int mRangeEnd;
    std::string mFilename;
    std::atomic<unsigned int> mFileSize; // set by the downloader, read by the main thread at any time
    unsigned int mForeignFrom = NothingForeign;
    bool mFoundInScan = false;
    bool mFetchedSinceStart = false;
    const bool mIsExistingFile;
    bool mFullBlobNeeded = false;
};

#endif
