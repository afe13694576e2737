// The mutator of inputs in the ZEMP container.

#include "fuzz/Container.h"
#include "fuzz/FuzzTarget.h"
#include "image/ZempFormat.h"
#include <algorithm>
#include <iterator>
#include <string>

namespace fuzz {

namespace {

constexpr uint32_t InterestingNumbers[] = {
    0,   1,    2,    3,    4,     5,     15,         16,         31,         32,         33,
    35,  36,   63,   64,   65,    75,    76,         77,         127,        128,        255,
    256, 2963, 2964, 5119, 32767, 65535, 0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff,
};
constexpr const char* Names[] = {"suum",   "release", "kernel",   "kernel4812", "root", "app",
                                 "3rdapp", "other",   "SUU data", "SUU data 2", "",     "0123456789abcdef"};
constexpr uint16_t Types[] = {ZempFormat::ReleaseHeaderType, ZempFormat::BlobType, ZempFormat::SwBlobType, 0,
                              2};

class Mutator {
  public:
    Mutator(Bytes& bytes, size_t maxSize, unsigned seed, Layout layout)
        : mBytes(bytes), mMaxSize(maxSize), mLayout(layout), mRandom(seed) {}

    void run() {
        const size_t changes = 1 + below(3);
        for (size_t i = 0; i < changes; ++i)
            changeOnce();
        if (below(12) == 0)
            return;
        mend(mBytes, mLayout, below(4) == 0);
        if (below(10) == 0 && !mBytes.empty()) // one fault in a good input
            mBytes[below(mBytes.size())] ^= static_cast<uint8_t>(1U << below(8));
    }

  private:
    void changeOnce() {
        const std::vector<Extent> parts = findParts(mBytes, mLayout);
        switch (parts.empty() ? 0 : below(10)) {
        case 0:
            changeAnything();
            break;
        case 1:
        case 2:
        case 3:
            changeBody(parts[below(parts.size())]);
            break;
        case 4:
            changeLength(parts[below(parts.size())]);
            break;
        case 5:
            changeKind(parts[below(parts.size())]);
            break;
        case 6:
            copyPart(parts[below(parts.size())], parts[below(parts.size())]);
            break;
        case 7:
            removePart(parts[below(parts.size())]);
            break;
        case 8:
            changeMainHeader();
            break;
        default:
            mBytes.resize(below(mBytes.size() + 1)); // a download that was cut
        }
    }

    size_t below(size_t limit) { return mRandom() % limit; }

    Bytes blindlyChanged(const Bytes& bytes, size_t maxSize) {
        Bytes changed(bytes);
        changed.resize(std::max(maxSize, size_t{1}));
        changed.resize(LLVMFuzzerMutate(changed.data(), bytes.size(), changed.size()));
        return changed;
    }

    void changeAnything() { mBytes = blindlyChanged(mBytes, mMaxSize); }

    // Puts `bytes` in the place of those from `begin` to `end`, if there is room.
    void replace(size_t begin, size_t end, const Bytes& bytes) {
        end = std::min(end, mBytes.size());
        begin = std::min(begin, end);
        if (mBytes.size() - (end - begin) + bytes.size() > mMaxSize)
            return;
        const auto at = mBytes.erase(mBytes.begin() + static_cast<std::ptrdiff_t>(begin),
                                     mBytes.begin() + static_cast<std::ptrdiff_t>(end));
        mBytes.insert(at, bytes.begin(), bytes.end());
    }

    Bytes copy(size_t begin, size_t end) const {
        end = std::min(end, mBytes.size());
        begin = std::min(begin, end);
        return {mBytes.begin() + static_cast<std::ptrdiff_t>(begin),
                mBytes.begin() + static_cast<std::ptrdiff_t>(end)};
    }

    // The length in the header follows, and so do the padding and the parts behind.
    void changeBody(const Extent& part) {
        Bytes body = copy(part.body, part.body + part.bodyLength);
        body = blindlyChanged(body, body.size() + std::max(mMaxSize, mBytes.size()) - mBytes.size());
        const auto length = static_cast<uint32_t>(body.size());
        body.resize(body.size() + ZempFormat::padding(length));
        const size_t padded = size_t{part.bodyLength} + ZempFormat::padding(part.bodyLength);
        const size_t before = mBytes.size();
        replace(part.body, part.body + padded, body);
        if (mBytes.size() != before || body.size() == padded)
            ZempFormat::putLe32(&mBytes[part.begin + offsetof(zemp_content_header_t, body_length)], length);
    }

    void changeLength(const Extent& part) {
        const uint32_t number = InterestingNumbers[below(std::size(InterestingNumbers))];
        uint8_t* const header = &mBytes[part.begin];
        if (below(2) == 0)
            ZempFormat::putLe16(header + offsetof(zemp_content_header_t, hdr_length),
                                static_cast<uint16_t>(number & 0xFFFFU));
        else
            ZempFormat::putLe32(header + offsetof(zemp_content_header_t, body_length), number);
    }

    void changeKind(const Extent& part) {
        uint8_t* const header = &mBytes[part.begin];
        if (below(3) == 0) {
            ZempFormat::putLe16(header + offsetof(zemp_content_header_t, type),
                                Types[below(std::size(Types))]);
            return;
        }
        char* const name = reinterpret_cast<char*>(header) + offsetof(zemp_content_header_t, name);
        const std::string chosen = Names[below(std::size(Names))];
        std::fill_n(name, sizeof zemp_content_header_t::name, '\0');
        chosen.copy(name, sizeof zemp_content_header_t::name);
    }

    void copyPart(const Extent& part, const Extent& before) {
        replace(before.begin, before.begin, copy(part.begin, part.next));
    }

    void removePart(const Extent& part) { replace(part.begin, part.next, {}); }

    void changeMainHeader() {
        if (mLayout == Layout::ContentPart)
            return;
        const size_t at = ZempFormat::HeaderOffset + below(sizeof(zemp_header_t));
        const uint32_t number = InterestingNumbers[below(std::size(InterestingNumbers))];
        if (at + sizeof number <= mBytes.size())
            ZempFormat::putLe32(&mBytes[at], number);
    }

    Bytes& mBytes;
    const size_t mMaxSize;
    const Layout mLayout;
    std::minstd_rand mRandom;
};

} // namespace

size_t mutateContainer(uint8_t* data, size_t size, size_t maxSize, unsigned seed, Layout layout) {
    Bytes bytes(data, data + size);
    Mutator(bytes, maxSize, seed, layout).run();
    bytes.resize(std::min(bytes.size(), maxSize));
    std::copy(bytes.begin(), bytes.end(), data);
    return bytes.size();
}

} // namespace fuzz
