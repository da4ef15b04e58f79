// The channel that decodes on its caller's thread: beside libavcodec and the decoders of sound called by hand.
#include "base/PictureLayout.h"
#include "channels/ChannelDecoder.h"
#include "filters/FilterPicture.h"
#include "filters/FilterPixelFormatChange.h"
#include "picture/PictureMaker.h"
#include "support/BareDecoder.h"
#include "support/Calling.h"
#include "support/Client.h"
#include "support/GuardedBytes.h"
#include "support/ScriptedDecoder.h"
#include "support/SoundMaker.h"

namespace corvane::test {
namespace {

using Pushed = std::function<void(uint32_t, void*)>;

constexpr uint32_t kMuLaw = CORVANE_STREAM_MULAW, kI420 = CORVANE_PICTURE_I420;

struct Decoder {
    explicit Decoder(uint32_t format = kI420, Pushed* pushed = nullptr) {
        EXPECT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, CORVANE_FLAG_DECODE_ONLY), 0u);
        DecoderChannelSettings settings{.format = format};
        if (pushed != nullptr)
            settings.callback = Calling(*pushed).function, settings.context = pushed;
        EXPECT_EQ(Corvane_CreateDecoderChannel(instance, &channel, &settings), Status_Ok);
    }
    ~Decoder() { EXPECT_EQ(Corvane_Release(&instance), Status_Ok); }
    void Set(int32_t id, uint64_t value, uint64_t extra = 0) const {
        EXPECT_EQ(Corvane_SetChannelOption(channel, id, value, extra), Status_Ok) << id;
    }
    void SetCallback(int32_t id, Pushed* pushed) const {
        Set(id, reinterpret_cast<uint64_t>(pushed), reinterpret_cast<uint64_t>(Calling(*pushed).function));
    }

    void *instance = nullptr, *channel = nullptr;
};

// A picture in memory of exactly `capacity` bytes, by one of the calls that give one.
struct Pulled {
    uint32_t status = 0, size = 0;
    DecodedVideoInfo info{};
    Bytes bytes;
    bool untouched = false;
};
template <typename Call>
Pulled Pull(size_t capacity, Call call) {
    const GuardedBytes memory(Bytes(capacity, 0xAB));
    Pulled out;
    out.info = {.capacity = static_cast<uint32_t>(capacity), .buffer = memory.Data()};
    out.status = call(&out.info, &out.size);
    out.bytes.assign(memory.Data(), memory.Data() + out.size);
    out.untouched = std::all_of(memory.Data(), memory.Data() + capacity, [](uint8_t byte) { return byte == 0xAB; });
    return out;
}
Pulled Decode(void* channel, const MediaFrameHeader& frame, size_t capacity = 1 << 20) {
    return Pull(capacity, [&](auto* info, auto* size) { return Corvane_DecodeVideo(channel, &frame, info, size); });
}
Pulled Get(void* channel, uint32_t format, uint32_t prefix, size_t capacity = 1 << 20) {
    return Pull(capacity, [&](auto* info, auto* size) {
        return Corvane_GetDecodedVideoFrame(channel, 77, info, format, prefix, size);
    });
}

// The output for a picture of libavcodec: one change of format into a maker.
Bytes Wanted(uint32_t format, uint32_t prefix, const AVFrame& bare) {
    const BarePicture planes = To420(bare);
    const PictureSize size{static_cast<uint32_t>(bare.width), static_cast<uint32_t>(bare.height)};
    const PictureMakerPtr maker = MakePicture(format, AlignedBuffer::Use::Brief);
    PictureView view;
    maker->SetPrefix(prefix);
    EXPECT_EQ(maker->GetBuffer(size, view), Status::Ok);
    QMRX::Filter::Picture from{{planes->data[0], planes->data[1], planes->data[2]},
                               {planes->linesize[0], planes->linesize[1], planes->linesize[2]},
                               size.height,
                               PF_I420};
    QMRX::Filter::Picture to = RecordOf(view);
    QMRX::Filter::FilterArgs args{&from, &to, size.width, size.height};
    EXPECT_EQ(QMRX::Filter::FilterPixelFormatChange().Process(&args), 0);
    EXPECT_EQ(maker->Make(), Status::Ok);
    return Bytes(maker->GetData(), maker->GetData() + maker->GetSize());
}

MediaFrameHeader HeaderOf(const uint8_t* head) {
    MediaFrameHeader header{};
    std::memcpy(&header, head, 112);
    return header;
}

// Every codec, in every format and by each of the ways: the bytes are those of libavcodec's picture and the header is
// of the frame that it came from, also where the decoder holds pictures back.
TEST(DecoderChannel, EveryWayGivesThePictureOfLibavcodec) {
    const struct {
        const char* name;
        VideoSpec spec;
        uint32_t threads = 1;
    } rows[] = {{"JPEG", {.streamType = kJpeg, .width = 128, .height = 32, .frames = 6}},
                {"H.263", {.streamType = kH263, .width = 176, .height = 144, .frames = 6}},
                {"MPEG-4", {.streamType = kMpeg4, .width = 98, .height = 34, .frames = 8, .bFrames = 1}},
                {"H.264", {.streamType = kH264, .width = 128, .height = 66, .frames = 20}, 3},
                {"H.264, B", {.streamType = kH264, .width = 130, .height = 34, .frames = 12, .bFrames = 2}},
                {"H.265", {.streamType = kH265, .width = 192, .height = 64, .frames = 10, .bFrames = 1}}};
    for (const auto& row : rows) {
        const auto stream = MakeVideo(row.spec);
        size_t before = 0;
        const auto bare = BareDecode(row.spec.streamType, stream, row.threads, &before);
        std::vector<Bytes> pushed;
        std::vector<uint32_t> formats;
        Pushed first = [&](uint32_t, void*) { ADD_FAILURE() << "the second callback comes first"; };
        uint32_t next = 0;
        Pushed second = [&](uint32_t code, void* record) {
            auto& info = *static_cast<RawPictureInfo*>(record);
            EXPECT_TRUE(code == CORVANE_RAW_PICTURE && info.count == formats.size() + 1 && info.repeat == 0);
            EXPECT_TRUE(info.format == next % 18 + 1 && info.requestedFormat == info.format);
            EXPECT_TRUE(info.pixels == info.buffer + info.prefix && info.prefix == 13);
            pushed.emplace_back(info.buffer, info.buffer + info.size);
            formats.push_back(info.format);
            info.repeat = formats.size() < 3;
            info.requestedFormat = ++next % 18 + 1;
        };
        const Decoder pull, split, push(1, &first);
        for (const Decoder* decoder : {&pull, &split, &push})
            decoder->Set(CORVANE_OPTION_DECODER_THREADS, row.threads);
        push.SetCallback(CORVANE_OPTION_RAW_CALLBACK_2, &second);
        push.Set(CORVANE_OPTION_RAW_PREFIX, 13);
        const auto width = static_cast<uint32_t>(row.spec.width), height = static_cast<uint32_t>(row.spec.height);
        size_t shown = 0;
        for (size_t i = 0; i < stream.size(); ++i) {
            SCOPED_TRACE(testing::Message() << row.name << " " << i);
            const uint32_t format = static_cast<uint32_t>(i) % 18 + 1, prefix = std::array{0u, 13u, 4096u}[i % 3];
            MediaFrameHeader frame =
                VideoHeader(row.spec.streamType, stream[i].bytes, stream[i].key, 1000 + 40 * static_cast<int64_t>(i));
            frame.reservedTail = i;
            pull.Set(CORVANE_OPTION_RAW_FORMAT, format);
            pull.Set(CORVANE_OPTION_RAW_PREFIX, prefix);
            const Pulled pulled = Decode(pull.channel, frame);
            DecodedPictureSize told{};
            uint32_t bytes = 0;
            EXPECT_EQ(pulled.status, Status_Ok);
            EXPECT_EQ(Corvane_DecodeVideoDecodeOnly(split.channel, &frame, &told, &bytes), Status_Ok);
            push.Set(CORVANE_OPTION_RAW_FORMAT, next % 18 + 1);
            pushed.clear();
            formats.clear();
            EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(push.channel, &frame), Status_Ok);
            if (pulled.size == 0) {
                EXPECT_TRUE(pulled.untouched && told.width == 0 && bytes == 0 && formats.empty());
                continue;
            }
            ASSERT_LT(shown, before);
            const AVFrame& picture = *bare[shown++];
            const Bytes wanted = Wanted(format, prefix, picture);
            EXPECT_TRUE(pulled.bytes == wanted);
            EXPECT_TRUE(pulled.info.width == width && pulled.info.height == height);
            EXPECT_TRUE(pulled.info.prefix == prefix && pulled.info.pixels == pulled.info.buffer + prefix);
            EXPECT_EQ(pulled.info.headerTail, shown - 1) << "the n-th picture is of the n-th frame";
            EXPECT_EQ(HeaderOf(pulled.info.header).timeMilliseconds, 40 * (shown - 1) % 1000);
            EXPECT_TRUE(told.width == width && told.height == height);
            const Pulled got = Get(split.channel, format, prefix), jpeg = Get(split.channel, 8, 0);
            EXPECT_TRUE(got.bytes == wanted && jpeg.bytes == Wanted(8, 0, picture));
            ASSERT_EQ(formats.size(), 3u);
            for (size_t k = 0; k < 3; ++k)
                EXPECT_TRUE(pushed[k] == Wanted(formats[k], 13, picture)) << formats[k];
        }
        EXPECT_EQ(shown, before) << row.name;
        EXPECT_GT(shown, 2u) << row.name;
        for (const Decoder* decoder : {&pull, &split, &push}) {
            const ChannelStatistics statistics = StatisticsOf(decoder->channel);
            ExpectSums(statistics);
            EXPECT_TRUE(statistics.framesTaken == stream.size() && statistics.picturesHandedOver == shown);
        }
    }
}

// A buffer of the told size and the prefix is enough, and one byte less than the picture takes is too little and stays
// as it was; in every format, for sizes with padded rows and for pictures that no encoder of JPEG likes.
TEST(DecoderChannel, ToldSizesServe) {
    constexpr uint64_t kTable[] = {20, 20, 30, 40, 20, 30, 40, 40, 20, 20, 15, 20, 30, 40, 20, 15, 20, 15};    // tenths
    constexpr uint64_t kHeads[] = {0, 0, 0, 0, 66, 54, 54, 0, 0, 54, 0, 0, 0, 0, 0, 0, 0, 0};
    Bytes noise = MakeVideo({.streamType = kJpeg, .width = 640, .height = 480, .frames = 1})[0].bytes;
    const MediaFrameHeader frame = VideoHeader(kJpeg, noise, true, 0);
    // Black and white in turns, by chance: what takes most bytes as a JPEG.
    CallingFilter filter([](QMRX::Filter::FilterArgs* args) {
        static std::mt19937 chance(7);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(args->destination->plane[0]) % 64, 0u) << "as filters are promised";
        for (int plane = 0; plane < 3; ++plane)
            for (uint32_t y = 0; y < args->height >> (plane != 0); ++y)
                for (uint32_t x = 0; x < args->width >> (plane != 0); ++x)
                    args->destination->plane[plane][y * static_cast<uint32_t>(args->destination->stride[plane]) + x] =
                        chance() % 2 != 0 ? 255 : 0;
        return 0;
    });
    for (const auto& [width, height] :
         {std::pair(2u, 2u), {16u, 16u}, {18u, 6u}, {66u, 34u}, {130u, 18u}, {321u, 241u}, {640u, 480u}})
        for (uint32_t format = 1; format <= 18; ++format) {
            SCOPED_TRACE(testing::Message() << width << "x" << height << " in " << format);
            const Decoder decoder(format);
            EXPECT_EQ(Corvane_InsertFilter(decoder.channel, &filter), Status_Ok);
            EXPECT_EQ(Corvane_SetDecodeSize(decoder.channel, width, height), Status_Ok);
            DecodedPictureSize told{};
            uint32_t bytes = 0;
            EXPECT_EQ(Corvane_DecodeVideoDecodeOnly(decoder.channel, &frame, &told, &bytes), Status_Ok);
            EXPECT_TRUE(told.width == (width + 1) / 2 * 2 && told.height == (height + 1) / 2 * 2);
            const uint64_t table = uint64_t{told.width} * told.height * kTable[format - 1] / 10 + kHeads[format - 1];
            const bool exact = format != 5 && format != 10 && format != 6 && (format != 8 || width > 300);
            EXPECT_TRUE(exact ? bytes == table : bytes >= table && bytes <= table + 4096) << bytes;
            const Pulled got = Get(decoder.channel, format, 5, bytes + 5);
            EXPECT_EQ(got.status, Status_Ok);
            EXPECT_TRUE(format == 8 ? got.size > 5 : format == 5 ? got.size == bytes + 5 : got.size <= bytes + 5);
            EXPECT_TRUE(std::all_of(got.bytes.begin(), got.bytes.begin() + 5, [](uint8_t byte) { return byte == 0; }));
            if (format == 8)
                continue;    // of noise no two are alike
            const Pulled little = Get(decoder.channel, format, 5, got.size - 1);
            EXPECT_TRUE(little.status == Status_BufferTooSmall && little.untouched && little.size == 0);
            EXPECT_EQ(Get(decoder.channel, format, 5, got.size + 3).status, Status_Ok);    // on another boundary
        }
}

// Bad input gets its status and loses itself; the next good frame gives its picture.
TEST(DecoderChannel, BadInputLosesItself) {
    const Bytes jpeg = OneJpeg(), silence(160, 0xFF);
    const MediaFrameHeader good = VideoHeader(kJpeg, jpeg, true, 0);
    const MediaFrameHeader sound = SoundHeader(kMuLaw, silence, 8000);
    const auto changed = [&](auto MediaFrameHeader::*field, auto value) {
        MediaFrameHeader header = good;
        header.*field = value;
        return header;
    };
    struct Row {
        const char* name;
        MediaFrameHeader frame;
        uint32_t format, prefix, capacity, status;
        PictureSize size{};
        bool noBuffer = false;
    };
    const Bytes odd = MakeVideo({.streamType = kJpeg, .width = 81, .height = 33, .frames = 1})[0].bytes;
    const MediaFrameHeader oddFrame = VideoHeader(kJpeg, odd, true, 0);
    const Row rows[] = {
        {"placeholder", changed(&MediaFrameHeader::streamType, 255u), 11, 0, 9999, Status_UnsupportedMedia},
        {"metadata", changed(&MediaFrameHeader::streamType, 0x20000u), 11, 0, 9999, Status_UnsupportedMedia},
        {"sound", sound, 11, 0, 9999, Status_UnsupportedMedia},
        {"no payload", changed(&MediaFrameHeader::payloadSize, 0u), 11, 0, 9999, Status_Ok},
        {"no data", changed(&MediaFrameHeader::data, static_cast<const uint8_t*>(nullptr)), 11, 0, 9999, Status_Failed},
        {"too large", changed(&MediaFrameHeader::payloadSize, 0x20000000u), 11, 0, 9999, Status_OutOfMemory},
        {"no decoder", changed(&MediaFrameHeader::extension, kOtherVendor), 11, 0, 9999, Status_Ok},
        {"format 0", good, 0, 0, 9999, Status_UnknownPictureFormat},
        {"format 19", good, 19, 0, 9999, Status_UnknownPictureFormat},
        {"format -1", good, 0xFFFFFFFF, 0, 9999, Status_UnknownPictureFormat},
        {"prefix beyond 32 bits", good, 11, 0xFFFFFFFF, 9999, Status_OutOfMemory},
        {"no buffer", good, 11, 0, 9999, Status_InvalidArgument, {}, true},
        {"no buffer and no room", good, 11, 0, 0, Status_BufferTooSmall, {}, true},
        {"decode size 2^31", good, 11, 0, 9999, Status_Failed, {0x80000000, 16}},
        {"decode size 2^32 - 1", good, 11, 0, 9999, Status_Failed, {16, 0xFFFFFFFF}},
        {"decode size 1 x 1", good, 11, 0, 6, Status_Ok, {1, 1}},
        {"odd size in 32 bits", oddFrame, 4, 0, 81 * 33 * 4, Status_Failed},
        {"odd size in 24 bits", oddFrame, 3, 0, 81 * 33 * 3, Status_Failed},
        {"odd size in 24 bits, too small", oddFrame, 3, 0, 81, Status_Failed},
        {"odd size as planes", oddFrame, 11, 0, 81 * 33 * 3 / 2, Status_Ok},
        {"odd size in 16 bits", oddFrame, 2, 0, 81 * 33 * 2, Status_Ok},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Decoder decoder(row.format);
        decoder.Set(CORVANE_OPTION_RAW_PREFIX, row.prefix);
        if (!row.size.Empty())
            EXPECT_EQ(Corvane_SetDecodeSize(decoder.channel, row.size.width, row.size.height), Status_Ok);
        Bytes memory(row.capacity + 64, 0xAB);
        DecodedVideoInfo info{.width = 7, .capacity = row.capacity, .buffer = row.noBuffer ? nullptr : memory.data()};
        uint32_t size = 0;
        EXPECT_EQ(Corvane_DecodeVideo(decoder.channel, &row.frame, &info, &size), row.status);
        EXPECT_TRUE(size == 0 ? info.width == 7 : row.status == Status_Ok && info.width != 7);
        EXPECT_EQ(memory[row.capacity], 0xAB) << "wrote past the end";
        if (!row.size.Empty())
            continue;    // there is no way back
        decoder.Set(CORVANE_OPTION_RAW_FORMAT, kI420);
        decoder.Set(CORVANE_OPTION_RAW_PREFIX, 0);
        EXPECT_EQ(Decode(decoder.channel, good).size, 80u * 32 * 3 / 2);
    }
}

// The switches, the last picture, and what the two classes do not take from each other.
TEST(DecoderChannel, SwitchesAndWhatStaysBetweenCalls) {
    const Bytes jpeg = OneJpeg(), noise(40, 1);
    const MediaFrameHeader good = VideoHeader(kJpeg, jpeg, true, 0), bad = VideoHeader(kJpeg, noise, true, 0);
    const Decoder decoder;
    EXPECT_TRUE(Get(decoder.channel, kI420, 0).untouched);    // nothing was decoded yet
    decoder.Set(CORVANE_OPTION_RAW_PICTURES, 0);
    EXPECT_TRUE(Decode(decoder.channel, good).size == 0 && Get(decoder.channel, kI420, 0).size == 0);
    EXPECT_EQ(StatisticsOf(decoder.channel).framesTaken, 0u) << "it must not reach the decoder";
    decoder.Set(CORVANE_OPTION_RAW_PICTURES, 1);
    const Pulled first = Decode(decoder.channel, good, 100);
    EXPECT_EQ(first.status, Status_BufferTooSmall);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Get(decoder.channel, kI420, 0).size, 80u * 32 * 3 / 2);
    decoder.Set(CORVANE_OPTION_RAW_PICTURES, 0);
    EXPECT_NE(Get(decoder.channel, kI420, 0).size, 0u) << "the picture stays";
    decoder.Set(CORVANE_OPTION_RAW_PICTURES, 1);
    EXPECT_EQ(Decode(decoder.channel, bad).status, Status_Ok);
    EXPECT_EQ(Get(decoder.channel, kI420, 0).size, 0u) << "the last decode gave no picture";
    EXPECT_NE(Decode(decoder.channel, good).size, 0u);
    MediaFrameHeader nothing = good;
    nothing.data = nullptr;
    EXPECT_EQ(Decode(decoder.channel, nothing).status, Status_Failed);
    EXPECT_EQ(Get(decoder.channel, kI420, 0).size, 0u) << "neither did a frame that cannot be read";
    uint32_t size = 9;
    DecodedPictureSize told{};
    EXPECT_EQ(Corvane_DecodeVideoDecodeOnly(decoder.channel, &good, &told, &size), Status_Ok);
    EXPECT_EQ(size, 80u * 32 * 3 / 2);

    EXPECT_NE(Decode(decoder.channel, good).size, 0u);
    EXPECT_EQ(StatisticsOf(decoder.channel).picturesReplaced, 1u);
    // Settings reach their places: quality, kinds of scaling (there is no fifth), smoothing of what is marked
    // interlaced.
    const size_t fine = Get(decoder.channel, 8, 0).size;
    decoder.Set(CORVANE_OPTION_JPEG_QUALITY, 90);
    EXPECT_LT(Get(decoder.channel, 8, 0).size, fine);
    constexpr uint8_t kMark[] = {0xFF, 0xE2, 0, 12, 'F', 'M', '_', 'I', 'L', ' ', 'M', 'o', 'd', 'e'};
    Bytes marked = jpeg;
    marked.insert(marked.begin() + 2, std::begin(kMark), std::end(kMark));
    const MediaFrameHeader interlaced = VideoHeader(kJpeg, marked, true, 0);
    const Bytes plain = Decode(decoder.channel, interlaced).bytes;
    decoder.Set(CORVANE_OPTION_SMOOTHING, 1);
    EXPECT_NE(Get(decoder.channel, kI420, 0).bytes, plain);
    EXPECT_EQ(StatisticsOf(decoder.channel).picturesSmoothed, 0u) << "counted by picture, at its first output";
    EXPECT_NE(Decode(decoder.channel, interlaced).bytes, plain);
    EXPECT_EQ(StatisticsOf(decoder.channel).picturesSmoothed, 1u);
    EXPECT_EQ(Corvane_SetDecodeSize(decoder.channel, 64, 48), Status_Ok);
    Bytes scaled[6];
    for (const uint64_t kind : {0, 1, 2, 3, 4, 0}) {
        decoder.Set(CORVANE_OPTION_RESIZE_KIND, kind);
        scaled[kind == 0 && !scaled[0].empty() ? 5 : kind] = Get(decoder.channel, kI420, 0).bytes;
    }
    EXPECT_TRUE(scaled[0] != scaled[1] && scaled[1] != scaled[2] && scaled[2] != scaled[3]);
    EXPECT_TRUE(scaled[4] == scaled[3] && scaled[5] == scaled[0]);
    for (int32_t id = -1; id <= 1001; ++id) {
        const bool known =
            std::ranges::count(std::array{6, 14, 15, 16, 17, 18, 22, 35, 46, 47, 48, 52, 53, 57, 1000}, id);
        EXPECT_EQ(Corvane_SetChannelOption(decoder.channel, id, 0, 0), known ? Status_Ok : Status_NotSupported) << id;
    }
}

// Sound of each codec equals its decoder called by hand; a picture callback gets no sound that another one takes.
TEST(DecoderChannel, SoundIsThatOfItsDecoder) {
    const Samples tone = Sweep(16000, 0.4, 300, 900);
    const struct {
        uint32_t type;
        std::vector<Bytes> blocks;
        int rate;
    } rows[] = {{kMuLaw, {Bytes(160, 0x31), Bytes(7, 0x9A)}, 8000},
                {CORVANE_STREAM_AAC, MakeAac(tone, 16000).blocks, 16000},
                {CORVANE_STREAM_G729A, MakeG729(tone).blocks, 8000},
                {CORVANE_STREAM_G7221, G7221Vectors("sine60").blocks, 16000}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        Bytes pushed;
        uint32_t duration = 0;
        Pushed onSound = [&](uint32_t code, void* record) {
            const auto& info = *static_cast<RawAudioInfo*>(record);
            EXPECT_EQ(code, uint32_t{CORVANE_RAW_SOUND});
            EXPECT_EQ(HeaderOf(info.header).streamType, row.type);
            pushed.assign(info.samples, info.samples + info.size);
            duration = info.duration;
        };
        const Decoder pull, push(kI420, &onSound);
        AudioDecoderHolder bare;
        Bytes pcm(576'000), wanted(576'000);
        for (const Bytes& block : row.blocks) {
            MediaFrameHeader frame = SoundHeader(row.type, block, row.rate, 1, 1, 12'345);
            frame.reservedTail = 99;
            auto capacity = static_cast<uint32_t>(wanted.size());
            ASSERT_EQ(bare.Decode(wanted.data(), &capacity, MediaFrameImpl(frame)), 0);
            DecodedAudioInfo info{.capacity = capacity, .pcm = pcm.data()};
            uint32_t size = 0;
            EXPECT_EQ(Corvane_DecodeAudio(pull.channel, &frame, &info, &size), Status_Ok);
            EXPECT_TRUE(size == capacity && std::equal(pcm.begin(), pcm.begin() + size, wanted.begin()));
            EXPECT_TRUE(info.timeSeconds == 12 && info.timeMilliseconds == 345 && info.headerTail == 99);
            EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(push.channel, &frame), Status_Ok);
            EXPECT_TRUE(std::ranges::equal(pushed, std::span(wanted).first(capacity)));
            EXPECT_EQ(duration, info.duration);
            EXPECT_EQ(duration, AudioDurationMs(frame));
        }
    }
    const Bytes silence(160, 0xFF);
    const MediaFrameHeader frame = SoundHeader(kMuLaw, silence, 8000);
    int first = 0, second = 0;
    Pushed onFirst = [&](uint32_t, void*) { ++first; }, onSecond = [&](uint32_t, void*) { ++second; };
    const Decoder decoder(kI420, &onFirst);
    Bytes pcm(320, 0xAB);
    DecodedAudioInfo info{.capacity = 319, .pcm = pcm.data()};
    uint32_t size = 0;
    EXPECT_EQ(Corvane_DecodeAudio(decoder.channel, &frame, &info, &size), Status_BufferTooSmall);
    EXPECT_TRUE(size == 0 && pcm == Bytes(320, 0xAB));
    info.pcm = nullptr;
    EXPECT_EQ(Corvane_DecodeAudio(decoder.channel, &frame, &info, &size), Status_InvalidArgument);
    const Bytes jpeg = OneJpeg();
    const MediaFrameHeader video = VideoHeader(kJpeg, jpeg, true, 0);
    EXPECT_EQ(Corvane_DecodeAudio(decoder.channel, &video, &info, &size), Status_UnsupportedMedia);
    const MediaFrameHeader nothing = SoundHeader(CORVANE_STREAM_AAC, Bytes{}, 8000);
    EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(decoder.channel, &nothing), Status_Failed);
    EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(decoder.channel, &frame), Status_Ok);
    decoder.SetCallback(CORVANE_OPTION_RAW_CALLBACK_2, &onSecond);
    EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(decoder.channel, &frame), Status_Ok);
    decoder.Set(CORVANE_OPTION_RAW_SOUND, 0);
    EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(decoder.channel, &frame), Status_Ok);
    info = {.capacity = 320, .pcm = pcm.data()};
    EXPECT_EQ(Corvane_DecodeAudio(decoder.channel, &frame, &info, &size), Status_Ok);
    EXPECT_TRUE(first == 1 && second == 1 && size == 0);
    const ChannelStatistics statistics = StatisticsOf(decoder.channel);
    EXPECT_TRUE(statistics.soundFrames == 4 && statistics.soundHeard == 3 && statistics.soundLostDecoder == 1);
    ExpectSums(statistics);
}

// From its own callback the channel refuses what it cannot do, takes settings for the next output, and survives what a
// client's code raises. So does it against another thread, whose removal of a filter waits for the call.
TEST(DecoderChannel, OneCallAtATime) {
    const Bytes jpeg = OneJpeg();
    const MediaFrameHeader frame = VideoHeader(kJpeg, jpeg, true, 0);
    std::function<void(RawPictureInfo&)> act = [](RawPictureInfo&) {};
    std::vector<uint32_t> formats;
    Pushed pushed = [&](uint32_t, void* record) {
        auto& info = *static_cast<RawPictureInfo*>(record);
        formats.push_back(info.format);
        act(info);
    };
    Pushed replaced = [&](uint32_t, void*) { formats.push_back(0); };
    Decoder decoder;
    act = [](RawPictureInfo& info) { info.repeat = 1; };
    const auto input = [&] {
        formats.clear();
        return Corvane_InputToBeDecodedMediaFrame(decoder.channel, &frame);
    };
    decoder.SetCallback(CORVANE_OPTION_RAW_CALLBACK, &pushed);
    EXPECT_EQ(input(), Status_Ok);
    EXPECT_EQ(formats.size(), 1u) << "the first callback cannot ask again";
    decoder.SetCallback(CORVANE_OPTION_RAW_CALLBACK_2, &pushed);
    act = [&](RawPictureInfo& info) {    // an unknown format ends the repetitions
        info.repeat = 1;
        info.requestedFormat = formats.size() == 1 ? 4 : 0xFFFFFFFF;
    };
    EXPECT_EQ(input(), Status_UnknownPictureFormat);
    EXPECT_EQ(formats, (std::vector<uint32_t>{11, 4}));
    act = [&](RawPictureInfo& info) {    // settings count from the next output on
        EXPECT_EQ(info.prefix, formats.size() == 1 ? 0u : 3u);
        EXPECT_EQ(info.width, formats.size() == 1 ? 80u : 40u);
        info.repeat = formats.size() == 1;
        decoder.Set(CORVANE_OPTION_RAW_PREFIX, 3);
        EXPECT_EQ(Corvane_SetDecodeSize(decoder.channel, 40, 16), Status_Ok);
    };
    EXPECT_EQ(input(), Status_Ok);
    EXPECT_EQ(formats.size(), 2u);
    act = [&](RawPictureInfo& info) {    // another callback does not get the rest
        info.repeat = 1;
        decoder.SetCallback(CORVANE_OPTION_RAW_CALLBACK_2, &replaced);
    };
    EXPECT_EQ(input(), Status_Ok);
    EXPECT_EQ(formats, (std::vector<uint32_t>{11}));
    decoder.SetCallback(CORVANE_OPTION_RAW_CALLBACK_2, &pushed);
    for (const bool noMemory : {false, true}) {
        act = [&](RawPictureInfo&) { noMemory ? throw std::bad_alloc() : throw 7; };
        EXPECT_EQ(input(), Status_Failed);
    }
    // Against another thread.
    std::atomic<int> stage{0};
    CallingFilter filter([&](auto*) {
        if (stage == 1)
            for (stage = 2; stage != 3;)
                std::this_thread::yield();
        return 0;
    });
    act = [](RawPictureInfo&) {};
    EXPECT_EQ(Corvane_InsertFilter(decoder.channel, &filter), Status_Ok);
    EXPECT_EQ(Corvane_InsertFilter(decoder.channel, &filter), Status_Failed);
    stage = 1;
    std::thread inside([&] { EXPECT_EQ(input(), Status_Ok); });
    ASSERT_TRUE(Eventually([&] { return stage == 2; }));
    void* handle = decoder.channel;
    EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(decoder.channel, &frame), Status_Failed);
    EXPECT_EQ(Corvane_DeleteDecoderChannel(decoder.instance, &handle), Status_Failed);
    EXPECT_EQ(Corvane_DeleteChannel(decoder.instance, &handle), Status_Failed);
    EXPECT_EQ(handle, decoder.channel);
    decoder.Set(CORVANE_OPTION_RAW_FORMAT, 4);
    std::atomic<bool> removed{false};
    std::thread remover([&] {
        EXPECT_EQ(Corvane_RemoveFilter(decoder.channel, &filter), Status_Ok);
        removed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(removed);
    stage = 3;
    inside.join();
    remover.join();
    EXPECT_EQ(formats, (std::vector<uint32_t>{11}));
    EXPECT_EQ(input(), Status_Ok);
    EXPECT_EQ(formats, (std::vector<uint32_t>{4}));
    EXPECT_EQ(Corvane_DeleteDecoderChannel(decoder.instance, &handle), Status_Ok);
    EXPECT_EQ(handle, nullptr);
    // A callback that goes while its picture is decoded is not called.
    CChannelDecoder channel({Calling(pushed).function, &pushed, kI420, 0}, false);
    channel.SetFactories({.GetDecoderIsolated_QuickSync = &ScriptedDecoder::Make});
    EXPECT_EQ(channel.SetOption(CORVANE_OPTION_H264_DECODER, 3, 0), Status::Ok);
    ScriptedDecoder::Begin();
    ScriptedDecoder::picture = [&, picture = ScriptedDecoder::picture](const EncodedUnit& unit) {
        EXPECT_EQ(channel.SetOption(CORVANE_OPTION_RAW_CALLBACK, 0, 0), Status::Ok);
        return picture(unit);
    };
    EXPECT_EQ(channel.Input(VideoHeader(kH264, jpeg, true, 0)), Status::Ok);
    EXPECT_EQ(formats.size(), 1u);
}

// Channels are independent: several threads, each with its own, see their own pictures.
TEST(DecoderChannel, ManyChannelsInManyThreads) {
    const auto stream = MakeVideo({.width = 128, .height = 66, .frames = 30});
    const auto bare = BareDecode(kH264, stream);
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
        threads.emplace_back([&] {
            const Decoder decoder;
            size_t shown = 0;
            for (const EncodedPicture& picture : stream) {
                const Pulled got =
                    Decode(decoder.channel, VideoHeader(kH264, picture.bytes, picture.key, picture.ptsMs));
                if (got.size != 0)
                    EXPECT_EQ(ReadStamp(got.info.pixels == nullptr ? nullptr : got.bytes.data(), 128),
                              stream[static_cast<size_t>(bare[shown++]->pts)].number);
            }
            EXPECT_GT(shown, 20u);
        });
    for (std::thread& thread : threads)
        thread.join();
}

}    // namespace
}    // namespace corvane::test
