// Planes for kernel and filter tests. Sources touch a page that cannot be read, with their last sample or with their
// first. Destinations stand in poison on all sides, and comparing them compares the poison.
#pragma once

#include "support/GuardedBytes.h"
#include "support/Testing.h"

namespace corvane::test {

enum class Fill { Random, Extremes, Slopes };

class SourcePlane {
public:
    // `padding`: bytes after the last sample that may be read.
    SourcePlane(uint32_t rowBytes, uint32_t rows, uint32_t gap, Fill fill, uint32_t seed,
                GuardedBytes::At at = GuardedBytes::At::End, uint32_t padding = 0)
        : m_step(rowBytes + gap),
          m_bytes(Bytes((rows == 0 ? 0 : size_t{m_step} * (rows - 1) + rowBytes) + padding, fill, seed), at) {}
    uint8_t* Data() const { return m_bytes.Data(); }
    uint8_t* Row(uint32_t y) const { return Data() + size_t{m_step} * y; }
    int32_t Step() const { return static_cast<int32_t>(m_step); }

private:
    static std::vector<uint8_t> Bytes(size_t size, Fill fill, uint32_t seed) {
        std::vector<uint8_t> bytes(size);
        std::mt19937 random(seed);
        constexpr uint8_t kExtremes[] = {0, 1, 127, 128, 254, 255};
        for (size_t at = 0; at < size; ++at)
            bytes[at] = fill == Fill::Random ? static_cast<uint8_t>(random())
                        : fill == Fill::Extremes
                            ? kExtremes[random() % 6]
                            : static_cast<uint8_t>(std::abs(int(at % 97) - 48) * 5 + int(seed % 9));
        return bytes;
    }

    uint32_t m_step;
    GuardedBytes m_bytes;
};

class PoisonedPlane {
public:
    static constexpr uint8_t kPoison = 0xA5;

    // One odd byte and one whole row stand in front; or, `aligned`, what puts the plane, not its copy, on 64 bytes.
    PoisonedPlane(uint32_t rowBytes, uint32_t rows, uint32_t gap, bool aligned = false)
        : m_step(rowBytes + gap), m_bytes(size_t{m_step} * (rows + 2) + 64, kPoison), m_first(m_step + 1) {
        if (aligned)
            m_first += -(reinterpret_cast<uintptr_t>(m_bytes.data()) + m_first) & 63;
    }
    uint8_t* Data() { return m_bytes.data() + m_first; }
    uint8_t* Row(uint32_t y) { return Data() + size_t{m_step} * y; }
    int32_t Step() const { return static_cast<int32_t>(m_step); }
    uint8_t At(uint32_t x, uint32_t y) const { return m_bytes[m_first + size_t{y} * m_step + x]; }

    // Names the first byte that differs, from the start of the row in front of the plane.
    testing::AssertionResult Equals(const PoisonedPlane& wanted) const {
        const auto [own, other] = std::ranges::mismatch(m_bytes, wanted.m_bytes);
        if (own == m_bytes.end() && other == wanted.m_bytes.end())
            return testing::AssertionSuccess();
        const auto at = own - m_bytes.begin() - static_cast<ptrdiff_t>(m_first - m_step);
        return testing::AssertionFailure() << "byte " << at % m_step << " of row " << at / m_step - 1;
    }

private:
    uint32_t m_step;
    std::vector<uint8_t> m_bytes;
    size_t m_first;
};

}    // namespace corvane::test
