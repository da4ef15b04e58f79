#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "filters/ChainFixture.h"
#include "filters/FilterDeInterlace.h"
#include "filters/FilterPixelFormatChange.h"
#include "filters/FilterResize.h"
#include "support/FailingAllocation.h"

namespace corvane {
namespace {

using namespace test;

struct Case {
    uint32_t width = 64, height = 48;
    uint32_t target_width = 64, target_height = 48;
    uint32_t dewarped_width = 64, dewarped_height = 48;
    bool nv12 = false;
    uint32_t format = PF_I420;
    size_t filters = 0;
    bool field_coded = false, interlaced = false, deinterlace = false;
    bool dewarp = false;

    std::string Name() const {
        return std::string(nv12 ? "nv12" : "i420") + " to " + std::to_string(format) + ", " +
               std::to_string(target_width) + "x" + std::to_string(target_height) + ", filters " +
               std::to_string(filters) + (field_coded ? ", field coded" : "") + (interlaced ? ", interlaced" : "") +
               (deinterlace ? ", smoothed" : "") + (dewarp ? ", dewarped" : "");
    }
};

// The chain in its plain form: each step into a new picture, a format change at the end in any case.
struct Oracle {
    int32_t result = 0;
    std::vector<uint8_t> visible;
    uint64_t scratch = 0;           // bytes that the chain needs beside source and destination
    bool last_is_filter = false;    // the last real step is a client filter

    explicit Oracle(const Case& c, const Decoded& decoded, const std::vector<IFilter*>& filters) {
        const bool smooth = c.interlaced && c.deinterlace;
        const bool weave = c.field_coded || smooth;
        const bool resize = (c.dewarp ? c.dewarped_width : c.width) != c.target_width ||
                            (c.dewarp ? c.dewarped_height : c.height) != c.target_height;
        const bool only_i420 = weave || c.dewarp || !filters.empty();
        const bool i420 = !c.nv12 || only_i420;
        const bool change = (i420 ? c.format != PF_I420 && c.format != PF_YV12 : c.format != uint32_t{PF_NV12});
        size_t steps = (weave ? 1 : 0) + (c.dewarp ? 1 : 0) + (resize ? 1 : 0) + filters.size() + (change ? 1 : 0);

        Picture current = decoded.picture;
        uint32_t width = c.width, height = c.height;
        // Runs one step into a new picture. All but the last of the counted steps need a scratch picture.
        const auto step = [&](IFilter& filter, uint32_t new_width, uint32_t new_height, uint32_t format,
                              uint64_t* need) {
            Image& to = *images.emplace_back(std::make_unique<Image>(new_width, new_height, format));
            FilterArgs args{&current, &to.picture, width, height};
            if (result == 0 && filter.Process(&args) < 0)
                result = -1;
            current = to.picture;
            width = new_width;
            height = new_height;
            if (need != nullptr && --steps > 0)
                *need = PictureBytes(PF_I420, width, height) + RowBytes(PF_I420, width);
        };
        uint64_t converted = 0, woven = 0, dewarped = 0, exchange[2] = {0, 0};
        size_t exchanges = 0;
        QMRX::Filter::FilterPixelFormatChange convert;
        if (c.nv12 && only_i420) {
            step(convert, width, height, PF_I420, nullptr);
            converted = PictureBytes(PF_I420, width, height) + RowBytes(PF_I420, width);
        }
        if (weave) {
            QMRX::Filter::FilterDeInterlace deinterlace;
            deinterlace.SetWeave(c.field_coded);
            deinterlace.SetSmooth(smooth);
            step(deinterlace, width, height, PF_I420, &woven);
            scratch += deinterlace.ScratchBytes();
        }
        if (c.dewarp) {
            struct : IFilter {
                int32_t Process(FilterArgs* args) override {
                    const auto image = [](const Picture& p, uint32_t w, uint32_t h) {
                        return TessaroImage{w,
                                            h,
                                            {static_cast<uint32_t>(p.stride[0]), static_cast<uint32_t>(p.stride[1]),
                                             static_cast<uint32_t>(p.stride[2])},
                                            0,
                                            {p.plane[0], p.plane[1], p.plane[2]},
                                            1};
                    };
                    FakeDewarp(image(*args->source, args->width, args->height),
                               image(*args->destination, to_width, to_height));
                    return 0;
                }
                uint32_t to_width, to_height;
            } dewarp;
            dewarp.to_width = c.dewarped_width;
            dewarp.to_height = c.dewarped_height;
            step(dewarp, c.dewarped_width, c.dewarped_height, PF_I420, &dewarped);
        }
        if (resize) {
            QMRX::Filter::FilterResize scale;
            scale.SetType(static_cast<uint32_t>(c.filters));
            scale.SetSize(c.target_width, c.target_height);
            step(scale, c.target_width, c.target_height, current.format, &exchange[exchanges++ % 2]);
            scratch += scale.ScratchBytes();
        }
        for (IFilter* filter : filters)
            step(*filter, width, height, PF_I420, &exchange[exchanges++ % 2]);
        last_is_filter = !filters.empty() && !change;
        step(convert, width, height, c.format, nullptr);
        visible = images.back()->Visible();
        scratch += converted + woven + dewarped + exchange[0] + exchange[1];
    }

private:
    std::vector<std::unique_ptr<Image>> images;
};

FramePtr FrameOf(const Case& c) {
    const FramePtr frame = c.dewarp ? LensFrame() : VideoFrame();
    if (c.field_coded)
        frame->RaiseFieldCoded();
    if (c.interlaced)
        frame->RaiseInterlaced();
    return frame;
}

// One chain for all cases in turn, so that scratch of an earlier case must go when the next does not use it.
void Compare(FilterChain& chain, const Case& c) {
    const Decoded decoded(c.width, c.height, c.nv12, c.format + c.width);
    const FramePtr frame = FrameOf(c);
    std::vector<AddFilter> filters{AddFilter(1), AddFilter(10), AddFilter(100)};
    ChainSettings settings;
    settings.deinterlace_enabled = c.deinterlace;
    settings.resize_type = static_cast<uint32_t>(c.filters);    // a kind of scaling for each number of filters
    for (size_t i = 0; i < c.filters; ++i)
        settings.client_filters.push_back(&filters[i]);
    Tessaro()->out_width = c.dewarped_width;
    Tessaro()->out_height = c.dewarped_height;

    const Oracle oracle(c, decoded, settings.client_filters);
    Image destination(c.target_width, c.target_height, c.format);
    chain.UpdateDewarp(*frame);
    const bool only_i420 = !c.nv12 || c.filters > 0 || c.field_coded || (c.interlaced && c.deinterlace) || c.dewarp;
    EXPECT_EQ(chain.PreferredFormat(settings, *frame, decoded.frame), only_i420 ? uint32_t{PF_I420} : uint32_t{PF_NV12})
        << c.Name();
    const int32_t result = chain.Run(settings, *frame, decoded.frame, destination.memory.Data(), destination.stride,
                                     c.format, c.target_width, c.target_height);
    EXPECT_EQ(result, oracle.result) << c.Name();
    EXPECT_TRUE(destination.Visible() == oracle.visible) << c.Name();
    EXPECT_EQ(chain.ScratchBytes(), oracle.scratch) << c.Name();
    if (oracle.last_is_filter) {
        EXPECT_EQ(filters[c.filters - 1].last_output, destination.picture.plane[0]) << c.Name();
    }
}

TEST(FilterChain, EveryRoadEqualsThePlainForm) {
    ASSERT_NE(Tessaro(), nullptr);
    FilterChain chain;
    for (unsigned marks = 0; marks < 4; ++marks) {
        for (unsigned road = 0; road < 16; ++road) {
            for (const uint32_t format : {uint32_t{PF_I420}, uint32_t{PF_NV12}, uint32_t{PF_YV12}, uint32_t{PF_YUY2},
                                          uint32_t{PF_RGB565}, uint32_t{PF_BGR24_FLIP}, uint32_t{PF_BGRA32}}) {
                for (const size_t filters : {0, 1, 3}) {
                    Case c;
                    c.format = format;
                    c.filters = filters;
                    c.field_coded = (marks & 1) != 0;
                    c.interlaced = (marks & 2) != 0;
                    c.nv12 = (road & 1) != 0;
                    c.dewarp = (road & 2) != 0;
                    c.deinterlace = (road & 8) != 0;
                    if ((road & 4) != 0) {
                        c.target_width = filters == 3 ? 160 : 80;    // at one height: only strides differ
                        c.target_height = 36;
                        // With the target's size, only the dewarp changes it.
                        c.dewarped_width = marks == 1 ? c.target_width : 48;
                        c.dewarped_height = marks == 1 ? 36 : 40;
                    }
                    Compare(chain, c);
                }
            }
        }
    }
}

// Odd sizes: the last row or column of some formats stays unwritten and the result says so, as in the plain form;
// nothing is written outside (under a sanitizer).
TEST(FilterChain, OddSizes) {
    FilterChain chain;
    for (const uint32_t width : {1u, 2u, 33u, 65u}) {
        for (const uint32_t height : {1u, 2u, 5u, 17u}) {
            for (const uint32_t format :
                 {uint32_t{PF_I420}, uint32_t{PF_NV12}, uint32_t{PF_YUY2}, uint32_t{PF_BGR24}, uint32_t{PF_BGRA32}}) {
                for (unsigned road = 0; road < 8; ++road) {
                    Case c;
                    c.width = c.target_width = c.dewarped_width = width;
                    c.height = c.target_height = c.dewarped_height = height;
                    c.format = format;
                    c.nv12 = (road & 1) != 0;
                    c.filters = (road & 2) != 0 ? 2 : 0;
                    if ((road & 4) != 0) {
                        c.target_width = width + 6;
                        c.target_height = height + 2;
                    }
                    Compare(chain, c);
                }
            }
        }
    }
}

int32_t RunOnce(FilterChain& chain, const ChainSettings& settings, const MediaFrameImpl& frame, const Decoded& decoded,
                Image& to) {
    return chain.Run(settings, frame, decoded.frame, to.memory.Data(), to.stride, to.format, to.width, to.height);
}

TEST(FilterChain, FailingStepEndsTheRun) {
    FilterChain chain;
    const Decoded decoded(64, 48, true);
    const FramePtr frame = VideoFrame();
    Image to(32, 24, PF_BGR24);
    for (const bool throws : {false, true}) {
        AddFilter first(1), second(2), third(3);
        ChainSettings settings;
        settings.client_filters = {&first, &second, &third};
        second.result = throws ? 0 : -5;
        second.throws = throws;
        EXPECT_EQ(RunOnce(chain, settings, *frame, decoded, to), -1);
        EXPECT_EQ(first.calls, 1);
        EXPECT_EQ(second.calls, 1);
        EXPECT_EQ(third.calls, 0);
        second.result = 0;
        second.throws = false;
        EXPECT_EQ(RunOnce(chain, settings, *frame, decoded, to), 0);
    }
    const ChainSettings none;
    FramePtr flat = VideoFrame();
    flat->RaiseInterlaced();
    ChainSettings smooth;
    smooth.deinterlace_enabled = true;
    EXPECT_EQ(RunOnce(chain, smooth, *flat, Decoded(64, 4, false), to), -1);    // chroma of 2 rows cannot be smoothed

    for (const uint32_t bad : {0u, 2u, 18u, UINT32_MAX}) {
        EXPECT_EQ(chain.Run(none, *frame, decoded.frame, to.memory.Data(), to.stride, bad, 32, 24), -1) << bad;
    }
    for (const auto& [width, height] :
         {std::pair{0u, 24u}, {32u, 0u}, {16385u, 1u}, {16384u, 4097u}, {UINT32_MAX, UINT32_MAX}}) {
        EXPECT_EQ(chain.Run(none, *frame, decoded.frame, to.memory.Data(), to.stride, PF_I420, width, height), -1);
        DecodedFrame hostile = decoded.frame;
        hostile.width = width;
        hostile.height = height;
        EXPECT_EQ(chain.Run(none, *frame, hostile, to.memory.Data(), to.stride, PF_BGR24, 32, 24), -1);
    }
    DecodedFrame hostile = decoded.frame;
    hostile.planes[1] = nullptr;
    EXPECT_EQ(chain.Run(none, *frame, hostile, to.memory.Data(), to.stride, PF_BGR24, 32, 24), -1);
}

// Each allocation on a road through all five scratch pictures fails in turn: -1, and the next picture is whole again.
TEST(FilterChain, FailedAllocations) {
    if (!allocation::Works())
        GTEST_SKIP() << "operator new belongs to a sanitizer";
    Case c;
    c.nv12 = c.field_coded = c.interlaced = c.deinterlace = c.dewarp = true;
    c.format = PF_BGRA32;
    c.filters = 3;
    c.target_width = 80;
    const FramePtr frame = FrameOf(c);
    const Decoded decoded(c.width, c.height, c.nv12);
    AddFilter first(1), second(2), third(3);
    ChainSettings settings;
    settings.client_filters = {&first, &second, &third};
    settings.deinterlace_enabled = true;
    settings.resize_type = 2;
    Image to(c.target_width, c.target_height, c.format);
    uint64_t failures = 0;
    for (int32_t result = -1; result != 0; ++failures) {
        ASSERT_LT(failures, 50u);
        FilterChain chain;
        chain.UpdateDewarp(*frame);
        allocation::FailAt(failures + 1);
        result = RunOnce(chain, settings, *frame, decoded, to);
        const bool failed = allocation::Stop() > failures;
        if (result == 0 && failed)
            result = 1;    // a kind of scaling that could not be made: the present one serves
        EXPECT_TRUE(result == 0 || failed);
        EXPECT_EQ(RunOnce(chain, settings, *frame, decoded, to), 0);
    }
    EXPECT_GT(failures, 6u);    // five scratch pictures and the woven one
}

TEST(PictureLayout, PlanesAndSizes) {
    const struct {
        uint32_t format, width, height, row;
        uint64_t size;
        ptrdiff_t second, third;    // offsets, 0 for none
        int32_t second_stride;
    } rows[] = {
        {PF_I420, 65, 10, 128, 1920, 1280, 1600, 64},
        {PF_YV12, 65, 10, 128, 1920, 1600, 1280, 64},
        {PF_NV12, 33, 10, 64, 960, 640, 0, 64},
        {PF_YUY2, 17, 3, 64, 192, 0, 0, 0},
        {PF_UYVY, 16, 3, 32, 96, 0, 0, 0},
        {PF_RGB555, 3, 2, 8, 16, 0, 0, 0},
        {PF_BGR565, 1, 2, 4, 8, 0, 0, 0},
        {PF_BGR24, 5, 2, 16, 32, 0, 0, 0},
        {PF_BGR24_FLIP, 1, 2, 4, 8, 0, 0, 0},
        {PF_RGB24, 4, 1, 12, 12, 0, 0, 0},
        {PF_BGRA32, 5, 2, 20, 40, 0, 0, 0},
        {PF_I420, 16384, 4096, 16384, 100'663'296, 67'108'864, 83'886'080, 8192},
        {PF_BGRA32, 4096, 16384, 16384, 268'435'456, 0, 0, 0},
        {PF_I420, 16384, 4097, 16384, 0, 67'125'248, 83'906'560, 8192},
        {PF_I420, 16385, 1, 0, 0, 0, 0, 0},
        {PF_BGR24, 1, 16385, 4, 0, 0, 0, 0},
        {2, 64, 64, 0, 0, 0, 0, 0},
        {PF_I420, UINT32_MAX, UINT32_MAX, 0, 0, 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.format << " " << row.width << "x" << row.height);
        EXPECT_EQ(RowBytes(row.format, row.width), row.row);
        EXPECT_EQ(PictureBytes(row.format, row.width, row.height), row.size);
        if (row.row == 0)
            continue;
        uint8_t byte;
        Picture picture;
        FillPicture(picture, &byte, row.row, row.height, row.format);
        EXPECT_EQ(picture.format, row.format == PF_YV12 ? uint32_t{PF_I420} : row.format);
        const auto offset = [&](int i) {
            return picture.plane[i] == nullptr
                       ? 0
                       : reinterpret_cast<intptr_t>(picture.plane[i]) - reinterpret_cast<intptr_t>(&byte);
        };
        EXPECT_EQ(offset(1), row.second);
        EXPECT_EQ(offset(2), row.third);
        EXPECT_EQ(picture.stride[1], row.second_stride);
        EXPECT_EQ(picture.stride[2], row.third != 0 ? row.second_stride : 0);
    }
}

}    // namespace
}    // namespace corvane
