#include "kernels/FullRangeBt601.h"

#include <algorithm>
#include <array>

#include "kernels/ColourMatrix.h"

namespace corvane::kernels {

namespace {

constexpr uint32_t kBlock = 512;    // chroma samples: their terms stay in the first-level cache
constexpr int32_t kOne = 1 << 16;
constexpr int32_t kHalf = kOne / 2;

// In 16.16: Y' = y (Y - black) + yU u + yV v, U' = uU u + uV v, V' = vU u + vV v, with u = U - 128 and v = V - 128.
struct PlaneMatrix {
    int32_t black, y, yU, yV, uU, uV, vU, vV;
};

constexpr PlaneMatrix MakePlaneMatrix(const ColourSignal& from) {
    constexpr LumaWeights weights = WeightsOf(ColourSignal::Matrix::Bt601);
    const RealMatrix rgb = RealMatrixOf(from);
    const double yU = weights.Green() * rgb.greenU + weights.blue * rgb.blueU;
    const double yV = weights.red * rgb.redV + weights.Green() * rgb.greenV;
    const double blue = 2 * (1 - weights.blue);
    const double red = 2 * (1 - weights.red);
    return {Fixed(rgb.black, 1),
            Fixed(rgb.luma, kOne),
            Fixed(yU, kOne),
            Fixed(yV, kOne),
            Fixed((rgb.blueU - yU) / blue, kOne),
            Fixed(-yV / blue, kOne),
            Fixed(-yU / red, kOne),
            Fixed((rgb.redV - yV) / red, kOne)};
}

uint8_t Clamp(int32_t fixed) {
    return static_cast<uint8_t>(std::clamp(fixed >> 16, 0, 255));
}

// `terms`: the sum that chroma adds to each pair of pixels, with the half that rounds.
void ConvertLuma(const PlaneMatrix& matrix, const int32_t* terms, uint8_t* y, uint32_t count) {
    const auto convert = [&](uint8_t& sample, int32_t term) {
        sample = Clamp((sample - matrix.black) * matrix.y + term);
    };
    for (size_t i = 0; i < count / 2; ++i) {
        convert(y[2 * i], terms[i]);
        convert(y[2 * i + 1], terms[i]);
    }
    if (count % 2 != 0)
        convert(y[count - 1], terms[count / 2]);
}

// Converts `count` samples of U and of V, and keeps the terms that they add to luma.
void ConvertChroma(const PlaneMatrix& matrix, uint8_t* u, uint8_t* v, uint32_t count, int32_t* terms) {
    constexpr int32_t kNeutral = (128 << 16) + kHalf;
    for (uint32_t i = 0; i < count; ++i) {
        const int32_t blue = u[i] - 128;
        const int32_t red = v[i] - 128;
        terms[i] = matrix.yU * blue + matrix.yV * red + kHalf;
        u[i] = Clamp(matrix.uU * blue + matrix.uV * red + kNeutral);
        v[i] = Clamp(matrix.vU * blue + matrix.vV * red + kNeutral);
    }
}

}    // namespace

void ToFullRangeBt601(const PictureView& picture) {
    const ColourSignal from = picture.colours.value_or(ColourSignal());
    if (from == ColourSignal())
        return;
    const PlaneMatrix matrix = MakePlaneMatrix(from);
    const uint32_t columns = picture.size.width / 2;
    const uint32_t rows = picture.size.height / 2;
    for (uint32_t row = 0; row == 0 || row < rows; ++row) {
        const uint32_t endLine = row + 1 < rows ? 2 * row + 2 : picture.size.height;
        uint8_t* const u = picture.plane[1] + static_cast<ptrdiff_t>(row) * picture.stride[1];
        uint8_t* const v = picture.plane[2] + static_cast<ptrdiff_t>(row) * picture.stride[2];
        for (uint32_t first = 0; first == 0 || first < columns; first += kBlock) {
            const uint32_t count = rows == 0 ? 0 : std::min(kBlock, columns - first);
            const uint32_t pixels = first + kBlock < columns ? 2 * kBlock : picture.size.width - 2 * first;
            std::array<int32_t, kBlock + 1> terms;    // and one for an odd column
            terms.fill(kHalf);
            ConvertChroma(matrix, u + first, v + first, count, terms.data());
            if (count > 0)
                terms[count] = terms[count - 1];
            for (uint32_t line = 2 * row; line < endLine; ++line)
                ConvertLuma(matrix, terms.data(), picture.Row(line) + size_t{2} * first, pixels);
        }
    }
}

}    // namespace corvane::kernels
