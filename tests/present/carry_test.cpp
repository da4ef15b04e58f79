#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "present/PictureTarget.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"

namespace corvane::test {
namespace {

using Fate = CarryResult::Fate;

// Lends memory in one format, or nothing with format 0.
class PlainTarget final : public PictureTarget {
public:
    explicit PlainTarget(uint32_t format) : m_format(format) {}
    bool Take(const DecodedFrame&) override { return takes; }
    PictureLease Lend(uint32_t width, uint32_t height, uint32_t) override {
        m_memory.resize(m_format == 0 ? 0 : PictureBytes(m_format, width, height));
        return m_format == 0 ? PictureLease()
                             : PictureLease(this, m_memory.data(), RowBytes(m_format, width), m_format);
    }

    bool takes = false;
    std::string ends;    // of leases: C committed, B given back

private:
    void Finish(bool commit) override { ends += commit ? 'C' : 'B'; }

    const uint32_t m_format;
    std::vector<uint8_t> m_memory;
};

class Refusing final : public QMRX::Filter::IFilter {
    int32_t Process(QMRX::Filter::FilterArgs*) override { return -1; }
};

TEST(CarryPicture, SaysWhatBecameOfThePicture) {
    Refusing refusing;
    const struct {
        const char* name;
        uint32_t format, height;    // of the picture lent and the picture given
        bool interlaced, enabled, fields, rotate, refuse, shared;
        Fate fate;
        Smoothing smoothing;
        const char* ends;
    } rows[] = {
        {"copied", PF_I420, 16, 0, 1, 0, 0, 0, 0, Fate::Carried, Smoothing::None, "C"},
        {"taken by reference", PF_I420, 16, 0, 1, 0, 0, 0, 1, Fate::Carried, Smoothing::None, ""},
        {"smoothed", PF_BGR24, 16, 1, 1, 0, 0, 0, 1, Fate::Carried, Smoothing::Done, "C"},
        {"option off", PF_I420, 16, 1, 0, 0, 0, 0, 0, Fate::Carried, Smoothing::None, "C"},
        {"woven, not smoothed", PF_I420, 16, 0, 1, 1, 0, 0, 0, Fate::Carried, Smoothing::None, "C"},
        {"too low to smooth", PF_I420, 4, 1, 1, 0, 0, 0, 0, Fate::Carried, Smoothing::Refused, "C"},
        {"too low to smooth, woven, turned", PF_I420, 4, 1, 1, 1, 1, 0, 0, Fate::Carried, Smoothing::Refused, "C"},
        {"smoothed, then a step fails", PF_I420, 16, 1, 1, 0, 0, 1, 0, Fate::StepFailed, Smoothing::Done, "C"},
        {"odd height", PF_BGRA32, 15, 0, 0, 0, 0, 0, 0, Fate::StepFailed, Smoothing::None, "C"},
        {"turned", PF_BGR24, 16, 1, 1, 0, 1, 0, 1, Fate::Carried, Smoothing::Done, "C"},
        {"turned, a step fails", PF_I420, 16, 0, 1, 0, 1, 1, 0, Fate::StepFailed, Smoothing::None, "C"},
        {"nothing lent", 0, 16, 1, 1, 0, 0, 0, 0, Fate::LostNoBuffer, Smoothing::None, ""},
        {"nothing lent to turn into", 0, 16, 1, 1, 0, 1, 0, 0, Fate::LostNoBuffer, Smoothing::None, ""},
        {"cannot be turned", PF_BGRA32, 16, 1, 1, 0, 1, 0, 0, Fate::LostNotRotatable, Smoothing::None, "B"},
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
        PlainTarget target(row.format);
        target.takes = row.shared;
        FilterChain chain;
        RotateFilter rotate(90);
        const CarryResult result = CarryPicture(target, chain, settings, row.rotate ? &rotate : nullptr, *frame,
                                                picture.frame, 32, row.height);
        EXPECT_EQ(result.fate, row.fate);
        EXPECT_EQ(result.smoothing, row.smoothing);
        EXPECT_EQ(target.ends, row.ends);
        EXPECT_EQ(result.Lost(), row.fate == Fate::LostNoBuffer || row.fate == Fate::LostNotRotatable);
    }
}

}    // namespace
}    // namespace corvane::test
