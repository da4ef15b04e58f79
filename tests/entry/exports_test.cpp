#include <fstream>
#include <limits>
#include <set>

#include "channels/AVIChannel.h"
#include "corvane/bitpacker.h"
#include "corvane/jpegenc.h"
#include "entry/Calls.h"
#include "support/Client.h"
#include "support/Testing.h"

namespace corvane {
namespace {

TEST(Exports, VersionAndFlagsOfAnInstance) {
    const struct {
        uint32_t version, flags, status, channel = Status_Ok;
    } rows[] = {
        {0x0505, 0, Status_Ok},
        {0x0005, 0, Status_Ok},
        {0xABCD0305, 0x2119, Status_Ok, Status_DecodeOnlyInstance},
        {0x0605, 0, Status_VersionMismatch},
        {0x0506, 0, Status_VersionMismatch},
        {0x0505, 0x0006, Status_InvalidArgument},
        {0x0506, 0x0006, Status_VersionMismatch},
        {0x0505, 0x0004, Status_Ok},
    };
    for (const auto& row : rows) {
        void *instance = nullptr, *channel = nullptr;
        EXPECT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, row.version, row.flags), row.status);
        ASSERT_EQ(instance != nullptr, row.status == Status_Ok);
        if (instance == nullptr)
            continue;
        EXPECT_EQ(Corvane_CreateChannel(instance, &channel, nullptr), row.channel);
        EXPECT_EQ(channel != nullptr, row.channel == Status_Ok);
        channel = channel == nullptr ? &instance : channel;    // never a channel
        EXPECT_EQ(Corvane_DeleteChannel(instance, &channel), Status_Ok);
        EXPECT_EQ(channel, nullptr);
        EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
        EXPECT_EQ(instance, nullptr);
    }
}

// An AVI channel of a side library that has no function.
struct AviChannel {
    void* Handle() { return channel.Handle(); }
    AviFunctionTable none;
    CAVIChannel channel{none};
};

// Every export with every kind of handle: it does its work, or refuses the handle and leaves its object alone.
TEST(Exports, AcceptTheirOwnHandlesOnly) {
    AviChannel avi;
    for (const test::Call& call : test::Calls()) {
        test::Client client;    // not started: a flood would wait for room
        const DecoderChannelSettings settings{.format = CORVANE_PICTURE_I420};
        void* decoder = nullptr;
        Corvane_CreateDecoderChannel(client.instance, &decoder, &settings);
        const struct {
            const char* kind;
            void* handle;
            uint32_t is;
        } handles[] = {{"null", nullptr, test::kAnything},
                       {"an AVI channel", avi.Handle(), test::kAvi},
                       {"a decoder channel", decoder, test::kDecoder},
                       {"a live channel", client.channel, test::kStream},
                       {"an instance", client.instance, test::kInstance}};
        for (const auto& row : handles) {
            SCOPED_TRACE(testing::Message() << call.name << " with " << row.kind);
            const bool ofChannel = (call.accepts & test::kChannels) != 0;
            const uint32_t status =
                call.call(ofChannel ? client.instance : row.handle, ofChannel ? row.handle : nullptr);
            if (call.accepts == test::kAnything)
                EXPECT_EQ(status, call.onOwn);
            else if (row.handle == nullptr)
                EXPECT_EQ(status, call.name == std::string("Release") ? Status_Ok : Status_InvalidArgument);
            else if ((row.is & call.accepts) == 0)
                EXPECT_EQ(status, ofChannel ? Status_WrongChannelType : Status_InvalidArgument);
            else
                EXPECT_TRUE(status == Status_Ok || status == Status_ChannelNotStarted ||
                            (row.is == test::kAvi && status == Status_Failed) ||
                            (row.is != test::kDecoder && status == call.onOwn))
                    << status;
            if (call.name == std::string("Release") && row.is == test::kInstance)
                client.instance = nullptr, client.channel = nullptr;
        }
    }
}

// The exports whose handles are plain objects: null is all that they can refuse.
TEST(Exports, PlainObjectsAndNullHandles) {
    struct Row {
        const char* name;
        std::function<uint64_t(void*)> call;
        uint32_t status = 0xFFFFFFFF;
    };
    const auto with = [](const char* name, auto function, auto... arguments) {
        return Row{name, [=](void* handle) { return uint64_t{function(handle, arguments...)}; }};
    };
    static JPEGEncFrame frame{};
    static JPEGEncRequest request{};
    static uint8_t byte;
    const Row rows[] = {
        {"JPEGEnc_QueryMemSize", [](void*) { return JPEGEnc_QueryMemSize(nullptr); }},
        {"JPEGEnc_Initial", [](void*) { return JPEGEnc_Initial(nullptr, nullptr); }},
        {"JPEGEnc_Release", [](void* handle) { return JPEGEnc_Release(&handle); }, 0},
        {"JPEGEnc_GetVersionInfo", [](void*) { return JPEGEnc_GetVersionInfo(&byte, &byte, &byte, nullptr); }},
        with("JPEGEnc_OneFrame", &JPEGEnc_OneFrame, &frame),
        with("JPEGEnc_SetOptions", &JPEGEnc_SetOptions, &request),
        with("JPEGEnc_TakeData", &JPEGEnc_TakeData, &byte, 1),
        with("JPEGEnc_QueryFilledBufferSpace", &JPEGEnc_QueryFilledBufferSpace),
        with("JPEGEnc_Quit", &JPEGEnc_Quit),
        {"PB_QueryMemSize", [](void*) { return PB_QueryMemSize(nullptr); }},
        {"PB_Initial", [](void*) { return PB_Initial(nullptr, nullptr); }},
        {"PB_Release", [](void* handle) { return PB_Release(&handle); }, 0},
        {"PB_GetVersionInfo", [](void*) { return PB_GetVersionInfo(&byte, &byte, &byte, nullptr); }},
        with("PB_SetNewBuf", &PB_SetNewBuf, &byte, 1),
        with("PB_FlushPool", &PB_FlushPool),
        with("PB_Stop", &PB_Stop),
        with("PB_Continue", &PB_Continue),
        with("PB_SpliceBits", &PB_SpliceBits, 1, 1),
        with("PB_SpliceBytes", &PB_SpliceBytes, 1, 1),
        with("PB_PutBytes", &PB_PutBytes, &byte, 1),
        with("PB_SpliceAlign", &PB_SpliceAlign),
        with("PB_SpliceAlignOneBits", &PB_SpliceAlignOneBits),
        with("PB_SpliceStuffing", &PB_SpliceStuffing),
        with("PB_GetUnAlignBytes", &PB_GetUnAlignBytes),
        with("PB_UpdateBytePosition", &PB_UpdateBytePosition, 1),
        with("PB_UpdateByteCount", &PB_UpdateByteCount),
        with("PB_SetBookmark", &PB_SetBookmark),
        with("PB_GotoBookmark", &PB_GotoBookmark),
        with("PB_GetBytes", &PB_GetBytes, &byte, 1),
        with("PB_GetFullness", &PB_GetFullness),
        with("PB_GetEncBytes", &PB_GetEncBytes),
        with("PB_GetEncBits", &PB_GetEncBits),
        with("PB_GetBitPosition", &PB_GetBitPosition),
        with("PB_SetBitPosition", &PB_SetBitPosition, 1),
        with("PB_GetSymbol", &PB_GetSymbol),
        with("PB_SetSymbol", &PB_SetSymbol, 1),
        with("PB_GetBaseAddr", &PB_GetBaseAddr),
        with("PB_GetBufSize", &PB_GetBufSize),
        with("PB_GetCurrAddr", &PB_GetCurrAddr),
    };
    std::set<std::string> tested;
    for (const Row& row : rows) {
        EXPECT_EQ(uint32_t(row.call(nullptr)), row.status) << row.name;
        tested.insert(row.name);
    }
    for (const test::Call& call : test::Calls())
        tested.insert(std::string("Corvane_") + call.name);
    std::set<std::string> exported;
    std::ifstream list(CORVANE_EXPORTS);
    for (std::string name; list >> name;)
        exported.insert(name);
    EXPECT_EQ(tested, exported) << "each export has a row in one of the two tables";
}

TEST(Exports, WrongArguments) {
    AviChannel avi;
    PictureBuffer picture{};
    DisplayFrameInfo info{};
    DisplayArea area{};
    const DecoderChannelSettings settings{};
    DecodedVideoInfo video{};
    MediaFrameHeader frame{};
    uint32_t size;
    void* none = nullptr;
    auto* const context = reinterpret_cast<struct _cairo*>(&info);    // not looked at
    test::Client client;
    void* const channel = client.channel;
    const uint32_t invalid[] = {
        Corvane_Initial(nullptr, nullptr, nullptr, 0, 0, 0, 0, 0),
        Corvane_Release(nullptr),
        Corvane_LoadDecoders(client.instance, nullptr),
        Corvane_InputEncodedMediaFrame(channel, nullptr),
        Corvane_UpdateChannelSettings(channel, nullptr),
        Corvane_GetRemainingQueueElementCount(channel, nullptr),
        Corvane_GetChannelStatistics(channel, nullptr),
        Corvane_RegisterAfterDisplayCallback(channel, nullptr, nullptr),
        Corvane_GetCurrentSnapShot(channel, nullptr, 0),
        Corvane_GetCurrentSnapShot(channel, &picture, 8),    // no buffer of the caller's
        Corvane_GetCurrentDisplay(channel, nullptr, &info),
        Corvane_GetZoomedDisplay(channel, context, nullptr),
        Corvane_FreePicture(nullptr),
        Corvane_InsertFilter(channel, nullptr),
        Corvane_RemoveFilter(channel, nullptr),
        Corvane_EnableRotateFilter(channel, std::numeric_limits<double>::quiet_NaN()),
        Corvane_SetRotateOption(channel, std::numeric_limits<double>::infinity()),
        Corvane_CreateChannel(nullptr, &client.channel, nullptr),
        Corvane_CreateChannel(client.instance, nullptr, nullptr),
        Corvane_DeleteChannel(client.instance, nullptr),
        Corvane_DeleteChannel(nullptr, &client.channel),
        Corvane_CreateDecoderChannel(client.instance, &none, nullptr),
        Corvane_CreateDecoderChannel(client.instance, nullptr, &settings),
        Corvane_DeleteDecoderChannel(client.instance, nullptr),
        Corvane_DecodeVideo(channel, nullptr, &video, &size),
        Corvane_DecodeVideo(channel, &frame, nullptr, &size),
        Corvane_DecodeVideo(channel, &frame, &video, nullptr),
        Corvane_DecodeAudio(channel, &frame, nullptr, &size),
        Corvane_DecodeVideoDecodeOnly(channel, &frame, nullptr, &size),
        Corvane_GetDecodedVideoFrame(channel, 0, nullptr, 1, 0, &size),
        Corvane_GetDecodedVideoFrame(channel, 0, &video, 1, 0, nullptr),
        Corvane_InputToBeDecodedMediaFrame(channel, nullptr),
        Corvane_SetDecodeSize(channel, 0, 2),
        Corvane_SetDecodeSize(channel, 2, 0),
        Corvane_SetChannelOption(channel, 11, 0, 4),
        Corvane_SetChannelOption(channel, CORVANE_OPTION_COLOURS, 2, 0),
        Corvane_SetChannelOption(channel, 11, reinterpret_cast<uint64_t>(&area), 1),
    };
    for (const uint32_t& status : invalid)
        EXPECT_EQ(status, Status_InvalidArgument) << &status - invalid;
    for (const int32_t id : {-1, 0, 2, 12, 43, 58, 999, 1001})
        EXPECT_EQ(Corvane_SetChannelOption(channel, id, 1, 4), Status_NotSupported) << id;
    EXPECT_EQ(Corvane_RegisterRawDataCallback(avi.Handle(), nullptr, nullptr, 5, 0),
              Status_NotSupported);                                                // kinds first
    EXPECT_EQ(Corvane_GetCurrentSnapShot(channel, &picture, 0), Status_Failed);    // no window
    EXPECT_EQ(Corvane_FreePicture(&picture), Status_Ok);
    for (const char* const path : {"/no/such.bmp", static_cast<const char*>(nullptr)})
        EXPECT_EQ(Corvane_SetChannelOption(channel, 25, reinterpret_cast<uint64_t>(path), 0), Status_Failed);
    EXPECT_EQ(Corvane_InsertFilter(channel, &picture), Status_Ok);
    EXPECT_EQ(Corvane_InsertFilter(channel, &picture), Status_Failed);    // twice the same
}

// A null window is found before anything is applied: pictures still come, of the new mode only.
TEST(Exports, Updates) {
    test::Client client;
    ASSERT_EQ(Corvane_SetChannelOption(client.channel, 13, 3, 0), Status_Ok);
    client.Start();
    const auto pictures = test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 3});
    const struct {
        uint32_t mask, mode, status, fed;
    } rows[] = {{0x0801, 0, Status_InvalidArgument, Status_Ok},
                {0x0040, 2, Status_Ok, Status_UnsupportedMedia},
                {0x0041, 3, Status_Ok, Status_Ok}};
    for (size_t i = 0; i < 3; ++i) {
        const ChannelUpdate update{.mask = rows[i].mask, .presentEnabled = i == 2, .mediaMode = rows[i].mode};
        EXPECT_EQ(Corvane_UpdateChannelSettings(client.channel, &update), rows[i].status);
        ASSERT_EQ(client.Feed(CORVANE_STREAM_JPEG, pictures[i].bytes, true, int64_t(40 * i)), rows[i].fed);
        ASSERT_TRUE(rows[i].fed != Status_Ok || client.WaitForStamp(int(i)));
    }
}

}    // namespace
}    // namespace corvane
