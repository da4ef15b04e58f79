// H.264 pictures whose fields come in units of their own. No encoder here makes such a stream, so it is written by
// hand: every field is one value, in macroblocks that hold their samples as they are.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "decoders/VideoDecoderHolder.h"
#include "support/BitWriter.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::BitWriter;
using test::Bytes;
using test::operator+;

constexpr int kPictures = 12;
constexpr int kGop = 4;

struct Field {
    int picture;
    bool bottom;
    Bytes bytes;
};
using Stream = std::vector<Field>;

Bytes ParameterSets() {
    BitWriter sps, pps;
    sps.U(8, 77).U(16, 30).Ue(0).Ue(0).Ue(2).Ue(1).U(1, 0).Ue(1).Ue(0).U(2, 0).U(1, 1).U(2, 0);    // 32 x 32, fields
    pps.Ue(0).Ue(0).U(2, 0).Ue(0).Ue(0).Ue(0).U(3, 0).Se(0).Se(0).Se(0).U(3, 4);
    return sps.Unit({0x67}) + pps.Unit({0x68});
}

uint8_t Value(int picture, bool bottom) {
    return static_cast<uint8_t>(20 + 10 * picture + (bottom ? 5 : 0));
}

Bytes Slice(int picture, bool bottom) {
    const bool idr = picture % kGop == 0 && !bottom;
    BitWriter w;
    w.Ue(0).Ue(7).Ue(0).U(4, static_cast<uint64_t>(picture % kGop)).U(1, 1).U(1, bottom);
    if (idr)
        w.Ue(static_cast<uint64_t>(picture / kGop % 2));
    w.U(idr ? 2 : 1, 0).Se(0).Ue(1);
    for (int block = 0; block < 2; ++block) {
        w.Ue(25).Align();
        for (int sample = 0; sample < 384; ++sample)
            w.U(8, Value(picture, bottom));
    }
    return w.Unit({static_cast<uint8_t>(idr ? 0x65 : 0x61)});
}

Stream MakeFields() {
    Stream stream;
    for (int picture = 0; picture < kPictures; ++picture)
        for (const bool bottom : {false, true})
            stream.push_back({picture, bottom,
                              (picture % kGop == 0 && !bottom ? ParameterSets() : Bytes()) + Slice(picture, bottom)});
    return stream;
}

// The numbers of the pictures that show, each with both its fields and the time of its first.
std::vector<int> Shown(const Stream& stream, uint32_t threads) {
    VideoDecoderHolder holder;
    holder.SetThreads(threads);
    std::vector<int> shown;
    for (const Field& field : stream) {
        uint32_t got = 0;
        FramePtr input;
        const bool had = holder.CurrentInput(input);
        const bool key = field.picture % kGop == 0 && !field.bottom;
        holder.Decode(
            test::MakeFrame(CORVANE_STREAM_H264, field.bytes, key, 40 * field.picture + (field.bottom ? 20 : 0)), &got);
        const bool has = holder.CurrentInput(input);
        EXPECT_TRUE(has == had || got != 0 || field.bottom);    // a field that waits ends no picture
        if (got == 0)
            continue;
        const int picture = static_cast<int>(TimeMs(*input) / 40);
        EXPECT_EQ(TimeMs(*input) % 40, 0);
        EXPECT_EQ(input->IsKeyFrame(), picture % kGop == 0);
        const DecodedFrame& frame = holder.CurrentFrame();
        for (uint32_t row = 0; row < 32; ++row)
            EXPECT_EQ(frame.planes[0][row * frame.strides[0] + 31], Value(picture, row % 2 != 0)) << picture << row;
        shown.push_back(picture);
    }
    return shown;
}

TEST(UnitGatherer, FieldsBecomePictures) {
    const auto joined = [](Stream& s) {
        for (auto at = s.begin(); at != s.end(); s.erase(++at))
            at->bytes = at->bytes + at[1].bytes;
    };
    const auto split = [](Stream& s) {
        for (int key = 2 * (kPictures - kGop); key >= 0; key -= 2 * kGop) {
            s.insert(s.begin() + key, {key / 2, false, ParameterSets()});
            s[static_cast<size_t>(key) + 1].bytes = Slice(key / 2, false);
        }
    };
    const struct {
        const char* name;
        std::function<void(Stream&)> change;
        std::vector<int> lost;
    } rows[] = {
        {"all fields", [](Stream&) {}, {}},
        {"both in one unit", joined, {}},
        {"parameter sets by themselves", split, {}},
        {"two second fields lost", [](Stream& s) { s.erase(s.erase(s.begin() + 11) + 3); }, {5, 7}},
        {"a first field lost", [](Stream& s) { s.erase(s.begin() + 10); }, {5}},
        {"a key frame's second field lost", [](Stream& s) { s.erase(s.begin() + 9); }, {4, 5, 6, 7}},
    };
    for (const auto& row : rows)
        for (const uint32_t threads : {1u, 3u}) {
            SCOPED_TRACE(testing::Message() << row.name << ", threads " << threads);
            Stream stream = MakeFields();
            row.change(stream);
            std::vector<int> wanted;
            for (int picture = 0; picture < kPictures; ++picture)
                if (std::ranges::count(row.lost, picture) == 0)
                    wanted.push_back(picture);
            wanted.resize(wanted.size() - (threads - 1));
            EXPECT_EQ(Shown(stream, threads), wanted);
        }
}

}    // namespace
}    // namespace corvane
