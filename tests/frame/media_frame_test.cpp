#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/Limits.h"
#include "frame/MediaFrameImpl.h"
#include "support/FailingAllocation.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Counting(size_t size, uint8_t first) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(first + i * 7);
    return bytes;
}

MediaFrameHeader NewRecord() {
    MediaFrameHeader record{};
    record.recordSize = 264;
    record.streamType = CORVANE_STREAM_MULAW;    // its header bytes are not parsed
    return record;
}

// Everything that the record points at is found in the copy, aligned, inside the block, and padded with zeros.
TEST(MediaFrame, BlockHoldsACopyOfEverything) {
    for (const size_t header_size : {0, 1, 15, 16, 33}) {
        for (const size_t payload_size : {0, 1, 16, 1000}) {
            for (const size_t extension_size : {0, 3, 16}) {    // below an entry, or unknown tags only
                SCOPED_TRACE(testing::Message() << header_size << " " << payload_size << " " << extension_size);
                Bytes data = Counting(header_size + payload_size, 3);
                data.reserve(1);    // a pointer even to nothing
                Bytes extension(extension_size, 0);
                std::vector<ObjectRecord> objects(5);
                for (uint32_t i = 0; i < 5; ++i)
                    objects[i].id = 100 + i;
                MediaFrameHeader record = NewRecord();
                record.data = data.data();
                record.headerSize = static_cast<uint32_t>(header_size);
                record.payloadSize = static_cast<uint32_t>(payload_size);
                record.extension = extension.data();
                record.extensionSize = static_cast<uint32_t>(extension_size);
                record.objects = objects.data();
                record.objectCount = 5;
                record.motionInfo = &record;
                record.vendorHeader = data.data();
                record.vendorHeaderSize = static_cast<uint32_t>(header_size / 2);
                record.references = &record;
                const Bytes kept = data;
                const MediaFrameImpl frame(record);
                std::fill(data.begin(), data.end(), 0xEE);    // the caller's memory is its own again
                std::fill(objects.begin(), objects.end(), ObjectRecord{});

                const MediaFrameHeader& copy = frame.Header();
                const auto* begin = reinterpret_cast<const uint8_t*>(&copy) - 16;
                const uint8_t* end = begin + frame.MemoryBytes();
                uint32_t count_record[2];
                std::memcpy(count_record, begin, sizeof count_record);
                EXPECT_EQ(count_record[0], 1u);
                EXPECT_EQ(count_record[1] * 16, frame.MemoryBytes());
                EXPECT_EQ(reinterpret_cast<uintptr_t>(frame.Payload()) % 16, 0u);
                EXPECT_TRUE(copy.data > begin && std::equal(kept.begin(), kept.end(), copy.data));
                const Bytes tail(frame.Payload() + payload_size, frame.Payload() + payload_size + 64);
                EXPECT_EQ(tail, Bytes(64, 0));
                EXPECT_TRUE(extension_size == 0 || copy.extension == begin + 16 + 264);
                EXPECT_EQ(reinterpret_cast<const uint8_t*>(copy.objects + 5), end);
                EXPECT_EQ(reinterpret_cast<uintptr_t>(copy.objects) % 16, 0u);
                for (uint32_t i = 0; i < 5; ++i)
                    EXPECT_EQ(copy.objects[i].id, 100 + i);
                EXPECT_EQ(copy.motionInfo, copy.motionState);
                EXPECT_EQ(copy.vendorHeader, frame.Payload() - header_size / 2);
            }
        }
    }
}

TEST(MediaFrame, ReferencesOutliveTheFrame) {
    const Bytes data = Counting(100, 1);
    MediaFrameHeader record = NewRecord();
    record.data = data.data();
    record.payloadSize = 100;
    auto frame = std::make_unique<MediaFrameImpl>(record);
    const MediaFrameHeader* copy = &frame->Header();
    const auto* table = static_cast<const FrameReferences*>(copy->references);
    table->add(copy);
    table->add(copy);
    table->drop(copy);
    frame.reset();
    EXPECT_TRUE(std::equal(data.begin(), data.end(), copy->data));    // a sanitizer sees a block that was freed
    table->drop(copy);                                                // and one that was not
}

// Only as much of the caller's record is read as it says; the rest counts as zero.
TEST(MediaFrame, RecordSizes) {
    struct Row {
        uint32_t stated;
        uint32_t readable;
        bool has_extension, has_stream_time, has_objects;
    };
    const Row rows[] = {
        {0, 176, true, false, false},   {176, 176, true, false, false}, {132, 136, true, false, false},
        {16, 136, false, false, false}, {192, 192, true, true, false},  {256, 256, true, true, false},
        {264, 264, true, true, true},   {1000, 264, true, true, true},  {UINT32_MAX, 264, true, true, true}};
    const uint8_t extension[] = {0, 0, 0, 0, 107, 4, 1, 2, 3, 4};
    const ObjectRecord object{};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.stated);
        MediaFrameHeader record = NewRecord();
        record.recordSize = row.stated;
        record.extension = extension;
        record.extensionSize = sizeof extension;
        record.pictureWidth = 640;
        record.streamSeconds = 7;
        record.timeMilliseconds = 8;
        record.timeZoneSeconds = 3600;
        record.objects = &object;
        record.objectCount = 1;
        const test::GuardedBytes guarded(&record, row.readable);
        const MediaFrameImpl frame(*reinterpret_cast<const MediaFrameHeader*>(guarded.Data()));
        EXPECT_EQ(frame.Header().recordSize, 264u);
        EXPECT_EQ(frame.DecodedWidth(), row.has_extension ? 0x102u : 0u);
        EXPECT_EQ(TimeMs(frame), (row.has_stream_time ? 7000 : 0) + (row.stated == 16 ? 0 : 8));
        EXPECT_EQ(frame.BaseTime().timeZone, row.has_stream_time ? 44 : 48);
        EXPECT_EQ(frame.Header().objects != nullptr, row.has_objects);
    }
}

TEST(MediaFrame, HostileRecords) {
    const Bytes data(64, 1);
    MediaFrameHeader record = NewRecord();
    record.extensionSize = 100;
    record.objectCount = 9;
    record.vendorHeader = data.data();
    record.vendorHeaderSize = 1;
    const MediaFrameImpl empty(record);    // lengths without a pointer
    EXPECT_EQ(empty.Header().extensionSize, 0u);
    EXPECT_EQ(empty.Header().objectCount, 0);
    EXPECT_EQ(empty.Header().vendorHeader, nullptr);
    EXPECT_NE(empty.Payload(), nullptr);

    record.payloadSize = 1;
    EXPECT_THROW(MediaFrameImpl{record}, std::invalid_argument);
    record.data = data.data();
    record.headerSize = 0x80000000;
    record.payloadSize = 0x80000000;
    EXPECT_THROW(MediaFrameImpl{record}, std::bad_alloc);    // before any of it is read

    Bytes largest(limits::kMaxFrameBytes);
    record.data = largest.data();
    record.headerSize = 3;
    record.payloadSize = static_cast<uint32_t>(limits::kMaxFrameBytes) - 3;
    EXPECT_EQ(MediaFrameImpl(record).PayloadSize(), record.payloadSize);
    record.objects = reinterpret_cast<const ObjectRecord*>(largest.data());
    record.objectCount = 1;
    EXPECT_THROW(MediaFrameImpl{record}, std::bad_alloc);
}

// Two allocations, a third for a vendor blob; whichever of them fails, nothing stays behind (the leak checker looks).
TEST(MediaFrame, Allocations) {
    if (!test::allocation::Works())
        GTEST_SKIP() << "operator new belongs to a sanitizer";
    const uint8_t extension[] = {0, 0, 0, 0, 108, 2, 1, 2};
    for (const bool blob : {false, true}) {
        MediaFrameHeader record = NewRecord();
        record.extension = blob ? extension : nullptr;
        record.extensionSize = sizeof extension;
        const uint64_t expected = blob ? 3 : 2;
        for (uint64_t n = 1; n <= expected + 1; ++n) {
            test::allocation::FailAt(n);
            FramePtr frame;
            bool failed = false;
            try {
                frame = std::make_shared<MediaFrameImpl>(record);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            const uint64_t calls = test::allocation::Stop();
            EXPECT_EQ(failed, n <= expected) << n;
            EXPECT_EQ(calls, failed ? n : expected);
        }
    }
}

TEST(MediaFrame, TimeZones) {
    const struct {
        int32_t seconds;
        uint16_t code;
    } rows[] = {{0, 48},   {3600, 44}, {-3600, 52},        {19800, 26},
                {899, 48}, {-899, 48}, {INT32_MIN, 26844}, {INT32_MAX, 38788}};
    for (const auto& row : rows) {
        MediaFrameHeader record = NewRecord();
        record.timeZoneSeconds = row.seconds;
        record.daylight = 0x10000;
        record.streamSeconds = UINT32_MAX;
        record.timeMilliseconds = UINT32_MAX;
        const MediaFrameImpl frame(record);
        EXPECT_EQ(frame.BaseTime().timeZone, row.code) << row.seconds;
        EXPECT_EQ(frame.PresentTime().daylight, 1);
        EXPECT_EQ(TimeMs(frame), 4294967295LL * 1001);
    }
}

TEST(MediaFrame, AudioDurations) {
    const struct {
        uint32_t type, blocks, rate, payload, bit_rate, expected;
    } rows[] = {
        {CORVANE_STREAM_G7221, 3, 0, 0, 0, 60},
        {2048, 2, 0, 0, 0, 40},
        {CORVANE_STREAM_AMR, 0x10000000, 0, 0, 0, 0x40000000},    // cut to 32 bits
        {CORVANE_STREAM_G729A, 3, 0, 0, 0, 30},
        {CORVANE_STREAM_AAC, 0, 44100, 0, 0, 23},
        {CORVANE_STREAM_AAC, 0, 0, 0, 0, 0},
        {CORVANE_STREAM_MULAW, 0, 0, 1000, 0, 125},
        {CORVANE_STREAM_ALAW, 0, 0, 0x10000000, 0, 0x2000000},    // the product needs 64 bits
        {CORVANE_STREAM_G726, 0, 0, 500, 32000, 125},
        {CORVANE_STREAM_G726, 0, 0, 500, 0, 0},
        {CORVANE_STREAM_H264, 3, 8000, 1000, 8000, 0},
    };
    for (const auto& row : rows) {
        MediaFrameHeader record = NewRecord();
        record.streamType = row.type;
        record.audioBlockCount = row.blocks;
        record.audioSampleRate = row.rate;
        record.payloadSize = row.payload;
        record.detail.audio.audioBitRate = row.bit_rate;
        EXPECT_EQ(AudioDurationMs(record), row.expected) << row.type;
    }
}

}    // namespace
}    // namespace corvane
