// From YCbCr of 8 bits to RGB by the matrices of ITU-R Recommendations BT.601, BT.709 and BT.2020 (non-constant
// luminance) in either range, as coefficients that the kernels take.
#pragma once

#include <algorithm>
#include <cstdint>

#include "base/ColourSignal.h"

namespace corvane::kernels {

struct Rgb {
    uint8_t red;
    uint8_t green;
    uint8_t blue;
};

// With c = C - 128. Products are those of a fixed-point unit: (a b + 2^14) >> 15 with one factor shifted up.
//   luma(Y)       = ((Y - black) << 7) * luma    in 1/64
//   term(f, c)    = (c << 8) * f                 in 1/64
//   R, G, B       = (luma + terms + 32) >> 6, clamped to 0 to 255
// The result is within 0.53 of the real number that the Recommendation gives.
struct ColourMatrix {
    int16_t black;    // the Y of black
    int16_t luma;     // 14 fractional bits
    int16_t redV;     // 13 fractional bits, as the following
    int16_t greenU;
    int16_t greenV;
    int16_t blueU;

    constexpr Rgb ToRgb(int32_t y, int32_t u, int32_t v) const {
        const int32_t scaled = ((y - black) * luma + 128) >> 8;
        return {Clamp(scaled + Term(redV, v)), Clamp(scaled + Term(greenU, u) + Term(greenV, v)),
                Clamp(scaled + Term(blueU, u))};
    }

private:
    static constexpr int32_t Term(int32_t factor, int32_t chroma) { return ((chroma - 128) * factor + 64) >> 7; }
    static constexpr uint8_t Clamp(int32_t sum) { return static_cast<uint8_t>(std::clamp((sum + 32) >> 6, 0, 255)); }
};

// The weights of red and blue in luma; green has the rest of 1.
struct LumaWeights {
    double red;
    double blue;
    constexpr double Green() const { return 1 - red - blue; }
};

constexpr LumaWeights WeightsOf(ColourSignal::Matrix matrix) {
    switch (matrix) {
    case ColourSignal::Matrix::Bt709:
        return {0.2126, 0.0722};
    case ColourSignal::Matrix::Bt2020:
        return {0.2627, 0.0593};
    case ColourSignal::Matrix::Bt601:
        break;
    }
    return {0.299, 0.114};
}

// The matrix as real numbers: R = luma (Y - black) + redV (V - 128), and so on.
struct RealMatrix {
    double black, luma, redV, greenU, greenV, blueU;
};

constexpr RealMatrix RealMatrixOf(const ColourSignal& signal) {
    const LumaWeights weights = WeightsOf(signal.matrix);
    const double chroma = signal.fullRange ? 1 : 255.0 / 224;
    const double redV = 2 * (1 - weights.red) * chroma;
    const double blueU = 2 * (1 - weights.blue) * chroma;
    return {signal.fullRange ? 0.0 : 16.0,           signal.fullRange ? 1 : 255.0 / 219,    redV,
            -blueU * weights.blue / weights.Green(), -redV * weights.red / weights.Green(), blueU};
}

// Rounds to the nearest multiple of 1 / `unit`.
constexpr int32_t Fixed(double value, int32_t unit) {
    const double scaled = value * unit;
    return static_cast<int32_t>(scaled < 0 ? scaled - 0.5 : scaled + 0.5);
}

constexpr ColourMatrix MakeMatrix(const ColourSignal& signal) {
    const RealMatrix real = RealMatrixOf(signal);
    const auto word = [](double value, int32_t unit) { return static_cast<int16_t>(Fixed(value, unit)); };
    constexpr int32_t kChroma = 1 << 13;
    return {word(real.black, 1),        word(real.luma, 1 << 14),   word(real.redV, kChroma),
            word(real.greenU, kChroma), word(real.greenV, kChroma), word(real.blueU, kChroma)};
}

// By matrix, limited range first.
inline constexpr ColourMatrix kColourMatrices[3][2] = {
    {MakeMatrix({ColourSignal::Matrix::Bt601, false}), MakeMatrix({ColourSignal::Matrix::Bt601, true})},
    {MakeMatrix({ColourSignal::Matrix::Bt709, false}), MakeMatrix({ColourSignal::Matrix::Bt709, true})},
    {MakeMatrix({ColourSignal::Matrix::Bt2020, false}), MakeMatrix({ColourSignal::Matrix::Bt2020, true})}};

// The reference stays valid.
constexpr const ColourMatrix& MatrixOf(const ColourSignal& signal) {
    return kColourMatrices[static_cast<size_t>(signal.matrix)][signal.fullRange ? 1 : 0];
}

// Null for full-range BT.601, which YCbCrToRGB computes without a matrix.
constexpr const ColourMatrix* MatrixBeside(const ColourSignal& signal) {
    return signal == ColourSignal() ? nullptr : &MatrixOf(signal);
}

}    // namespace corvane::kernels
