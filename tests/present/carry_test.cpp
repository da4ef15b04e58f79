#include "base/PictureLayout.h"
#include "present/PictureRun.h"
#include "support/Calling.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

using Fate = RunResult::Fate;

// Lends memory in one format, or nothing with format 0. It states a format beforehand, or only with the buffer.
class PlainTarget final : public PictureTarget {
public:
    PlainTarget(uint32_t format, uint32_t stated) : m_format(format), m_stated(stated) {}
    bool Take(const SharedPicture&) override { return takes; }
    uint32_t FormatFor(uint32_t) const override { return m_stated; }
    PictureLease Lend(PictureSize size, uint32_t) override {
        if (m_format == 0)
            return PictureLease();
        m_memory.resize(PictureBytes(m_format, size.width, size.height));
        return PictureLease(this, LayOut(m_memory.data(), RowBytes(m_format, size.width), size, m_format));
    }

    uint8_t At(uint32_t x, uint32_t y) const { return m_memory[size_t{y} * RowBytes(m_format, 32) + x]; }

    bool takes = false;
    std::string ends;    // of leases: C committed, B given back

private:
    void Finish(bool commit) override { ends += commit ? 'C' : 'B'; }

    const uint32_t m_format;
    const uint32_t m_stated;
    std::vector<uint8_t> m_memory;
};

TEST(PictureRun, SaysWhatBecameOfThePicture) {
    CallingFilter refusing([](auto*) { return -1; });
    const struct {
        const char* name;
        uint32_t format, height;    // of the picture lent and the picture given
        bool interlaced, enabled, fields, rotate, refuse, shared, crop;
        Fate fate;
        Smoothing smoothing;
        const char* ends;
    } rows[] = {
        {"copied", PF_I420, 16, 0, 1, 0, 0, 0, 0, 0, Fate::Carried, Smoothing::None, "C"},
        {"taken by reference", PF_I420, 16, 0, 1, 0, 0, 0, 1, 0, Fate::Carried, Smoothing::None, ""},
        {"a part of it", PF_I420, 16, 0, 1, 0, 0, 0, 1, 1, Fate::Carried, Smoothing::None, "C"},
        {"smoothed", PF_BGR24, 16, 1, 1, 0, 0, 0, 1, 0, Fate::Carried, Smoothing::Done, "C"},
        {"option off", PF_I420, 16, 1, 0, 0, 0, 0, 0, 0, Fate::Carried, Smoothing::None, "C"},
        {"woven, not smoothed", PF_I420, 16, 0, 1, 1, 0, 0, 0, 0, Fate::Carried, Smoothing::None, "C"},
        {"too low to smooth", PF_I420, 4, 1, 1, 0, 0, 0, 0, 0, Fate::Carried, Smoothing::Refused, "C"},
        {"too low to smooth, woven, turned", PF_I420, 4, 1, 1, 1, 1, 0, 0, 0, Fate::Carried, Smoothing::Refused, "C"},
        {"smoothed, then a step fails", PF_I420, 16, 1, 1, 0, 0, 1, 0, 0, Fate::StepFailed, Smoothing::Done, "C"},
        {"odd height", PF_BGRA32, 15, 0, 0, 0, 0, 0, 0, 0, Fate::StepFailed, Smoothing::None, "C"},
        {"turned", PF_BGR24, 16, 1, 1, 0, 1, 0, 1, 0, Fate::Carried, Smoothing::Done, "C"},
        {"turned, a step fails", PF_I420, 16, 0, 1, 0, 1, 1, 0, 0, Fate::StepFailed, Smoothing::None, "C"},
        {"nothing lent", 0, 16, 1, 1, 0, 0, 0, 0, 0, Fate::LostNoBuffer, Smoothing::None, ""},
        {"nothing lent to turn into", 0, 16, 1, 1, 0, 1, 0, 0, 0, Fate::LostNoBuffer, Smoothing::None, ""},
        {"cannot be turned", PF_BGRA32, 16, 1, 1, 0, 1, 0, 0, 0, Fate::LostNotRotatable, Smoothing::None, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const FramePtr frame = MakeFrame(CORVANE_STREAM_H264, {}, true, 0);
        if (row.interlaced)
            frame->RaiseInterlaced();
        if (row.fields)
            frame->RaiseFieldCoded();
        ChainSettings settings{{}, row.enabled, 0};
        if (row.refuse)
            settings.clientFilters.push_back(&refusing);
        PlainPicture picture(32, row.height);
        if (row.shared)
            picture.Share();
        const SharedPicture decoded = picture.Picture();
        PictureRequest request{
            .frame = *frame, .picture = decoded.View(), .shared = &decoded, .size = {32, row.height}};
        if (row.crop)
            request.crop = Rect{0, 0, 32, 16};
        if (row.rotate)
            request.angle = 90;
        for (const uint32_t stated : {row.format, 0u, uint32_t{PF_RGB24}}) {
            PlainTarget target(row.format, stated);
            target.takes = row.shared;
            const RunResult result = PictureRun().Carry(request, settings, target);
            EXPECT_TRUE(result.fate == row.fate && result.smoothing == row.smoothing);
            // What cannot be turned costs no buffer where that can be told.
            EXPECT_EQ(target.ends, stated != row.format && row.fate == Fate::LostNotRotatable ? "B" : row.ends);
            if (target.ends == "C" && row.fate == Fate::Carried && row.smoothing != Smoothing::Refused)
                EXPECT_NE(target.At(16, 2), 0) << "made in the format of the buffer, whatever was stated";
            EXPECT_EQ(result.Lost(), row.fate == Fate::LostNoBuffer || row.fate == Fate::LostNotRotatable);
        }
    }
}

// A grey dot at (2, 1), on every second frame.
class Dot final : public IStamp {
public:
    bool Due(const MediaFrameImpl&) override { return ++asked % 2 == 0; }
    void Draw(const MediaFrameImpl&, const PictureView& picture) override {
        const ptrdiff_t pixel = picture.format == PF_I420 ? 1 : 3;
        picture.plane[0][picture.stride[0] + 2 * pixel] = 7;
    }
    int asked = 0;
};

// A stamp that is due is drawn where the picture's top row is the first, is turned with it, and keeps a picture from
// passing by reference, with the decoder's pixels as they were.
TEST(PictureRun, StampsAreDrawnWhenTheyAreDue) {
    const FramePtr frame = MakeFrame(CORVANE_STREAM_H264, {}, true, 0);
    Dot dot;
    IStamp* const stamps[] = {&dot};
    for (const bool turned : {false, true}) {
        for (const uint32_t format : {uint32_t{PF_I420}, uint32_t{PF_BGR24_FLIP}}) {
            PlainPicture picture(32, 32);
            picture.Share();
            PictureRun run;
            PlainTarget target(format, format);
            target.takes = true;
            const SharedPicture decoded = picture.Picture();
            PictureRequest request{
                .frame = *frame, .picture = decoded.View(), .shared = &decoded, .size = {32, 32}, .stamps = stamps};
            if (turned)
                request.angle = 180;
            EXPECT_EQ(run.Carry(request, ChainSettings(), target).fate, Fate::Carried);
            EXPECT_EQ(target.ends, turned ? "C" : "") << "not due: by reference, where nothing is turned";
            EXPECT_EQ(run.Carry(request, ChainSettings(), target).fate, Fate::Carried);
            EXPECT_TRUE(target.ends.ends_with('C'));
            const bool flipped = format == PF_BGR24_FLIP;
            const uint32_t x = turned ? 31 - 2 : 2, y = turned ? 31 - 1 : 1;
            EXPECT_EQ(target.At(flipped ? 3 * x : x, flipped ? 31 - y : y), 7);
            EXPECT_TRUE(picture.frame.planes[0][34] == 100 && picture.references == 1);
        }
    }
}

}    // namespace
}    // namespace corvane::test
