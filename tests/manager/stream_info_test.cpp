#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "manager/StreamInfo.h"

namespace corvane {
namespace {

// One header extension with a lens circle (tag 19).
std::vector<uint8_t> LensArea(uint8_t kind, uint16_t center) {
    std::vector<uint8_t> bytes(20 + 12, 0);
    bytes[12] = 8;    // an area follows
    bytes[19] = 3;    // of three words
    const uint8_t entry[] = {0, 19,   8, static_cast<uint8_t>(center >> 8), static_cast<uint8_t>(center), 0, 7, 0, 9,
                             1, kind, 0};
    std::copy(std::begin(entry), std::end(entry), bytes.begin() + 20);
    bytes.back() = 228;    // a flag without a value closes the area
    return bytes;
}

struct Picture {
    bool key = false;
    std::optional<uint8_t> lensKind = {};
    uint16_t center = 5;
    uint16_t captureWidth = 0;    // 1920 with 1080: mount flag 1
};

FramePtr Make(const Picture& picture) {
    MediaFrameHeader header{};
    header.recordSize = sizeof header;
    header.streamType = CORVANE_STREAM_H264;
    header.frameType = picture.key ? 0 : 1;
    header.captureWidth = picture.captureWidth;
    header.captureHeight = 1080;
    std::vector<uint8_t> area;
    if (picture.lensKind) {
        area = LensArea(*picture.lensKind, picture.center);
        header.data = area.data();
        header.headerSize = static_cast<uint32_t>(area.size());
    }
    return std::make_shared<MediaFrameImpl>(header);
}

// Codes as "code:a" in the order of their sending.
void Note(void* context, uint32_t code, uint64_t a, uint64_t b) {
    std::string& log = *static_cast<std::string*>(context);
    log += std::to_string(code);
    if (code == 3)
        log += ":" + std::to_string(a) + "x" + std::to_string(b);
    else if (code != 6)
        log += ":" + std::to_string(a);
    log += " ";
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
        {"first frame, fresh", {}, {.key = true}, Dirty, "12:0 3:640x480 6 7:1 8:0 "},
        {"first frame, told before", {}, {.key = true}, Told, "12:0 6 7:1 "},
        {"nothing new", Picture{}, {}, Told, "6 7:1 "},
        {"size changed at a key frame", Picture{}, {.key = true}, Resized, "3:640x480 6 7:1 "},
        {"size changed at a dependent frame", Picture{}, {}, Resized, "6 7:1 "},
        {"first lens circle", Picture{}, {.lensKind = 0}, Told, "10:1 11:1 12:1 6 7:1 "},
        {"first of all, mount flag", {}, {.lensKind = 2, .captureWidth = 1920}, Told, "10:3 11:2 12:1 6 7:1 "},
        {"same lens circle", Picture{.lensKind = 1}, {.lensKind = 1}, Told, "6 7:1 "},
        {"lens kind changed", Picture{.lensKind = 0}, {.lensKind = 1}, Told, "10:2 12:1 6 7:1 "},
        {"kind without a code", Picture{.lensKind = 1}, {.lensKind = 3}, Told, "11:2 12:1 6 7:1 "},
        {"centre moved", Picture{.lensKind = 1}, {.lensKind = 1, .center = 6}, Told, "12:1 6 7:1 "},
        {"mount changed", Picture{.lensKind = 1}, {.lensKind = 1, .captureWidth = 1920}, Told, "11:2 12:1 6 7:1 "},
        {"lens circle gone", Picture{.lensKind = 1}, {}, Told, "12:0 6 7:1 "},
    };
    for (const auto& row : rows) {
        const FramePtr before = row.before ? Make(*row.before) : nullptr;
        std::string log;
        ReportStreamInfo(&Note, &log, *Make(row.now), before.get(), row.state == Resized, row.state == Dirty,
                         {640, 480});
        EXPECT_EQ(log, row.codes) << row.name;
    }
}

struct Motion {
    std::vector<MotionEntry> entries;
    uint64_t count = 0;
    uint64_t tail = 9;
};

void KeepMotion(void* context, uint32_t code, uint64_t a, uint64_t b) {
    auto& motion = *static_cast<Motion*>(context);
    if (code == 7)
        motion.tail = a;
    if (code != 6)
        return;
    motion.count = b;
    const auto* entries = reinterpret_cast<const MotionEntry*>(a);
    motion.entries.assign(entries, entries + b);
}

TEST(StreamInfo, MotionWindowsAndObjectRecords) {
    MediaFrameHeader header{};
    header.recordSize = sizeof header;
    header.streamType = CORVANE_STREAM_H264;
    for (uint32_t i = 0; i < 3; ++i) {
        header.motionState[i] = i;
        header.motionAlert[i] = 70u + i;
        header.motionId[i] = static_cast<uint8_t>(10 + i);
    }
    header.reservedTail = uint64_t{1} << 32;
    Motion motion;
    ReportStreamInfo(&KeepMotion, &motion, MediaFrameImpl(header), nullptr, false, false, {});
    ASSERT_EQ(motion.entries.size(), 3u);
    EXPECT_EQ(motion.entries[1].id, 11);
    EXPECT_EQ(motion.entries[1].value, 71u);
    EXPECT_EQ(motion.entries[2].id, 0) << "a state of 2 is not reported";
    EXPECT_EQ(motion.tail, 0u);

    // Slots out of range are passed over, and the count never leads outside the array.
    ObjectRecord objects[] = {{.id = 16, .valid = 1, .value = 5, .level = 6, .corner = {}, .reserved30 = 0},
                              {.id = 2, .valid = 0, .value = 7, .level = 7, .corner = {}, .reserved30 = 0},
                              {.id = 0, .valid = 1, .value = 8, .level = 8, .corner = {}, .reserved30 = 0},
                              {.id = 4000000000u, .valid = 1, .value = 9, .level = 9, .corner = {}, .reserved30 = 0}};
    header.objects = objects;
    header.objectCount = 4;
    ReportStreamInfo(&KeepMotion, &motion, MediaFrameImpl(header), nullptr, false, false, {});
    ASSERT_EQ(motion.count, 16u);
    for (size_t i = 0; i < 16; ++i)
        EXPECT_EQ(motion.entries[i].value, i == 15 ? 5u : 0u) << i;
    EXPECT_EQ(motion.entries[15].id, 6);
}

}    // namespace
}    // namespace corvane
