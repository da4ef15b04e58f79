#include "FieldCheck.h"

#include <algorithm>
#include <iterator>

#include "Bits.h"

namespace movarix {

namespace {

// Without the bytes that keep start codes from the payload.
Bytes WithoutEmulation(const View& unit) {
    Bytes bytes;
    uint32_t zeros = 0;
    for (size_t at = 0; at < unit.size; ++at) {
        const uint8_t byte = unit.data[at];
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        bytes.push_back(byte);
    }
    return bytes;
}

// A scaling list (Recommendation H.264, 7.3.2.1.1.1), whose values do not count here.
void SkipScalingList(Bits& bits, int size) {
    int last = 8, next = 8;
    for (int at = 0; at < size && !bits.IsOver(); ++at) {
        if (next != 0) {
            const uint32_t code = bits.Golomb();
            const int delta = static_cast<int>((code + 1) / 2) * ((code & 1) != 0 ? 1 : -1);
            next = (last + delta + 256) & 255;
        }
        last = next == 0 ? last : next;
    }
}

// What the high profiles have more.
void SkipChroma(Bits& bits) {
    const uint32_t chroma = bits.Golomb();
    if (chroma == 3)
        bits.Take(1);
    bits.Golomb();
    bits.Golomb();
    bits.Take(1);
    if (bits.Take(1) == 0)
        return;
    for (int list = 0; list < (chroma == 3 ? 12 : 8); ++list)
        if (bits.Take(1) != 0)
            SkipScalingList(bits, list < 6 ? 16 : 64);
}

}    // namespace

bool MayHaveFields(const View& set) {
    constexpr uint32_t kPlainProfiles[] = {66, 77, 88};
    const Bytes bytes = WithoutEmulation(set);
    Bits bits({bytes.data(), bytes.size()});
    bits.Take(8);
    const uint32_t profile = bits.Take(8);
    bits.Take(16);
    bits.Golomb();
    if (std::find(std::begin(kPlainProfiles), std::end(kPlainProfiles), profile) == std::end(kPlainProfiles))
        SkipChroma(bits);
    bits.Golomb();
    const uint32_t order = bits.Golomb();
    if (order == 0) {
        bits.Golomb();
    } else if (order == 1) {
        bits.Take(1);
        bits.Golomb();
        bits.Golomb();
        for (uint32_t count = bits.Golomb(); count > 0 && !bits.IsOver(); --count)
            bits.Golomb();
    }
    bits.Golomb();
    bits.Take(1);
    bits.Golomb();
    bits.Golomb();
    return bits.IsOver() || bits.Take(1) == 0;    // frame_mbs_only_flag
}

}    // namespace movarix
