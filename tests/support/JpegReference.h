// The scans of a baseline JPEG stream straight from ITU-T T.81, a bit at a time: what the encoder's bytes are compared
// with.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>
#include <utility>

#include "corvane/jpegenc.h"
#include "kernels/JpegBlocks.h"

namespace corvane::test {

class JpegReference {
public:
    // For the options of the encoder, and the tables that its stream states in front of the first scan.
    JpegReference(const JPEGEncOptions& options, const std::string& stream) : o(options) {
        const size_t sets = o.Colour == 1 ? 2 : 1, down = o.Subsampling == 2 ? 1 : 2;
        const auto* const bytes = reinterpret_cast<const uint8_t*>(stream.data());
        const uint8_t *divisors = nullptr, *codes = nullptr;
        size_t at = 2;
        for (; bytes[at + 1] != 0xDA; at += 2u + bytes[at + 2] * 256u + bytes[at + 3])
            if (bytes[at + 1] == 0xDB)
                divisors = bytes + at + 5;
            else if (bytes[at + 1] == 0xC4)
                codes = bytes + at + 5;
        m_out = stream.substr(0, at);
        const uint32_t chroma = o.InputWidth / 2 * (o.VertOffset / static_cast<uint32_t>(down)) + o.HorzOffset / 2;
        const uint32_t halfWidth = (o.EncodingWidth + 1) / 2, halfRow = (o.InputWidth + 1) / 2;
        const auto halfHeight = static_cast<uint32_t>((o.EncodingHeight + down - 1) / down);
        const auto from = [](const void* plane, size_t offset) { return static_cast<const uint8_t*>(plane) + offset; };
        m_planes[0] = {from(o.PlaneY, size_t{o.InputWidth} * o.VertOffset + o.HorzOffset),
                       o.InputWidth,
                       o.EncodingWidth,
                       o.EncodingHeight,
                       divisors,
                       {codes, codes + sets * 29}};
        for (size_t i = 1; i < 2 * sets - 1; ++i)
            m_planes[i] = {from(i == 1 ? o.PlaneU : o.PlaneV, chroma), halfRow, halfWidth, halfHeight, divisors + 65,
                           {codes + 29, codes + 2 * 29 + 179}};
        const bool together = sets == 2 && o.Interleaved == 1;
        for (uint32_t first = 0; first < 2 * sets - 1; first += together ? 3 : 1)
            Scan(first, together ? 3 : 1, together ? 2 : 1, together ? static_cast<uint32_t>(down) : 1);
        Align(1);
        m_out += "\xFF\xD9";
    }
    const std::string& Stream() const { return m_out; }

private:
    struct Plane {
        const uint8_t* samples;
        uint32_t step, width, height;
        const uint8_t* divisors;    // in zigzag order
        const uint8_t* codes[2];    // of DC and AC: how many of each length, then their symbols
    };

    void Bit(uint32_t bit) {
        m_byte = m_byte << 1 | bit;
        if (++m_bits % 8 == 0)
            m_out += (m_byte & 255) == 255 ? std::string("\xFF\0", 2) : std::string(1, static_cast<char>(m_byte));
    }
    void Align(uint32_t bit) {
        while (m_bits % 8 != 0)
            Bit(bit);
    }

    // `across` and `high`: blocks of the first component in an MCU.
    void Scan(uint32_t first, uint32_t count, uint32_t across, uint32_t high) {
        Align(0);
        m_out += {'\xFF', '\xDA', 0, static_cast<char>(6 + 2 * count), static_cast<char>(count)};
        for (uint32_t i = first; i < first + count; ++i)
            m_out += {static_cast<char>(i + 1), i == 0 ? '\0' : '\x11'};
        m_out += {0, 63, 0};
        const uint32_t columns = (m_planes[first].width + 8 * across - 1) / (8 * across);
        const uint32_t rows = (m_planes[first].height + 8 * high - 1) / (8 * high);
        int16_t predictors[3] = {};
        for (uint32_t mcu = 0; mcu < columns * rows; ++mcu) {
            if (o.RestartInterval != 0 && mcu != 0 && mcu % o.RestartInterval == 0) {
                Align(0);
                m_out += {'\xFF', static_cast<char>(0xD0 + (mcu / o.RestartInterval - 1) % 8)};
                std::ranges::fill(predictors, int16_t{0});
            }
            const uint32_t x = mcu % columns, y = mcu / columns;
            for (uint32_t block = 0; block < across * high; ++block)
                Block(m_planes[first], x * across + block % across, y * high + block / across, predictors[first]);
            for (uint32_t i = first + 1; i < first + count; ++i)
                Block(m_planes[i], x, y, predictors[i]);
        }
    }

    void Block(const Plane& plane, uint32_t column, uint32_t row, int16_t& predictor) {
        static const auto kCosines = [] {    // in 1.15
            std::array<std::array<int32_t, 8>, 8> cosines;
            for (uint32_t u = 0; u < 8; ++u)
                for (uint32_t x = 0; x < 8; ++x)
                    cosines[u][x] = static_cast<int32_t>(
                        std::lround(32768 * std::cos(std::numbers::pi * (u == 0 ? 0.25 : (2 * x + 1) * u / 16.0))));
            return cosines;
        }();
        int16_t rows[8][8];
        for (uint32_t y = 0; y < 8; ++y)
            for (uint32_t u = 0; u < 8; ++u) {
                int32_t sum = 4096;
                for (uint32_t x = 0; x < 8 && 8 * column < plane.width && 8 * row < plane.height; ++x)
                    sum += kCosines[u][x] * plane.samples[std::min(8 * row + y, plane.height - 1) * size_t{plane.step} +
                                                          std::min(8 * column + x, plane.width - 1)];
                rows[y][u] = static_cast<int16_t>(sum >> 13);
            }
        uint32_t run = 0;
        for (uint32_t k = 0; k < 64; ++k) {
            const uint32_t place = kernels::kZigzag[k], divisor = plane.divisors[k];
            int32_t value = 0x40000;
            for (uint32_t y = 0; y < 8; ++y)
                value += kCosines[place / 8][y] * rows[y][place % 8];
            value = static_cast<int16_t>(value >> 19) - (k == 0 ? 1024 : 0);
            // By reciprocals, of which two are not rounded to the nearest.
            const long reciprocal = divisor == 9 ? 7281 : divisor == 12 ? 5462 : std::lround(65536.0 / divisor);
            value = static_cast<int32_t>((reciprocal * value + 32768 - (value < 0)) >> 16);
            if (k == 0) {
                const int32_t difference = value - std::exchange(predictor, static_cast<int16_t>(value));
                Symbol(plane.codes[0], 0, difference);
            } else if (value == 0) {
                ++run;
            } else {
                for (; run > 15; run -= 16)
                    Symbol(plane.codes[1], 15, 0);
                Symbol(plane.codes[1], std::exchange(run, 0), value);
            }
        }
        if (run > 0)
            Symbol(plane.codes[1], 0, 0);
    }

    // The code of the run and the value's category, then the value's own bits (F.1.2). Codes of a length follow each
    // other, and twice the next of them is the first of the next length (Annex C).
    void Symbol(const uint8_t* codes, uint32_t run, int32_t value) {
        uint32_t category = 0, code = 0, length = 0, left = codes[0];
        while (std::abs(value) >> category != 0)
            ++category;
        for (uint32_t rank = 0;; ++rank, ++code, --left) {
            for (; left == 0; code <<= 1)
                left = codes[++length];
            if (codes[16 + rank] == run * 16 + category)
                break;
        }
        for (uint32_t i = length + 1; i-- > 0;)
            Bit(code >> i & 1);
        for (uint32_t i = category; i-- > 0;)
            Bit(static_cast<uint32_t>(value < 0 ? value - 1 : value) >> i & 1);
    }

    const JPEGEncOptions o;
    std::string m_out;
    uint32_t m_byte = 0, m_bits = 0;
    Plane m_planes[3];
};

}    // namespace corvane::test
