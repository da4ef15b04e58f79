// The decoder of Recommendation G.722.1: blocks of 20 ms at 16000 Hz. Floating point; the Recommendation's own decoder
// is in fixed point, and differs by rounding.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "decoders/G7221Tables.h"

struct AVTXContext;

namespace corvane {

class G7221Kernel {
public:
    static constexpr uint32_t kSamples = 320;      // of a block
    static constexpr uint32_t kMostBytes = 80;     // of a block
    static constexpr uint32_t kLeastBytes = 40;    // room for the powers and the control bits of any block

    // Null without memory.
    static std::unique_ptr<G7221Kernel> Make() noexcept;
    ~G7221Kernel();
    G7221Kernel(const G7221Kernel&) = delete;
    G7221Kernel& operator=(const G7221Kernel&) = delete;

    // Decodes one block of kLeastBytes to kMostBytes; the Recommendation has 60 (24 kbit/s) and 80 (32 kbit/s), which
    // may change from block to block. In the place of a damaged block comes the one before, and then silence.
    void Decode(const uint8_t* block, uint32_t bytes, int16_t* samples);

private:
    static constexpr size_t kRegionSize = 20;
    static constexpr size_t kCoded = g7221::kRegions * kRegionSize;    // coefficients; those above 7 kHz are 0

    class Bits;
    struct Regions {
        std::array<int, g7221::kRegions> power;    // in steps of 3 dB; 0: a deviation of 1
        std::array<int, g7221::kRegions> category;
    };
    using Coefficients = std::array<float, kSamples>;
    using TransformFunction = void (*)(AVTXContext*, void* out, void* in, ptrdiff_t stride);

    G7221Kernel() = default;
    bool ReadBlock(const uint8_t* block, uint32_t bytes);
    bool ReadRegion(Bits& bits, int category, float deviation, float* coefficients) const;
    void FillWithNoise(int category, float deviation, float* coefficients);
    uint32_t NextRandom();
    void Synthesise(int16_t* samples);

    AVTXContext* m_transform = nullptr;
    TransformFunction m_run = nullptr;
    alignas(64) Coefficients m_coefficients{};    // of the block at hand
    alignas(64) Coefficients m_transformed{};     // and its transform
    Coefficients m_last{};                        // of the last good block; 0 after a damaged one
    std::array<float, kSamples / 2> m_overlap{};
    std::array<float, kSamples> m_window{};
    std::array<uint16_t, 4> m_random{1, 1, 1, 1};    // newest first
};

}    // namespace corvane
