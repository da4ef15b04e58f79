#include <gtest/gtest.h>

#include <numeric>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "base/Limits.h"
#include "frame/MediaFrameImpl.h"
#include "support/GuardedBytes.h"
#include "support/StreamMaker.h"

namespace corvane::test {
namespace {

Bytes Counting(size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

// All that differs from what an empty area leaves: marks, then numbers in hexadecimal. Each record begins with its
// kind.
std::string Text(const FrameExtension& e) {
    std::ostringstream text;
    const auto put = [&](auto... values) { ((text << std::hex << +values << ' '), ...); };
    text << (e.interlaced ? "I" : "") << (e.fieldCoded ? "F" : "") << (e.notForDisplay ? "N" : "");
    if (e.kind != ExtensionKind::None)
        put(static_cast<uint32_t>(e.kind));
    if (const auto* f = std::get_if<FisheyeCalibration>(&e.record))
        put(f->centerX, f->centerY, f->radius, f->lensId, f->lensKind, f->mountFlag, f->lensExtra[4]);
    if (const auto* s = std::get_if<SensorLayout>(&e.record))
        put(s->model, s->sensorCount, s->width, s->height, s->sensorCrop[1].height, s->sensorCrop[3].x);
    if (const auto* l = std::get_if<LensRecord>(&e.record))
        put(l->values[0], l->values[53], l->words[4], l->words[0], l->words[3]);
    if (const FrameTimeRecord& b = e.baseTime, &p = e.presentTime; b.seconds + p.seconds != 0)
        put(b.seconds, b.milliseconds, b.timeZone, b.daylight, p.daylight, e.presentTimeGiven);
    if (e.vendorSubtype != 0)
        put(e.vendorTag, e.vendorSubtype, e.decodedWidth, e.decodedHeight);
    for (uint32_t i = 0; i < e.blobLength; ++i)
        put(e.blob[i]);
    return text.str();
}

// What comes of an area that ends in front of a page that cannot be read.
std::string Parse(bool header, const Bytes& bytes, uint32_t type = CORVANE_STREAM_H264, uint16_t capture_height = 720) {
    const GuardedBytes guarded(bytes.data(), bytes.size());
    MediaFrameHeader record{};
    record.streamType = type;
    record.captureWidth = 1920;
    record.captureHeight = capture_height;
    record.data = record.extension = guarded.Data();
    record.headerSize = record.extensionSize = static_cast<uint32_t>(bytes.size());
    FrameExtension extension;
    try {
        (header ? ParseHeaderExtension : ParsePacketExtension)(record, extension);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return Text(extension);
}

// Frame header bytes: fixed part, optional fields, zeros up to a whole number of items, then the entries.
Bytes HeaderBytes(const Bytes& entries, const Bytes& optional = {0}) {
    const size_t used = optional.size() + entries.size();
    const auto items = static_cast<uint8_t>((used + 3) / 4);
    return Bytes(12, 0x55) + Bytes{0x08} + Bytes(6, 0x55) + Bytes{items} + optional + Bytes(items * 4 - used, 0) +
           entries;
}

std::string ParseEntries(bool header, const Bytes& entries) {
    return Parse(header, header ? HeaderBytes(entries) : Bytes{9, 9, 9, 9} + entries);
}

const char* const kEnd = "end of stream";
const Bytes kFisheye = {19, 8, 1, 2, 3, 4, 5, 6, 7, 2};
const Bytes kLensExtra = {22, 12, 0, 1, 0, 2, 0, 3, 0, 4, 1, 5, 0, 6};
const Bytes kSensors = Bytes{23, 22, 1, 2, 4, 0, 3, 0} + Counting(16);
const Bytes kLens = Bytes{25, 0xE2, 0x01, 0xCC} + Counting(460);    // its length in two further bytes
const Bytes kTime = {12, 0, 0, 1, 0, 0, 0, 0, 2, 0, 3, 0, 4};

TEST(FrameExtension, Entries) {
    const struct {
        bool header;
        const char* name;
        Bytes entries;
        std::string told;
    } rows[] = {
        {true, "lens words behind the calibration", kFisheye + kLensExtra, "1 102 304 506 7 2 0 105 "},
        {true, "lens words in front of it", kLensExtra + kFisheye, "1 102 304 506 7 2 0 105 "},
        {true, "longer than its fields", {23, 8, 0, 0, 0, 0, 0, 0, 229, 229, 231}, "F2 0 0 0 0 0 0 "},
        {true, "shorter than its fields", {19, 2, 1, 2, 3, 4, 5, 6, 7, 3, 229}, "I1 102 304 506 7 3 2 0 "},
        {true, "a fifth is read over", Bytes{23, 46, 0, 5, 4, 0, 3, 0} + Counting(40) + Bytes{229},
         "I2 0 5 400 300 e0f 1819 "},
        {true, "more sensors than bytes", Bytes{23, 6, 0, 255, 0, 0, 0, 0} + Bytes(100, 0), kEnd},
        {true, "the last of several kinds", kSensors + kFisheye + kLens,
         "3 1020304050607 a8a9aaabacadaeaf b0b1b2b3 bcbdbebf c8c9cacb "},
        {true, "flags down, lens words alone", Bytes{229, 231, 228, 230} + kLensExtra, ""},
        {true, "short tags with and without a value", {200, 231, 223, 231, 224, 229}, "I"},
        {true, "tag 0 by its length", {128, 2, 230, 230, 231, 229}, "IF"},
        {true, "tag of seven bytes that ends like a known one", {135, 1, 0, 0, 0, 0, 0, 229, 0}, ""},
        {true, "known tag in its long form, with bytes to skip", {129, 229, 1, 228}, "I"},
        {true, "length in the low bits, with bits that mean nothing", {1, 0xC1, 231, 1, 0xFD, 1, 231, 229}, "I"},
        {true, "length in one byte of two kinds", {1, 0xE1, 1, 231, 1, 0x81, 1, 231, 229}, "I"},
        {true, "length of 63 bytes", Bytes{1, 0xBF} + Bytes(61, 0) + Bytes{1, 2} + Bytes(258, 231) + Bytes{229}, "I"},
        {true, "length that wraps 32 bits stays long", {1, 0x85, 1, 0, 0, 0, 0, 229}, ""},
        {false, "base and present time", Bytes{96} + kTime + Bytes{97, 12} + Counting(12), "100 2 3 4 a0b 1 "},
        {false, "low bit alone counts", {104, 1, 0x01, 104, 1, 0xFE}, ""},
        {false, "vendor", {105, 4, 1, 2, 3, 4, 106, 4, 5, 6, 7, 8, 107, 4, 1, 2, 3, 4}, "4030201 8070605 102 304 "},
        {false, "second blob stays", {108, 1, 7, 108, 2, 8, 9, 104, 1, 1}, "N8 9 "},
        {false, "blob longer than its area by a byte", {108, 3, 1, 2}, kEnd},
        {false, "blob of 4 GiB", {108, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 1}, kEnd},
        {false, "blob length that wraps", {108, 0x85, 1, 0, 0, 0, 1, 1}, kEnd},
        {false, "tags of the header, and a zero", kFisheye + Bytes{229} + Bytes{0, 1, 0} + Bytes{104, 1, 1}, "N"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ParseEntries(row.header, row.entries), row.told) << row.name;
}

TEST(FrameExtension, HeaderFraming) {
    const Bytes good = HeaderBytes({229});
    // Three presence bits, each with 48 set bits behind it when it is set, and five set bits: none is an entry's.
    for (const Bytes& optional : {Bytes{0x1F}, Bytes{0x7F} + Bytes(5, 0xFF) + Bytes{0xDF}, Bytes(19, 0xFF)})
        EXPECT_EQ(Parse(true, HeaderBytes({229}, optional)), "I") << optional.size();
    for (const auto& [at, value, told] : {std::tuple{12, 0xF7, ""}, {19, 0, kEnd}, {19, good[19] + 1, kEnd}}) {
        Bytes changed = good;
        changed[static_cast<size_t>(at)] = static_cast<uint8_t>(value);
        EXPECT_EQ(Parse(true, changed), told) << at << " " << value;
    }
    for (size_t size = 0; size < good.size(); ++size)
        EXPECT_EQ(Parse(true, Bytes(good.begin(), good.begin() + static_cast<ptrdiff_t>(size))), size < 20 ? "" : kEnd);
    for (uint32_t type = 0; type < 300; ++type) {
        const bool video = std::set<uint32_t>{1, 2, 4, 8, 16, 255}.count(type) != 0;
        EXPECT_EQ(Parse(true, good, type), video ? "I" : "") << type;
    }
    for (const uint16_t height : {1080, 1088})    // the mount flag goes by the capture size
        EXPECT_EQ(Parse(true, HeaderBytes(kFisheye), 1, height).substr(18, 1), height == 1080 ? "1" : "0");
}

MediaFrameHeader NewRecord() {
    return VideoHeader(CORVANE_STREAM_MULAW, {}, true, 0);    // its header bytes are not parsed
}

// Everything that the record points at is found in the copy, aligned, inside the block, and padded with zeros. A
// reference keeps it all beyond the frame; a sanitizer sees a block that was freed too early, or never.
TEST(MediaFrame, BlockHoldsACopyOfEverything) {
    for (const uint32_t headerSize : {0, 1, 15, 16, 33})
        for (const uint32_t payloadSize : {0, 1, 16, 1000}) {
            SCOPED_TRACE(testing::Message() << headerSize << " " << payloadSize);
            Bytes data = Counting(headerSize + payloadSize + 1), extension(payloadSize / 62 + 1);    // unknown tags
            const Bytes kept(data.begin(), data.end() - 1);
            std::vector<ObjectRecord> objects(5);
            objects[4].id = 104;
            MediaFrameHeader record = NewRecord();
            record.data = record.vendorHeader = data.data();
            record.headerSize = headerSize;
            record.vendorHeaderSize = headerSize / 2;
            record.payloadSize = payloadSize;
            record.extension = extension.data();
            record.extensionSize = payloadSize / 62;
            record.objects = objects.data();
            record.objectCount = 5;
            record.motionInfo = &record;
            auto frame = std::make_unique<MediaFrameImpl>(record);
            data.assign(data.size(), 0xEE);    // the caller's memory is its own again
            objects.assign(5, {});

            const MediaFrameHeader& copy = frame->Header();
            const uint8_t* payload = frame->Payload();
            EXPECT_EQ(reinterpret_cast<const uint8_t*>(copy.objects + 5),
                      reinterpret_cast<const uint8_t*>(&copy) - 16 + frame->MemoryBytes());
            EXPECT_EQ((reinterpret_cast<uintptr_t>(payload) | reinterpret_cast<uintptr_t>(copy.objects)) % 16, 0u);
            EXPECT_GE(copy.data, copy.extension + record.extensionSize);
            EXPECT_EQ(Bytes(payload + payloadSize, payload + payloadSize + 64), Bytes(64, 0));
            EXPECT_EQ(copy.objects[4].id, 104u);
            EXPECT_EQ(copy.motionInfo, copy.motionState);
            EXPECT_EQ(copy.vendorHeader, payload - headerSize / 2);
            const auto* table = static_cast<const FrameReferences*>(copy.references);
            table->add(&copy);
            frame.reset();
            EXPECT_EQ(Bytes(copy.data, copy.data + kept.size()), kept);
            table->drop(&copy);
        }
}

// Only as much of the caller's record is read as it says; the rest counts as zero.
TEST(MediaFrame, RecordSizes) {
    const struct {
        uint32_t stated, readable;
        bool extension, stream_time, objects;
    } rows[] = {{0, 176, true, false, false},   {176, 176, true, false, false}, {132, 136, true, false, false},
                {16, 136, false, false, false}, {256, 256, true, true, false},  {UINT32_MAX, 264, true, true, true}};
    const uint8_t extension[] = {0, 0, 0, 0, 107, 4, 1, 2, 3, 4};
    const ObjectRecord object{};
    for (const auto& row : rows) {
        MediaFrameHeader record = NewRecord();
        record.recordSize = row.stated;
        record.extension = extension;
        record.extensionSize = sizeof extension;
        record.streamSeconds = 7;
        record.objects = &object;
        record.objectCount = 1;
        const GuardedBytes guarded(&record, row.readable);
        const MediaFrameImpl frame(*reinterpret_cast<const MediaFrameHeader*>(guarded.Data()));
        EXPECT_EQ(frame.Header().recordSize, 264u);
        EXPECT_EQ(frame.DecodedWidth(), row.extension ? 0x102u : 0u) << row.stated;
        EXPECT_EQ(TimeMs(frame), row.stream_time ? 7000 : 0) << row.stated;
        EXPECT_EQ(frame.Header().objects != nullptr, row.objects) << row.stated;
    }
}

TEST(MediaFrame, HostileRecords) {
    Bytes largest(limits::kMaxFrameBytes);
    MediaFrameHeader record = NewRecord();
    record.extensionSize = 100;
    record.objectCount = 9;
    record.pictureWidth = 640;
    record.vendorHeader = largest.data();
    record.vendorHeaderSize = 1;
    const MediaFrameImpl empty(record);    // lengths without a pointer, a vendor header outside the header bytes
    EXPECT_EQ(empty.Header().extensionSize + empty.Header().objectCount, 0u);
    EXPECT_EQ(empty.Header().vendorHeader, nullptr);
    EXPECT_EQ(empty.DecodedWidth(), 640u);
    record.payloadSize = 1;
    EXPECT_THROW(MediaFrameImpl{record}, std::invalid_argument);
    record.data = largest.data();
    record.headerSize = record.payloadSize = 0x80000000;
    EXPECT_THROW(MediaFrameImpl{record}, std::bad_alloc);    // before any of it is read
    record.headerSize = 3;
    record.payloadSize = static_cast<uint32_t>(limits::kMaxFrameBytes) - 3;
    EXPECT_EQ(MediaFrameImpl(record).PayloadSize(), record.payloadSize);
    record.headerSize = 4;
    EXPECT_THROW(MediaFrameImpl{record}, std::bad_alloc);
}

TEST(MediaFrame, Times) {
    for (const auto& [seconds, code] : {std::pair{3600, 44}, {-899, 48}, {INT32_MIN, 26844}}) {
        MediaFrameHeader record = NewRecord();
        record.timeZoneSeconds = seconds;
        record.daylight = 0x10000;
        record.streamSeconds = record.timeMilliseconds = UINT32_MAX;
        const MediaFrameImpl frame(record);
        EXPECT_EQ(frame.BaseTime().timeZone, code) << seconds;
        EXPECT_EQ(frame.PresentTime().daylight, 1);
        EXPECT_EQ(TimeMs(frame), 4294967295LL * 1001);
    }
}

}    // namespace
}    // namespace corvane::test
