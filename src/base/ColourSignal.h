// The colours that a stream signals for its pictures: the luma coefficients of Y, Cb and Cr, and their range.
#pragma once

#include <cstdint>

namespace corvane {

struct ColourSignal {
    enum class Matrix : uint8_t {
        Bt601,     // ITU-R Recommendation BT.601
        Bt709,     // BT.709
        Bt2020,    // BT.2020 with non-constant luminance
    };

    Matrix matrix = Matrix::Bt601;
    bool fullRange = true;    // Y, Cb and Cr from 0 to 255; else Y from 16 to 235, Cb and Cr from 16 to 240

    bool operator==(const ColourSignal&) const = default;
};

}    // namespace corvane
