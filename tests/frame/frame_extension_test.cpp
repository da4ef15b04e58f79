#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/FrameExtension.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Frame header bytes: fixed part, optional fields, zeros up to a whole number of items, then the entries.
Bytes HeaderBytes(const Bytes& entries, const Bytes& optional_fields = {0}) {
    const size_t used = optional_fields.size() + entries.size();
    const size_t items = (used + 3) / 4;
    Bytes bytes(20, 0x55);
    bytes[12] = 0x08;
    bytes[19] = static_cast<uint8_t>(items);
    return Join({bytes, optional_fields, Bytes(items * 4 - used, 0), entries});
}

// Three presence bits, each with 48 set bits behind it when it is set, and five set bits: nothing of it may be taken
// for an entry.
Bytes OptionalFields(unsigned presence) {
    std::vector<bool> bits;
    for (unsigned field = 0; field < 3; ++field) {
        bits.push_back((presence >> field & 1) != 0);
        bits.insert(bits.end(), bits.back() ? 48 : 0, true);
    }
    bits.insert(bits.end(), 5, true);
    Bytes bytes(bits.size() / 8);
    for (size_t i = 0; i < bits.size(); ++i)
        bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] | (bits[i] ? 0x80 >> i % 8 : 0));
    return bytes;
}

struct Outcome {
    FrameExtension extension;
    bool ended_early = false;
};

MediaFrameHeader Video() {
    MediaFrameHeader record{};
    record.streamType = CORVANE_STREAM_H264;
    record.captureWidth = 1280;
    record.captureHeight = 720;
    return record;
}

template <typename Parser>
void Try(Parser parser, const MediaFrameHeader& record, Outcome& outcome) {
    try {
        parser(record, outcome.extension);
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "end of stream");
        outcome.ended_early = true;
    }
}

Outcome ParseHeader(const Bytes& bytes, MediaFrameHeader record = Video()) {
    const test::GuardedBytes guarded(bytes.data(), bytes.size());
    record.data = guarded.Data();
    record.headerSize = static_cast<uint32_t>(bytes.size());
    Outcome outcome;
    Try(ParseHeaderExtension, record, outcome);
    return outcome;
}

Outcome ParsePacket(const Bytes& entries) {
    const Bytes bytes = Join({{9, 9, 9, 9}, entries});
    const test::GuardedBytes guarded(bytes.data(), bytes.size());
    MediaFrameHeader record{};
    record.pictureWidth = 640;
    record.pictureHeight = 480;
    record.extension = guarded.Data();
    record.extensionSize = static_cast<uint32_t>(bytes.size());
    Outcome outcome;
    Try(ParsePacketExtension, record, outcome);
    return outcome;
}

const Bytes kFisheye = {19, 8, 1, 2, 3, 4, 5, 6, 7, 2};
const Bytes kLensExtra = {22, 12, 0, 1, 0, 2, 0, 3, 0, 4, 1, 5, 0, 6};

Bytes Sensors(uint8_t count, uint8_t stated_length) {
    Bytes bytes = {23, stated_length, 1, count, 4, 0, 3, 0};
    for (uint8_t i = 0; i < count; ++i) {
        for (uint8_t field = 0; field < 4; ++field) {
            bytes.push_back(field);
            bytes.push_back(i);
        }
    }
    return bytes;
}

Bytes Lens() {
    Bytes bytes = {25, 0xE2, 0x01, 0xCC};    // length 460 in two further bytes
    for (int i = 0; i < 460; ++i)
        bytes.push_back(static_cast<uint8_t>(i));
    return bytes;
}

struct Row {
    const char* name;
    Bytes entries;
    std::function<bool(const FrameExtension&)> holds;    // null: it must end early
};

void Check(const std::vector<Row>& rows, Outcome (*parse)(const Bytes&)) {
    for (const Row& row : rows) {
        const Outcome outcome = parse(row.entries);
        EXPECT_EQ(outcome.ended_early, row.holds == nullptr) << row.name;
        EXPECT_TRUE(row.holds == nullptr || row.holds(outcome.extension)) << row.name;
    }
}

const FisheyeCalibration* FisheyeOf(const FrameExtension& e) {
    return e.kind == ExtensionKind::Fisheye ? std::get_if<FisheyeCalibration>(&e.record) : nullptr;
}

bool ExtraFilled(const FrameExtension& e) {
    const auto* fisheye = FisheyeOf(e);
    return fisheye != nullptr && fisheye->lens_extra[0] == 1 && fisheye->lens_extra[4] == 0x105;
}

TEST(FrameExtension, HeaderEntries) {
    const auto interlaced = [](const FrameExtension& e) { return e.interlaced; };
    const std::vector<Row> rows = {
        {"fisheye", kFisheye,
         [](const FrameExtension& e) {
             const auto* f = FisheyeOf(e);
             return f && f->center_x == 0x102 && f->center_y == 0x304 && f->radius == 0x506 && f->lens_id == 7 &&
                    f->lens_kind == 2 && f->mount_flag == 0;
         }},
        {"lens words behind the calibration", Join({kFisheye, kLensExtra}), ExtraFilled},
        {"lens words in front of it", Join({kLensExtra, kFisheye}), ExtraFilled},
        {"lens words alone", kLensExtra, [](const FrameExtension& e) { return e.kind == ExtensionKind::None; }},
        {"longer than its fields", Join({{19, 12, 1, 2, 3, 4, 5, 6, 7, 2, 229, 229, 229, 229}, {231}}),
         [](const FrameExtension& e) { return e.field_coded && !e.interlaced; }},
        {"shorter than its fields", Join({{19, 2, 1, 2, 3, 4, 5, 6, 7, 2}, {229}}), interlaced},
        {"fisheye cut", {19, 8, 1, 2, 3, 4, 5, 6, 7}, nullptr},
        {"two sensors", Sensors(2, 22),
         [](const FrameExtension& e) {
             const auto* s = std::get_if<SensorLayout>(&e.record);
             return e.kind == ExtensionKind::Sensors && s && s->model == 1 && s->sensor_count == 2 &&
                    s->width == 0x400 && s->height == 0x300 && s->sensor_crop[1].height == 0x301 &&
                    s->sensor_crop[2].height == 0;
         }},
        {"fifth sensor is read over", Join({Sensors(5, 46), {229}}),
         [](const FrameExtension& e) {
             const auto* s = std::get_if<SensorLayout>(&e.record);
             return s && s->sensor_count == 5 && s->sensor_crop[3].x == 3 && e.interlaced;
         }},
        {"bytes behind the rectangles", Join({Sensors(1, 16), {231, 231}, {229}}),
         [](const FrameExtension& e) { return e.interlaced && !e.field_coded; }},
        {"more sensors than bytes", Join({{23, 6, 0, 255, 0, 0, 0, 0}, Bytes(100, 0)}), nullptr},
        {"lens", Lens(),
         [](const FrameExtension& e) {
             const auto* l = std::get_if<LensRecord>(&e.record);
             return e.kind == ExtensionKind::Lens && l && l->values[0] == 0x0001020304050607u &&
                    l->values[53] == 0xA8A9AAABACADAEAFu && l->words[4] == 0xB0B1B2B3 && l->words[0] == 0xBCBDBEBF &&
                    l->words[3] == 0xC8C9CACB;
         }},
        {"the last of several kinds", Join({Lens(), Sensors(2, 22), kFisheye}),
         [](const FrameExtension& e) { return FisheyeOf(e) != nullptr; }},
        {"flags up", {229, 231}, [](const FrameExtension& e) { return e.interlaced && e.field_coded; }},
        {"flags up and down",
         {229, 231, 228, 230},
         [](const FrameExtension& e) { return !e.interlaced && !e.field_coded; }},
        {"unknown short tag has one byte",
         {200, 231, 229},
         [](const FrameExtension& e) { return e.interlaced && !e.field_coded; }},
        {"tag 0 by its length",
         {128, 2, 231, 231, 229},
         [](const FrameExtension& e) { return e.interlaced && !e.field_coded; }},
        {"tag of seven bytes that ends like a known one",
         {135, 1, 0, 0, 0, 0, 0, 229, 0},
         [](const FrameExtension& e) { return !e.interlaced; }},
        {"known tag in its long form, with bytes to skip", {129, 229, 1, 228}, interlaced},
        {"length in the low bits",
         {1, 0xC1, 231, 229},
         [](const FrameExtension& e) { return e.interlaced && !e.field_coded; }},
        {"length in one byte of two kinds",
         {1, 0xE1, 1, 231, 1, 0x81, 1, 231, 229},
         [](const FrameExtension& e) { return e.interlaced && !e.field_coded; }},
        {"length of 63 bytes, small", Join({{1, 0xBF}, Bytes(61, 0), {1, 2}, Bytes(258, 231), {229}}),
         [](const FrameExtension& e) { return e.interlaced && !e.field_coded; }},
        {"length byte with bits that mean nothing",
         {1, 0xFD, 1, 231, 229},
         [](const FrameExtension& e) { return e.interlaced && !e.field_coded; }},
        {"first tag without a value",
         {223, 231, 224, 229},
         [](const FrameExtension& e) { return e.interlaced && !e.field_coded; }},
        {"length of 63 bytes, endless", Join({{1, 0xBF}, Bytes(63, 0xFF), {229, 229}}),
         [](const FrameExtension& e) { return !e.interlaced; }},
        {"length that wraps 32 bits stays long", Join({{1, 0x85}, {1, 0, 0, 0, 0}, {229}}),
         [](const FrameExtension& e) { return !e.interlaced; }},
        {"tag without a length", {1}, nullptr},
        {"skip beyond the end is no error", {1, 100, 1}, [](const FrameExtension&) { return true; }},
    };
    Check(rows, [](const Bytes& entries) { return ParseHeader(HeaderBytes(entries)); });
}

TEST(FrameExtension, HeaderFraming) {
    const Bytes good = HeaderBytes({229});
    EXPECT_TRUE(ParseHeader(good).extension.interlaced);

    for (unsigned presence = 0; presence < 8; ++presence)
        EXPECT_TRUE(ParseHeader(HeaderBytes({229}, OptionalFields(presence))).extension.interlaced) << presence;

    Bytes no_flag = good;
    no_flag[12] = 0xF7;
    EXPECT_FALSE(ParseHeader(no_flag).extension.interlaced);
    Bytes no_items = good;
    no_items[19] = 0;
    EXPECT_TRUE(ParseHeader(no_items).ended_early);
    Bytes beyond = good;
    beyond[19]++;
    EXPECT_TRUE(ParseHeader(beyond).ended_early);
    for (size_t size = 0; size < good.size(); ++size)
        EXPECT_EQ(ParseHeader(Bytes(good.begin(), good.begin() + static_cast<ptrdiff_t>(size))).ended_early,
                  size >= 20);

    for (uint32_t type = 0; type < 300; ++type) {
        MediaFrameHeader record = Video();
        record.streamType = type;
        const bool video = type == 1 || type == 2 || type == 4 || type == 8 || type == 16 || type == 255;
        EXPECT_EQ(ParseHeader(good, record).extension.interlaced, video) << type;
    }
}

TEST(FrameExtension, MountFlag) {
    const struct {
        uint16_t width, height;
        uint8_t lens_kind, expected;
    } rows[] = {{1920, 1080, 0, 1}, {1920, 1080, 3, 1}, {1920, 1088, 3, 2}, {1280, 720, 3, 2}, {1280, 720, 2, 0}};
    for (const auto& row : rows) {
        MediaFrameHeader record = Video();
        record.captureWidth = row.width;
        record.captureHeight = row.height;
        const Outcome outcome = ParseHeader(HeaderBytes({19, 8, 0, 0, 0, 0, 0, 0, 0, row.lens_kind}), record);
        ASSERT_NE(FisheyeOf(outcome.extension), nullptr);
        EXPECT_EQ(FisheyeOf(outcome.extension)->mount_flag, row.expected) << row.width << " " << int{row.lens_kind};
    }
}

bool SameTime(const FrameTimeRecord& time, uint32_t seconds, uint32_t milliseconds, uint16_t zone, uint16_t daylight) {
    return time.seconds == seconds && time.milliseconds == milliseconds && time.timeZone == zone &&
           time.daylight == daylight;
}

TEST(FrameExtension, PacketEntries) {
    const std::vector<Row> rows = {
        {"base time",
         {96, 12, 0, 0, 1, 0, 0, 0, 0, 2, 0, 3, 0, 4},
         [](const FrameExtension& e) { return SameTime(e.base_time, 256, 2, 3, 4) && !e.present_time_given; }},
        {"present time",
         {97, 12, 0, 0, 1, 0, 0, 0, 0, 2, 0, 3, 0, 4},
         [](const FrameExtension& e) { return SameTime(e.present_time, 256, 2, 3, 4) && e.present_time_given; }},
        {"low bit", {104, 1, 0xFE}, [](const FrameExtension& e) { return !e.not_for_display; }},
        {"low bit set", {104, 1, 0x01}, [](const FrameExtension& e) { return e.not_for_display; }},
        {"vendor",
         {105, 4, 'A', 'B', 'C', 'D', 106, 4, 1, 2, 3, 4},
         [](const FrameExtension& e) {
             return std::memcmp(&e.vendor_tag, "ABCD", 4) == 0 && std::memcmp(&e.vendor_subtype, "\1\2\3\4", 4) == 0;
         }},
        {"size",
         {107, 4, 1, 2, 3, 4},
         [](const FrameExtension& e) { return e.decoded_width == 0x102 && e.decoded_height == 0x304; }},
        {"size from the record",
         {99, 1, 0},
         [](const FrameExtension& e) { return e.decoded_width == 640 && e.decoded_height == 480; }},
        {"second blob stays",
         {108, 1, 7, 108, 3, 1, 2, 3, 104, 1, 1},
         [](const FrameExtension& e) {
             return e.blob_length == 3 && std::memcmp(e.blob.get(), "\1\2\3", 3) == 0 && e.not_for_display;
         }},
        {"empty blob", {108, 0}, [](const FrameExtension& e) { return e.blob_length == 0; }},
        {"blob longer than the rest", {108, 4, 1, 2, 3}, nullptr},
        {"blob of 4 GiB", {108, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 1}, nullptr},
        {"blob length that wraps", {108, 0x85, 1, 0, 0, 0, 1, 1}, nullptr},
        {"tags of the header bytes mean nothing here",
         {19, 8, 1, 2, 3, 4, 5, 6, 7, 2, 229},
         [](const FrameExtension& e) { return e.kind == ExtensionKind::None && !e.interlaced; }},
        {"a zero is an entry here", {0, 1, 0, 104, 1, 1}, [](const FrameExtension& e) { return e.not_for_display; }},
        {"nothing", {}, [](const FrameExtension& e) { return std::memcmp(&e.vendor_tag, "QMRX", 4) == 0; }},
    };
    Check(rows, ParsePacket);
}

// An area may be cut at any byte: between entries it is a shorter area, inside one it ends early.
TEST(FrameExtension, EveryPrefix) {
    const std::vector<Bytes> header_entries = {kFisheye, kLensExtra, Sensors(4, 38), {229}, Lens(), {129, 231, 0}};
    const std::vector<Bytes> packet_entries = {{96, 12, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12},
                                               {0x81, 97, 0x81, 12, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12},
                                               {104, 1, 1},
                                               {107, 0xE1, 4, 1, 2, 3, 4},
                                               {108, 0xC3, 1, 2, 3}};
    for (const bool header : {true, false}) {
        Bytes all;
        std::vector<size_t> ends = {0};
        for (const Bytes& entry : header ? header_entries : packet_entries) {
            all.insert(all.end(), entry.begin(), entry.end());
            ends.push_back(all.size());
        }
        for (size_t size = 0; size <= all.size(); ++size) {
            const Bytes prefix(all.begin(), all.begin() + static_cast<ptrdiff_t>(size));
            const Outcome outcome = header ? ParseHeader(HeaderBytes(prefix)) : ParsePacket(prefix);
            const bool whole = std::find(ends.begin(), ends.end(), size) != ends.end();
            EXPECT_EQ(outcome.ended_early, !whole) << (header ? "header " : "packet ") << size;
        }
    }
}

}    // namespace
}    // namespace corvane
