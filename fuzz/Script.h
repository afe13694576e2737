// An input as a script: steps of few bytes, zeros behind its end.
#ifndef FUZZ_SCRIPT_H
#define FUZZ_SCRIPT_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

class Script {
  public:
    Script(const uint8_t* data, size_t size) : mNext(data), mEnd(data + size) {}

    bool isOver() const { return mNext == mEnd; }
    uint8_t byte() { return isOver() ? uint8_t{0} : *mNext++; }

    // A place in `size` bytes, which are not none.
    size_t placeIn(size_t size) {
        const unsigned high = byte();
        return (high << 8 | byte()) % size;
    }

    // One bit of the bytes, if there are any.
    void flipIn(std::vector<uint8_t>& bytes) {
        const size_t place = bytes.empty() ? 0 : placeIn(bytes.size());
        if (!bytes.empty())
            bytes[place] ^= static_cast<uint8_t>(1U << byte() % 8);
    }

  private:
    const uint8_t* mNext;
    const uint8_t* const mEnd;
};

} // namespace fuzz

#endif
