// H.264 pictures whose fields come in units of their own. No encoder here makes such a stream, so it is written by
// hand: 32 x 32, every field is one value, in macroblocks that hold their samples as they are.
#pragma once

#include <cstdint>
#include <vector>

#include "support/BitWriter.h"

namespace corvane::test {

inline constexpr int kFieldPictures = 12;
inline constexpr int kFieldGop = 4;

struct FieldUnit {
    int picture;
    bool bottom;
    Bytes bytes;
};
using FieldStream = std::vector<FieldUnit>;

inline Bytes FieldParameterSets() {
    BitWriter sps;
    sps.U(8, 77).U(16, 30).Ue(0).Ue(0).Ue(2).Ue(1).U(1, 0).Ue(1).Ue(0).U(2, 0).U(1, 1).U(2, 0);    // 32 x 32, fields
    const auto pps = [](uint64_t id) {    // second fields have one of their own
        return BitWriter().Ue(id).Ue(0).U(2, 0).Ue(0).Ue(0).Ue(0).U(3, 0).Se(0).Se(0).Se(0).U(3, 4).Unit({0x68});
    };
    return sps.Unit({0x67}) + pps(0) + pps(1);
}

inline uint8_t FieldValue(int picture, bool bottom) {
    return static_cast<uint8_t>(20 + 10 * picture + (bottom ? 5 : 0));
}

inline Bytes FieldSlice(int picture, bool bottom) {
    const bool idr = picture % kFieldGop == 0 && !bottom;
    BitWriter w;
    w.Ue(0).Ue(7).Ue(bottom ? 1 : 0).U(4, static_cast<uint64_t>(picture % kFieldGop)).U(1, 1).U(1, bottom);
    if (idr)
        w.Ue(static_cast<uint64_t>(picture / kFieldGop % 2));
    w.U(idr ? 2 : 1, 0).Se(0).Ue(1);
    for (int block = 0; block < 2; ++block) {
        w.Ue(25).Align();
        for (int sample = 0; sample < 384; ++sample)
            w.U(8, FieldValue(picture, bottom));
    }
    return w.Unit({static_cast<uint8_t>(idr ? 0x65 : 0x61)});
}

inline FieldStream MakeFields() {
    FieldStream stream;
    for (int picture = 0; picture < kFieldPictures; ++picture)
        for (const bool bottom : {false, true})
            stream.push_back(
                {picture, bottom,
                 (picture % kFieldGop == 0 && !bottom ? FieldParameterSets() : Bytes()) + FieldSlice(picture, bottom)});
    return stream;
}

}    // namespace corvane::test
