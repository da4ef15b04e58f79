#include <sstream>

#include "base/Limits.h"
#include "frame/MediaFrameImpl.h"
#include "support/Digest.h"
#include "support/GuardedBytes.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

Bytes Counting(size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

// Tags and lengths in all their forms, also with bits that mean nothing.
std::vector<Bytes> Heads() {
    std::istringstream words(
        "1308 1302 160C 172E 1708 19E201CC 600C 610C 6801 6904 6A04 6B04 6C02 6C03 6C84FFFFFFFF 6C850100000001 "
        "01850100000000 018A00000000000000000102 01C1 01FD01 01E101 018101 8002 81E501 89E700 87010000000000E500 C800 "
        "DF00 E0 E4 E5 E6 E7");
    std::vector<Bytes> heads;
    for (std::string word; words >> word;)
        for (heads.emplace_back(); !word.empty(); word.erase(0, 2))
            heads.back().push_back(static_cast<uint8_t>(std::stoul(word.substr(0, 2), nullptr, 16)));
    return heads;
}

// Up to three entries, one in four followed by another number of bytes than it states.
Bytes RandomEntries(std::mt19937& random, const std::vector<Bytes>& heads, size_t first) {
    Bytes entries;
    for (size_t left = 1 + random() % 3, at = first; left > 0; --left, at = random() % heads.size()) {
        const Bytes& head = heads[at];
        const size_t low = head.back(), stated = head.size() < 4 ? low % 64 : (head.end()[-2] << 8 | low) % 512;
        entries = entries + head;
        for (size_t i = random() % 4 == 0 ? random() % 20 : head.size() == 1 ? 0 : stated; i > 0; --i) {
            const uint32_t below = random() % 4 == 0 ? 256 : 6;
            entries.push_back(static_cast<uint8_t>(random() % below));
        }
    }
    return entries;
}

// Frame header bytes around them: fixed part, optional fields, zeros up to a whole number of items, then the entries.
Bytes HeaderBytes(const Bytes& entries, const Bytes& optional) {
    const size_t used = optional.size() + entries.size();
    const auto items = static_cast<uint8_t>((used + 3) / 4);
    return Bytes(12, 0x55) + Bytes{0x08} + Bytes(6, 0x55) + Bytes{items} + optional + Bytes((4 - used % 4) % 4, 0) +
           entries;
}

void NoteFields(Digest& digest, const FrameExtension& e) {
    digest.Note(e.interlaced, e.fieldCoded, e.notForDisplay, e.presentTimeGiven, e.kind, e.record.index());
    if (const auto* f = std::get_if<FisheyeCalibration>(&e.record)) {
        digest.Note(f->centerX, f->centerY, f->radius, f->lensId, f->lensKind, f->mountFlag);
        digest.NoteEach(f->lensExtra);
    }
    if (const auto* s = std::get_if<SensorLayout>(&e.record)) {
        digest.Note(s->model, s->sensorCount, s->width, s->height);
        for (const SensorLayout::Crop& crop : s->sensorCrop)
            digest.Note(crop.x, crop.y, crop.width, crop.height);
    }
    if (const auto* l = std::get_if<LensRecord>(&e.record)) {
        digest.NoteEach(l->values);
        digest.NoteEach(l->words);
    }
    for (const FrameTimeRecord& time : {e.baseTime, e.presentTime})
        digest.Note(time.seconds, time.milliseconds, time.timeZone, time.daylight);
    digest.Note(e.vendorTag, e.vendorSubtype, e.decodedWidth, e.decodedHeight, e.blobLength);
    digest.NoteEach(std::span(e.blob.get(), e.blobLength));
}

// Areas that end in front of a page that cannot be read, of streams of all types: their fields, or that they end too
// early. The digests were taken while scripts worked out by hand gave the required results.
TEST(FrameExtension, AnswersStayTheSame) {
    constexpr uint64_t kDigests[] = {// of three first entries each
                                     0xD7E4C764C14DF1D2, 0x887651F186050E69, 0xA6A55C22274ADCC8, 0xB6A3055348896DF8,
                                     0x9BDF18802024AD56, 0x3E1874E48286836C, 0x6EC408E4EF658DF9, 0x0A524F9C398D192B,
                                     0x398A6DAC1BEB78AF, 0x0BE3B3E505FC2F4B, 0x907A2DD0CB13EA77};
    // Three presence bits, each followed by 48 set bits when it is set, and five set bits: none is an entry's.
    const Bytes optional[] = {{0x1F}, Bytes{0x7F} + Bytes(5, 0xFF) + Bytes{0xDF}, Bytes(19, 0xFF)};
    const std::vector<Bytes> heads = Heads();
    Digest digest;
    for (size_t first = 0; first < heads.size(); ++first) {
        std::mt19937 random(static_cast<uint32_t>(first));
        for (int turn = 0; turn < 2000; ++turn) {
            const bool header = turn % 2 == 0;
            Bytes bytes = RandomEntries(random, heads, first);
            bytes = header ? HeaderBytes(bytes, optional[random() % 3]) : Bytes{9, 9, 9, 9} + bytes;
            if (random() % 10 == 0)
                bytes.resize(random() % bytes.size());
            if (random() % 10 == 0 && header && bytes.size() > 19)
                bytes[random() % 2 == 0 ? 12 : 19] = static_cast<uint8_t>(random());
            const GuardedBytes guarded(bytes);
            MediaFrameHeader record{};
            record.streamType = random() % 4 != 0 ? uint32_t{CORVANE_STREAM_H264} : random() % 300;
            record.captureWidth = 1920;
            record.captureHeight = random() % 2 == 0 ? 1080 : 1088;
            record.data = record.extension = guarded.Data();
            record.headerSize = record.extensionSize = static_cast<uint32_t>(bytes.size());
            try {
                FrameExtension extension;
                (header ? ParseHeaderExtension : ParsePacketExtension)(record, extension);
                NoteFields(digest, extension);
            } catch (const std::runtime_error& error) {
                digest.NoteEach(std::string(error.what()));
            }
        }
        if (first % 3 == 2)
            EXPECT_EQ(std::exchange(digest, {}).value, kDigests[first / 3]) << first;
    }
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

// Only the stated size of the caller's record is read; the rest counts as zero.
TEST(MediaFrame, RecordSizes) {
    const struct {
        uint32_t stated, readable;
        bool extension, streamTime, objects;
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
        EXPECT_EQ(TimeMs(frame), row.streamTime ? 7000 : 0) << row.stated;
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
