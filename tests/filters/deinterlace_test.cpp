#include <gtest/gtest.h>

#include <vector>

#include "corvane/corvane.h"
#include "filters/FilterDeInterlace.h"
#include "support/Plane.h"

namespace QMRX::Filter {
namespace {

using corvane::test::Fill;
using corvane::test::PoisonedPlane;
using corvane::test::SourcePlane;

// I420 whose every sample is ten times its row.
struct Fixture {
    Fixture(uint32_t width, uint32_t height)
        : y(width, height, 2, Fill::Rows, 0),
          u(width / 2, height / 2, 1, Fill::Rows, 0),
          v(width / 2, height / 2, 0, Fill::Rows, 0),
          out_y(width, height, 3),
          out_u(width / 2, height / 2, 2),
          out_v(width / 2, height / 2, 2),
          source{{y.Data(), u.Data(), v.Data()}, {y.Step(), u.Step(), v.Step()}, height, PF_I420},
          destination{
              {out_y.Data(), out_u.Data(), out_v.Data()}, {out_y.Step(), out_u.Step(), out_v.Step()}, height, PF_I420},
          args{&source, &destination, width, height} {}
    static std::vector<int> Column(const PoisonedPlane& plane, uint32_t x, uint32_t rows) {
        std::vector<int> column;
        for (uint32_t row = 0; row < rows; ++row)
            column.push_back(plane.At(x, row));
        return column;
    }
    SourcePlane y, u, v;
    PoisonedPlane out_y, out_u, out_v;
    Picture source, destination;
    FilterArgs args;
};

constexpr int kUnwritten = PoisonedPlane::kPoison;

TEST(DeInterlace, WeavesSmoothsAndDoesBoth) {
    struct {
        bool weave, smooth;
        uint32_t height;
        std::vector<int> luma, chroma;    // the column of each plane
    } const rows[] = {
        {true, false, 8, {0, 40, 10, 50, 20, 60, 30, 70}, {0, 20, 10, 30}},
        // Rows beyond whole fields stay unwritten.
        {true, false, 7, {0, 30, 10, 40, 20, 50, kUnwritten}, {0, 10, kUnwritten}},
        // A straight ramp is its own average.
        {false, true, 7, {0, 10, 20, 30, 40, 50, 60}, {0, 10, 20}},
        // (0 + 10) / 4 + 40 / 2 = 22.5 and so on, cut off.
        {true, true, 8, {0, 22, 27, 32, 37, 42, 47, 70}, {0, 12, 17, 30}},
    };
    for (const auto& row : rows) {
        Fixture fixture(34, row.height);
        FilterDeInterlace filter;
        filter.SetWeave(row.weave);
        filter.SetSmooth(row.smooth);
        EXPECT_EQ(filter.Process(&fixture.args), 0);
        for (const uint32_t x : {0u, 33u})
            EXPECT_EQ(Fixture::Column(fixture.out_y, x, row.height), row.luma)
                << "weave " << row.weave << " height " << row.height;
        EXPECT_EQ(Fixture::Column(fixture.out_u, 16, row.height / 2), row.chroma)
            << "weave " << row.weave << " height " << row.height;
        EXPECT_EQ(Fixture::Column(fixture.out_v, 0, row.height / 2), row.chroma)
            << "weave " << row.weave << " height " << row.height;
        EXPECT_EQ(fixture.out_y.At(34, 0), kUnwritten);
        EXPECT_EQ(filter.ScratchBytes(), row.weave && row.smooth ? 64u * row.height * 3 / 2 : 0u);
    }
}

TEST(DeInterlace, KeepsAndFreesItsPicture) {
    for (const bool drop_weave : {true, false}) {
        Fixture fixture(8, 8);
        FilterDeInterlace filter;
        filter.SetWeave(true);
        filter.SetSmooth(true);
        EXPECT_EQ(filter.Process(&fixture.args), 0);
        filter.SetWeave(true);
        filter.SetSmooth(true);
        EXPECT_GT(filter.ScratchBytes(), 0u);
        drop_weave ? filter.SetWeave(false) : filter.SetSmooth(false);
        EXPECT_EQ(filter.ScratchBytes(), 0u);
        Fixture larger(8, 16);
        filter.SetWeave(true);
        filter.SetSmooth(true);
        EXPECT_EQ(filter.Process(&fixture.args), 0);
        EXPECT_EQ(filter.Process(&larger.args), 0);
        EXPECT_EQ(filter.ScratchBytes(), 64u * 16 * 3 / 2);
    }
}

TEST(DeInterlace, Refusals) {
    FilterDeInterlace filter;
    Fixture good(8, 8), low(8, 2), low_chroma(8, 5);
    EXPECT_EQ(filter.Process(&good.args), -1);    // neither switch
    EXPECT_EQ(filter.Process(nullptr), -1);
    filter.SetSmooth(true);
    EXPECT_EQ(filter.Process(&low.args), -1);
    EXPECT_EQ(filter.Process(&low_chroma.args), -1);    // chroma of two rows
    EXPECT_EQ(low_chroma.out_y.At(0, 4), 40);           // luma was done before
    filter.SetWeave(true);
    good.args.width = good.args.height = 1u << 31;
    EXPECT_EQ(filter.Process(&good.args), static_cast<int32_t>(Status_OutOfMemory));
    good.args.width = good.args.height = 8;
    good.source.plane[2] = nullptr;
    EXPECT_EQ(filter.Process(&good.args), -1);
}

}    // namespace
}    // namespace QMRX::Filter
