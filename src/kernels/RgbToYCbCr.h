// RGB to full-range YCbCr of the JFIF standard (BT.601), in 16.16 fixed point with the rounding folded in.
#pragma once

#include <array>
#include <cstdint>

namespace corvane::kernels {

using ColorTable = std::array<int32_t, 256>;

constexpr ColorTable MakeColorTable(int32_t factor, int32_t constant = 0) {
    ColorTable table{};
    for (int32_t i = 0; i < 256; ++i)
        table[static_cast<size_t>(i)] = factor * i + constant;
    return table;
}

inline constexpr ColorTable kRedLuma = MakeColorTable(19595);
inline constexpr ColorTable kGreenLuma = MakeColorTable(38470);
inline constexpr ColorTable kBlueLuma = MakeColorTable(7471, 32768);
inline constexpr ColorTable kRedCb = MakeColorTable(-11059);
inline constexpr ColorTable kGreenCb = MakeColorTable(-21709);
inline constexpr ColorTable kBlueCbRedCr = MakeColorTable(32768, 0x807FFF);    // the same for blue in Cb and red in Cr
inline constexpr ColorTable kGreenCr = MakeColorTable(-27439);
inline constexpr ColorTable kBlueCr = MakeColorTable(-5329);

constexpr uint32_t LumaOf(uint8_t red, uint8_t green, uint8_t blue) {
    return static_cast<uint32_t>((kRedLuma[red] + kGreenLuma[green] + kBlueLuma[blue]) >> 16);
}
constexpr uint32_t CbOf(uint8_t red, uint8_t green, uint8_t blue) {
    return static_cast<uint32_t>((kRedCb[red] + kGreenCb[green] + kBlueCbRedCr[blue]) >> 16);
}
constexpr uint32_t CrOf(uint8_t red, uint8_t green, uint8_t blue) {
    return static_cast<uint32_t>((kBlueCbRedCr[red] + kGreenCr[green] + kBlueCr[blue]) >> 16);
}

}    // namespace corvane::kernels
