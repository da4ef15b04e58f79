#include <deque>

#include "filters/ChainFixture.h"
#include "filters/FilterDeInterlace.h"
#include "filters/FilterPixelFormatChange.h"
#include "filters/FilterResize.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

// Adds a number to each sample of an I420 picture.
struct AddFilter final : IFilter {
    explicit AddFilter(uint8_t number) : addend(number) {}
    int32_t Process(FilterArgs* args) override {
        ++calls;
        if (throws)
            throw std::runtime_error("client");
        const Picture &from = *args->source, &to = *args->destination;
        if (from.format != PF_I420 || to.format != PF_I420 || from.plane[0] == to.plane[0])
            return -3;
        FakeDewarp(ImageOf(from, args->width, args->height), ImageOf(to, args->width, args->height), addend);
        return result;
    }

    const uint8_t addend;
    int calls = 0;
    int32_t result = 0;
    bool throws = false;
};

// Sizes whose scratch pictures add up to different sums.
struct Case {
    uint32_t width = 64, height = 48, targetWidth = 64, targetHeight = 48, dewarpedWidth = 192, dewarpedHeight = 40;
    uint32_t format = PF_I420;
    bool nv12 = false, fieldCoded = false, interlaced = false, deinterlace = false, dewarp = false;
    size_t filters = 0;    // the kind of scaling as well

    bool Smooths() const { return interlaced && deinterlace; }
    bool Deinterlaces() const { return fieldCoded || Smooths(); }
    bool OnlyI420() const { return Deinterlaces() || dewarp || filters > 0; }
    bool Resizes() const {
        return (dewarp ? dewarpedWidth : width) != targetWidth || (dewarp ? dewarpedHeight : height) != targetHeight;
    }
    FramePtr Frame() const {
        FramePtr frame = VideoFrame(dewarp);
        if (fieldCoded)
            frame->RaiseFieldCoded();
        if (interlaced)
            frame->RaiseInterlaced();
        return frame;
    }
};

// The chain in its plain form: each step into a new picture, a format change at the end in any case.
std::vector<uint8_t> PlainForm(const Case& c, const Decoded& decoded, std::span<AddFilter> filters, int32_t& result) {
    std::deque<Image> images;
    Picture current = decoded.picture;
    uint32_t width = c.width, height = c.height;
    const auto step = [&](auto process, uint32_t newWidth, uint32_t newHeight, uint32_t format) {
        Picture& to = images.emplace_back(newWidth, newHeight, format).picture;
        FilterArgs args{&current, &to, width, height};
        result = result == 0 && process(&args) == 0 ? 0 : -1;
        current = to;
        width = newWidth;
        height = newHeight;
    };
    const auto convert = [](FilterArgs* args) { return QMRX::Filter::FilterPixelFormatChange().Process(args); };
    if (c.nv12 && c.OnlyI420())
        step(convert, width, height, PF_I420);
    QMRX::Filter::FilterDeInterlace deinterlace;
    deinterlace.SetWeave(c.fieldCoded);
    deinterlace.SetSmooth(c.Smooths());
    if (c.Deinterlaces())
        step([&](FilterArgs* args) { return deinterlace.Process(args); }, width, height, PF_I420);
    const auto dewarp = [&](FilterArgs* args) {
        FakeDewarp(ImageOf(current, width, height), ImageOf(*args->destination, c.dewarpedWidth, c.dewarpedHeight));
        return 0;
    };
    if (c.dewarp)
        step(dewarp, c.dewarpedWidth, c.dewarpedHeight, PF_I420);
    QMRX::Filter::FilterResize resize;
    resize.SetType(static_cast<uint32_t>(c.filters));
    resize.SetSize(c.targetWidth, c.targetHeight);
    if (c.Resizes())
        step([&](FilterArgs* args) { return resize.Process(args); }, c.targetWidth, c.targetHeight, current.format);
    for (size_t i = 0; i < c.filters; ++i)
        step([&](FilterArgs* args) { return filters[i].Process(args); }, width, height, PF_I420);
    step(convert, width, height, c.format);
    return images.back().Visible();
}

constexpr uint32_t kFormats[] = {PF_I420,       PF_NV12,   PF_YV12,  PF_YUY2,
                                 PF_BGR24_FLIP, PF_BGRA32, PF_RGB565};    // the last completes an odd height

// One chain for all cases in turn equals the plain form, and holds no more than a new chain: scratch of an earlier case
// goes when the next does not use it.
void CheckCase(const Case& c, FilterChain& chain, uint32_t seed) {
    SCOPED_TRACE(testing::Message() << "run " << seed << ", " << c.width << "x" << c.height << ", " << c.filters
                                    << " filters to format " << c.format);
    Tessaro()->outWidth = c.dewarpedWidth;
    Tessaro()->outHeight = c.dewarpedHeight;
    const Decoded decoded(c.width, c.height, c.nv12, seed);
    const FramePtr frame = c.Frame();
    AddFilter filters[] = {AddFilter(1), AddFilter(10), AddFilter(100)};
    ChainSettings settings{{}, c.deinterlace, static_cast<uint32_t>(c.filters)};
    for (size_t i = 0; i < c.filters; ++i)
        settings.clientFilters.push_back(&filters[i]);
    int32_t result = 0;
    const std::vector<uint8_t> wanted = PlainForm(c, decoded, filters, result);
    Image to(c.targetWidth, c.targetHeight, c.format), again(c.targetWidth, c.targetHeight, c.format);
    FilterChain fresh;
    fresh.UpdateDewarp(*frame);
    chain.UpdateDewarp(*frame);
    ASSERT_EQ(chain.PreferredFormat(settings, *frame, decoded.view),
              c.nv12 && !c.OnlyI420() ? uint32_t{PF_NV12} : uint32_t{PF_I420});
    ASSERT_EQ(fresh.Run(settings, *frame, decoded.view, again.view).status, result);
    ASSERT_EQ(chain.Run(settings, *frame, decoded.view, to.view).status, result);
    ASSERT_TRUE(to.Visible() == wanted && again.Visible() == wanted);
    ASSERT_EQ(chain.ScratchBytes(), fresh.ScratchBytes());
    ASSERT_TRUE(c.format != PF_YV12 || to.picture.plane[2] < to.picture.plane[1]) << "V comes first in memory";
    const bool passes = !c.Deinterlaces() && !c.dewarp && !c.Resizes() && c.filters == 0;
    ASSERT_TRUE(!passes || chain.ScratchBytes() == 0) << "a copy needs none";
    ASSERT_EQ(chain.PassesThrough(settings, *frame, decoded.view, {c.targetWidth, c.targetHeight}), passes);
}

// Each path, and then one of odd sizes: what stays unwritten of those, and the result that says so, are as in the plain
// form; nothing is written outside (under a sanitizer).
TEST(FilterChain, EveryRoadOfTheTableOfSteps) {
    ASSERT_NE(Tessaro(), nullptr);
    std::vector<uint32_t> runs(2 * 2 * 2 * 2 * 2 * 2 * 4 * 7);
    std::iota(runs.begin(), runs.end(), 0u);
    std::mt19937 random(1);
    std::shuffle(runs.begin(), runs.end(), random);    // so that each follows upon others of all kinds
    const auto side = [&] { return std::array{1u, 2u, 17u, 65u}[random() % 4]; };
    FilterChain chain;
    for (const uint32_t run : runs) {
        const auto flag = [&](uint32_t bit) { return (run >> bit & 1) != 0; };
        Case c{.format = kFormats[run >> 8], .nv12 = flag(4), .filters = run >> 6 & 3};
        c.fieldCoded = flag(0), c.interlaced = flag(1), c.deinterlace = flag(2), c.dewarp = flag(3);
        const bool back = c.dewarp && run % 3 == 0;    // to the size of the decoder's picture
        c.targetWidth = flag(5) ? (back ? c.width : 320) : c.dewarp ? c.dewarpedWidth : c.width;
        c.targetHeight = flag(5) ? (back ? c.height : 36) : c.dewarp ? c.dewarpedHeight : c.height;
        ASSERT_NO_FATAL_FAILURE(CheckCase(c, chain, run));
        Case odd{.width = side(), .height = side(), .format = kFormats[run % 6], .nv12 = flag(4), .filters = c.filters};
        odd.targetWidth = odd.width + (random() % 2 == 0 ? 0 : 6);
        odd.targetHeight = odd.height + (random() % 2 == 0 ? 0 : 2);
        ASSERT_NO_FATAL_FAILURE(CheckCase(odd, chain, run));
    }
}

TEST(FilterChain, FailingStepsAndHostilePictures) {
    FilterChain chain;
    const Decoded decoded(64, 48, true);
    const FramePtr frame = VideoFrame();
    Image to(32, 24, PF_BGR24);
    AddFilter first(1), second(2), third(3);
    const ChainSettings settings{{&first, &second, &third}, false, 0};
    for (const auto& [throws, result, wanted] : {std::tuple{true, 0, -1}, {false, -5, -1}, {false, 0, 0}}) {
        first.calls = second.calls = third.calls = 0;
        second.throws = throws;
        second.result = result;
        EXPECT_EQ(chain.Run(settings, *frame, decoded.view, to.view).status, wanted);
        EXPECT_EQ(first.calls * 100 + second.calls * 10 + third.calls, wanted == 0 ? 111 : 110);
    }
    std::vector<std::pair<ConstPictureView, PictureView>> refused(3, {decoded.view, to.view});
    refused[0].second.format = 18;    // there is none
    refused[1].first.plane[1] = nullptr;
    refused[2].first.stride[0] = int64_t{1} << 31;    // more than a record of filter.h holds
    for (const PictureSize size : {PictureSize{0, 24}, {32, 0}, {16385, 1}, {16384, 4097}}) {
        refused.emplace_back(decoded.view, to.view).first.size = size;
        refused.emplace_back(decoded.view, to.view).second.size = size;
    }
    for (const auto& [from, into] : refused)
        EXPECT_EQ(chain.Run({}, *frame, from, into).status, -1) << from.size.width << " to " << into.size.width;
}

TEST(Tessaro, SizesAndFailures) {
    TessaroControl& control = *Tessaro();
    control = TessaroControl();
    FilterChain chain;
    for (const bool lens : {true, true, false, true})
        chain.UpdateDewarp(*VideoFrame(lens, 77));
    EXPECT_EQ(control.made * 100 + control.updates * 10 + control.released, 231);    // it ended with the lens
    EXPECT_TRUE(control.version == 0x30303031u && control.lastValue == 77);
    const struct {
        const char* name;
        TessaroControl does;
        int32_t sizeResult, runResult;
        int framesEnded;
    } rows[] = {
        {"new size", {.outWidth = 32, .outHeight = 20}, 0, 0, 1},
        {"query refuses", {.outWidth = 32, .outHeight = 20, .queryResult = -7}, -7, -7, 0},
        {"process refuses", {.outWidth = 32, .outHeight = 20, .processResult = -8}, 0, -1, 1},
        {"exceptions", {.outWidth = 32, .outHeight = 20, .throwEverywhere = true}, -1, -1, 0},
        {"no height", {.outWidth = 32}, -1, -1, 0},
        {"product beyond 32 bits", {.outWidth = 0x10000, .outHeight = 0x10000}, -1, -1, 0},
    };
    for (const auto& row : rows) {
        control = row.does;
        PictureSize size{64, 48};
        EXPECT_EQ(chain.OutputSize(size), row.sizeResult) << row.name;
        EXPECT_EQ(size, row.sizeResult == 0 ? (PictureSize{32, 20}) : (PictureSize{64, 48}));
        const Image to(size.width, size.height, PF_YV12);
        EXPECT_EQ(chain.Run({}, *VideoFrame(), Decoded(64, 48, false).view, to.view).status, row.runResult) << row.name;
        EXPECT_EQ(control.framesEnded, row.framesEnded) << row.name;
    }
    control = TessaroControl();
}

}    // namespace
}    // namespace corvane::test
