#include <sstream>

#include "manager/StreamInfo.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane {
namespace {

struct Picture {
    bool key = false;
    std::optional<uint8_t> lensKind = {};
    uint16_t center = 5;
    uint16_t captureWidth = 0;    // 1920 with 1080: mount flag 1
};

// With a lens circle, it stands in one header extension.
FramePtr Make(const Picture& picture) {
    MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_H264, {}, picture.key, 0);
    header.captureWidth = picture.captureWidth;
    header.captureHeight = 1080;
    const uint8_t center = static_cast<uint8_t>(picture.center), kind = picture.lensKind.value_or(0);
    const uint8_t area[] = {0, 0, 0, 0, 0, 0,  0, 0, 0,      0, 0, 0, 8, 0, 0,    0,
                            0, 0, 0, 3, 0, 19, 8, 0, center, 0, 7, 0, 9, 1, kind, 228};    // 228 closes the three words
    if (picture.lensKind) {
        header.data = area;
        header.headerSize = sizeof area;
    }
    return std::make_shared<MediaFrameImpl>(header);
}

// Codes as "code:a" in the order of their sending; of code 6 how many entries, and those that are not zero.
void Note(void* context, uint32_t code, uint64_t a, uint64_t b) {
    std::ostringstream text;
    text << code << (code == 6 ? "/" : ":") << (code == 6 ? b : a);
    if (code == 3)
        text << "x" << b;
    const auto* const entries = reinterpret_cast<const MotionEntry*>(code == 6 ? a : 0);
    for (uint64_t i = 0; code == 6 && i < b; ++i)
        if (entries[i].id != 0 || entries[i].value != 0)
            text << " [" << i << "]" << entries[i].id << "=" << entries[i].value;
    *static_cast<std::string*>(context) += text.str() + " ";
}

TEST(StreamInfo, CodesFollowTheStepFromOneFrameToTheNext) {
    enum State { Told, Resized, Dirty };
    const struct {
        const char* name;
        std::optional<Picture> before;
        Picture now;
        State state;
        const char* codes;
    } rows[] = {
        {"first frame, fresh", {}, {.key = true}, Dirty, "12:0 3:640x480 6/3 7:1 8:0 "},
        {"first frame, told before", {}, {.key = true}, Told, "12:0 6/3 7:1 "},
        {"nothing new", Picture{}, {}, Told, "6/3 7:1 "},
        {"size changed at a key frame", Picture{}, {.key = true}, Resized, "3:640x480 6/3 7:1 "},
        {"size changed at a dependent frame", Picture{}, {}, Resized, "6/3 7:1 "},
        {"first lens circle", Picture{}, {.lensKind = 0}, Told, "10:1 11:1 12:1 6/3 7:1 "},
        {"first of all, mount flag", {}, {.lensKind = 2, .captureWidth = 1920}, Told, "10:3 11:2 12:1 6/3 7:1 "},
        {"same lens circle", Picture{.lensKind = 1}, {.lensKind = 1}, Told, "6/3 7:1 "},
        {"lens kind changed", Picture{.lensKind = 0}, {.lensKind = 1}, Told, "10:2 12:1 6/3 7:1 "},
        {"kind without a code", Picture{.lensKind = 1}, {.lensKind = 3}, Told, "11:2 12:1 6/3 7:1 "},
        {"centre moved", Picture{.lensKind = 1}, {.lensKind = 1, .center = 6}, Told, "12:1 6/3 7:1 "},
        {"mount changed", Picture{.lensKind = 1}, {.lensKind = 1, .captureWidth = 1920}, Told, "11:2 12:1 6/3 7:1 "},
        {"lens circle gone", Picture{.lensKind = 1}, {}, Told, "12:0 6/3 7:1 "},
    };
    for (const auto& row : rows) {
        const FramePtr before = row.before ? Make(*row.before) : nullptr;
        std::string log;
        ReportStreamInfo({&Note, &log}, *Make(row.now), before.get(), row.state == Resized, row.state == Dirty,
                         {640, 480});
        EXPECT_EQ(log, row.codes) << row.name;
    }
}

TEST(StreamInfo, MotionWindowsAndObjectRecords) {
    MediaFrameHeader header = Make({})->Header();
    for (uint32_t i = 0; i < 3; ++i) {
        header.motionState[i] = i;    // 2 is not reported
        header.motionAlert[i] = 70u + i;
        header.motionId[i] = static_cast<uint8_t>(10 + i);
    }
    header.reservedTail = uint64_t{1} << 32;
    std::string log;
    ReportStreamInfo({&Note, &log}, MediaFrameImpl(header), nullptr, false, false, {});
    EXPECT_EQ(log, "12:0 6/3 [0]10=70 [1]11=71 7:0 ");

    // Slots out of range are passed over, and the count never leads outside the array.
    const ObjectRecord objects[] = {{.id = 16, .valid = 1, .value = 5, .level = 6},
                                    {.id = 2, .valid = 0, .value = 6, .level = 7},
                                    {.id = 0, .valid = 1, .value = 7, .level = 8},
                                    {.id = 4'000'000'000, .valid = 1, .value = 8, .level = 9}};
    header.objects = objects;
    header.objectCount = 4;
    header.reservedTail = UINT32_MAX;    // the low half says nothing
    log.clear();
    ReportStreamInfo({&Note, &log}, MediaFrameImpl(header), nullptr, false, false, {});
    EXPECT_EQ(log, "12:0 6/16 [15]6=5 7:1 ");
}

}    // namespace
}    // namespace corvane
