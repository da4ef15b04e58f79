#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "decoders/VideoDecoderHolder.h"
#include "support/FieldStream.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::Bytes;
using test::operator+;
using test::FieldStream;
using test::kFieldGop;
using test::kFieldPictures;

// The numbers of the pictures that show, each with both its fields and the time of its first.
std::vector<int> Shown(const FieldStream& stream, uint32_t threads) {
    VideoDecoderHolder holder;
    holder.SetThreads(threads);
    std::vector<int> shown;
    for (const test::FieldUnit& field : stream) {
        uint32_t got = 0;
        FramePtr input;
        const bool had = holder.CurrentInput(input);
        const bool key = field.picture % kFieldGop == 0 && !field.bottom;
        holder.Decode(
            test::MakeFrame(CORVANE_STREAM_H264, field.bytes, key, 40 * field.picture + (field.bottom ? 20 : 0)), &got);
        const bool has = holder.CurrentInput(input);
        EXPECT_TRUE(has == had || got != 0 || field.bottom);    // a field that waits ends no picture
        if (got == 0)
            continue;
        const int picture = static_cast<int>(TimeMs(*input) / 40);
        EXPECT_EQ(TimeMs(*input) % 40, 0);
        EXPECT_EQ(input->IsKeyFrame(), picture % kFieldGop == 0);
        const DecodedFrame& frame = holder.CurrentFrame();
        for (uint32_t row = 0; row < 32; ++row)
            EXPECT_EQ(frame.planes[0][row * frame.strides[0] + 31], test::FieldValue(picture, row % 2 != 0))
                << picture << row;
        shown.push_back(picture);
    }
    return shown;
}

TEST(UnitGatherer, FieldsBecomePictures) {
    const auto joined = [](FieldStream& s) {
        for (auto at = s.begin(); at != s.end(); s.erase(++at))
            at->bytes = at->bytes + at[1].bytes;
    };
    const auto split = [](FieldStream& s) {
        for (int key = 2 * (kFieldPictures - kFieldGop); key >= 0; key -= 2 * kFieldGop) {
            s.insert(s.begin() + key, {key / 2, false, test::FieldParameterSets()});
            s[static_cast<size_t>(key) + 1].bytes = test::FieldSlice(key / 2, false);
        }
    };
    const struct {
        const char* name;
        std::function<void(FieldStream&)> change;
        std::vector<int> lost;
    } rows[] = {
        {"all fields", [](FieldStream&) {}, {}},
        {"both in one unit", joined, {}},
        {"parameter sets by themselves", split, {}},
        {"two second fields lost", [](FieldStream& s) { s.erase(s.erase(s.begin() + 11) + 3); }, {5, 7}},
        {"a first field lost", [](FieldStream& s) { s.erase(s.begin() + 10); }, {5}},
        {"a key frame's second field lost", [](FieldStream& s) { s.erase(s.begin() + 9); }, {4, 5, 6, 7}},
    };
    for (const auto& row : rows)
        for (const uint32_t threads : {1u, 3u}) {
            SCOPED_TRACE(testing::Message() << row.name << ", threads " << threads);
            FieldStream stream = test::MakeFields();
            row.change(stream);
            std::vector<int> wanted;
            for (int picture = 0; picture < kFieldPictures; ++picture)
                if (std::ranges::count(row.lost, picture) == 0)
                    wanted.push_back(picture);
            wanted.resize(wanted.size() - (threads - 1));
            EXPECT_EQ(Shown(stream, threads), wanted);
        }
}

}    // namespace
}    // namespace corvane
