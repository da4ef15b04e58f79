// Decoder plug-ins that are really loaded. What stays loaded for good would be there in the next row: each row of a
// table is a process of its own.
#include <dlfcn.h>
#include <fnmatch.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "entry/Calls.h"
#include "entry/DecoderPlugins.h"
#include "entry/FakePlugin.h"
#include "entry/InChild.h"
#include "support/Client.h"
#include "support/Mappings.h"
#include "support/Testing.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane::test {
namespace {

using Path = std::filesystem::path;

const std::string kPlugins = FAKE_PLUGINS "/";

// Grows in several threads.
struct Text {
    void Add(const std::string& more) {
        const std::lock_guard lock(mutex);
        text += more;
    }
    std::string Take() {
        const std::lock_guard lock(mutex);
        return std::exchange(text, "");
    }
    std::mutex mutex;
    std::string text;
};

// What the plug-ins of this process told, in order.
struct Told : Text {
    Told() {
        host.onStart = [this](const std::string& label) { Add(" +" + label); };
        host.onEnd = [this](const std::string& label) { Add(" -" + label); };
        host.onMake = [this](const std::string& call) { return Add(" " + call), true; };
        host.Announce();
    }
    ~Told() { unsetenv(FakeHost::kVariable); }
    FakeHost host;
};

std::string Hex(const DecoderFactories& factories) {
    void* slots[14];
    static_assert(sizeof slots == sizeof factories);
    std::memcpy(slots, &factories, sizeof slots);
    unsigned mask = 0;
    for (int i = 0; i < 14; ++i)
        mask |= unsigned(slots[i] != nullptr) << i;
    std::ostringstream text;
    text << " " << std::hex << mask;
    return text.str();
}

// Which folder's library each slot calls, by its first letter; '?' where that is another function than the slot's.
std::string Owners(const DecoderFactories& factories, Told& told) {
    const char* const names[] = {"Dahua",         "Hikvision",     "CUVID_MP4V",    "CUVID_H264",    "CUVID_HEVC",
                                 "CUVID_MP4V_v2", "CUVID_H264_v2", "CUVID_HEVC_v2", "DXVA2Native",   "DXVA2Native_HEVC",
                                 "DXVA2_v2",      "DXVA2_HEVC_v2", "QuickSync",     "QuickSync_HEVC"};
    void* slots[14];
    std::memcpy(slots, &factories, sizeof slots);
    std::string owners = " ";
    told.host.onMake = [&](const std::string& call) { return told.Add(call), false; };
    for (size_t i = 0; i < 14; ++i) {
        if (slots[i] == nullptr) {
            owners += '.';
            continue;
        }
        (void)told.Take();
        reinterpret_cast<DecoderContext* (*)(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t)>(slots[i])(0, 0, 0, 0,
                                                                                                          0);
        const std::string call = told.Take();
        const size_t slash = call.find('/');
        owners += call.starts_with(names[i] + std::string(" ")) ? call[slash + 1] : '?';
    }
    return owners;
}

// Loads the folders one after the other: what was stored after each library, and what the libraries told; then whose
// the factories are, and which of them a channel without a window gets.
std::string LoadAll(const std::vector<std::string>& folders) {
    Told told;
    DecoderPlugins plugins;
    DecoderFactories found;
    std::string text;
    for (const std::string& folder : folders) {
        plugins.Load(folder.c_str(), [&](const DecoderFactories& now) { told.Add(Hex(found = now)); });
        text += told.Take() + " |";
    }
    text += Owners(found, told) + Hex(WithoutAdapters(found));
    plugins.Close();
    plugins.Load((kPlugins + "full").c_str(), [&](const DecoderFactories&) { told.Add(" stored after the end"); });
    return text + " |" + told.Take();
}

TEST(DecoderPlugins, WhatIsLoadedInWhichOrder) {
    const std::string full = kPlugins + "full", part = kPlugins + "part", v2 = kPlugins + "v2",
                      none = kPlugins + "none", plain = kPlugins + "plain";
    const struct {
        std::vector<std::string> folders;
        std::string told;
    } rows[] = {
        {{full, full},
         " +Dahua/full 1 +Hikvision/full 3 +CUVID/full ff +DXVA2/full fff +QuickSync/full 3fff | | ffffffffffffff 331f "
         "|"
         " -QuickSync/full -DXVA2/full -CUVID/full -Hikvision/full"},
        // One deciding slot is enough for a skip.
        {{part, full},
         " +CUVID/part 10 +DXVA2/part 210 +QuickSync/part 2210 | +Dahua/full 2211 +Hikvision/full 2213 |"
         " ff..p....p...p 2213 | -QuickSync/part -DXVA2/part -CUVID/part -Hikvision/full"},
        // Factories for display adapters decide nothing, stay, and so do their libraries.
        {{v2, v2, plain, full, plain},
         " +CUVID/v2 e0 +DXVA2/v2 ce0 | | +CUVID/plain cfc +DXVA2/plain ffc | +Dahua/full ffd +Hikvision/full fff"
         " +QuickSync/full 3fff | | ffpppvvvppvvff 331f | -QuickSync/full -DXVA2/plain -DXVA2/v2 -CUVID/plain -CUVID/v2"
         " -Hikvision/full"},
        {{v2, none, v2},
         " +CUVID/v2 e0 +DXVA2/v2 ce0 | +Dahua/none -Dahua/none +Hikvision/none +CUVID/none +DXVA2/none +QuickSync/none"
         " | -CUVID/none -DXVA2/none | .....vvv..vv.. 0 | -QuickSync/none -DXVA2/v2 -CUVID/v2 -Hikvision/none"},
        // One without factories is replaced, by the same file without an end of it; a failure replaces nothing.
        {{none, none, "/no/folder", full},
         " +Dahua/none -Dahua/none +Hikvision/none +CUVID/none +DXVA2/none +QuickSync/none | +Dahua/none -Dahua/none | "
         "|"
         " +Dahua/full 1 +Hikvision/full -Hikvision/none 3 +CUVID/full -CUVID/none ff +DXVA2/full -DXVA2/none fff"
         " +QuickSync/full -QuickSync/none 3fff | ffffffffffffff 331f | -QuickSync/full -DXVA2/full -CUVID/full"
         " -Hikvision/full"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(InChild([&] { return LoadAll(row.folders); }), row.told);
}

TEST(DecoderPlugins, FoldersAndFiles) {
    const Path work = std::filesystem::temp_directory_path() / ("corvane_plugins_" + std::to_string(getpid()));
    const std::string file = "DecoderIsolated_QuickSync.so", bare = kPlugins + "bare/" + file;
    std::ifstream stream(bare, std::ios::binary);
    std::string elf{std::istreambuf_iterator<char>(stream), {}};
    const std::string good = elf;
    elf[18] = 0x08;    // of another machine
    for (const auto& [folder, content] :
         {std::pair("C:", good), std::pair("back\\", good), std::pair("\xFF\xFE %s", good), std::pair("foreign", elf),
          std::pair("empty", std::string()), std::pair("text", std::string("not a library\n"))}) {
        std::filesystem::create_directories(work / folder);
        std::ofstream(work / folder / file, std::ios::binary) << content;
    }
    std::filesystem::create_directories(work / "folder" / file);
    std::filesystem::create_directories(work / "link");
    std::filesystem::create_symlink(bare, work / "link" / file);
    const struct {
        std::string folder;    // from `work`, which is the working directory
        bool loads;
    } rows[] = {
        {"link", true},
        {"link/", true},
        {"./link//", true},
        {work / "link", true},
        {"C:", true},
        {"back\\", true},
        {"\xFF\xFE %s", true},
        {"", true},    // where the loader looks: see the tests' CMakeLists.txt
        {".", false},
        {"missing", false},
        {"text/" + file, false},
        {std::string(5000, 'x'), false},
        {"empty", false},
        {"text", false},
        {"folder", false},
        {"foreign", false},
        {kPlugins + "damaged", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(InChild([&] {
                      std::filesystem::current_path(work);
                      Told told;
                      void* instance = NewInstance();
                      EXPECT_EQ(Corvane_LoadDecoders(instance, row.folder.c_str()), Status_Ok);
                      EXPECT_EQ(dlerror(), nullptr) << "left for the host";
                      EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
                      return told.Take();
                  }),
                  row.loads ? " +QuickSync/bare -QuickSync/bare" : "")
            << row.folder;
    std::filesystem::remove_all(work);
}

// A live channel that plays, on an instance with plug-ins.
struct Player {
    // `late`: the plug-ins are loaded when the channel is there.
    explicit Player(const std::string& folder, int32_t option = 46, uint64_t kind = 0, uint32_t flags = 0,
                    uintptr_t shownOn = 0, bool late = false)
        : window(shownOn) {
        EXPECT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, flags), Status_Ok);
        const auto load = [&] { EXPECT_EQ(Corvane_LoadDecoders(instance, (kPlugins + folder).c_str()), Status_Ok); };
        if (!late)
            load();
        else
            whenMade = load;
        Renew(option, kind);
    }
    ~Player() {
        if (instance != nullptr)
            EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
    }
    // Deletes the channel and makes another.
    void Renew(int32_t option, uint64_t kind) {
        if (channel != nullptr)
            EXPECT_EQ(Corvane_DeleteChannel(instance, &channel), Status_Ok);
        const CorvaneStreamInfoCallback onInfo = [](void* context, uint32_t code, uint64_t a, uint64_t) {
            if (code == CORVANE_INFO_DECODER)
                static_cast<Player*>(context)->kinds.Add(std::to_string(a));
        };
        const ChannelSettings settings{.mask = CORVANE_SETTINGS_STREAM_INFO | CORVANE_SETTINGS_STREAM_INFO_CONTEXT,
                                       .streamInfo = onInfo,
                                       .streamInfoContext = this,
                                       .window = window};
        channel = NewChannel(instance, &settings);
        if (whenMade)
            std::exchange(whenMade, nullptr)();
        if (window == 0)
            EXPECT_EQ(Corvane_RegisterRawDataCallback(channel, &Player::OnPicture, this, 11, 0), Status_Ok);
        Corvane_SetChannelOption(channel, option, kind, 0);
        EXPECT_EQ(Corvane_StartChannel(channel, 0), Status_Ok);
    }
    static void OnPicture(void* context, const PseudoFrame* frame) {
        const int stamp = ReadStamp(frame->data, (frame->width + 63) & ~63u);
        static_cast<Player*>(context)->shown.Add(stamp < 0 ? "P" : std::to_string(stamp));
    }
    // Waits until the frame was decoded or refused, and its picture was shown.
    void Feed(const MediaFrameHeader& header) {
        EXPECT_EQ(FeedHeader(channel, header), Status_Ok);
        EXPECT_TRUE(Eventually([&] {
            const ChannelStatistics s = StatisticsOf(channel);
            return s.queueFrames == 0 && s.picturesTaken + s.picturesLost + s.picturesReplaced == s.picturesDecoded &&
                   s.framesTaken == s.unitsWithoutDecoder + s.unitsAwaitingKeyFrame + s.unitsFailed +
                                        s.unitsWithoutPicture + s.picturesDecoded;
        }));
    }
    std::function<void()> whenMade;
    Text kinds, shown;
    const uintptr_t window;
    void *instance = nullptr, *channel = nullptr;
};

// A frame of a vendor's own stream.
MediaFrameHeader OfVendor(std::span<const uint8_t> extension) {
    static const std::vector<uint8_t> payload = {1, 2, 3};
    MediaFrameHeader header = VideoHeader(kH263, payload, true, 1);
    header.extension = extension.data();
    header.extensionSize = static_cast<uint32_t>(extension.size());
    return header;
}

// Which factory makes the decoder, its arguments, and the kind that is reported.
TEST(Plugins, AFactoryForEachTypeAndKind) {
    const std::vector<uint8_t> payload = {9, 1, 2, 3, 4};
    static constexpr uint8_t kHikvision[] = {0, 0, 0, 0, 105, 4, 'H', 'I', 'K', 'V', 108, 3, 'a', 'b', 'c'};
    const struct {
        const char* folder;
        int32_t option;
        uint64_t kind;
        uint32_t type;
        std::span<const uint8_t> extension;
        const char *call, *kinds;
        bool late = false;
    } rows[] = {
        {"full", 46, 1, kH264, {}, "CUVID_H264_v2 CUVID/full 0 *", "1"},
        {"full", 46, 2, kH264, {}, "DXVA2_v2 DXVA2/full 0 640 480 * 5", "2"},
        {"full", 46, 3, kH264, {}, "QuickSync QuickSync/full *", "3"},
        {"full", 46, 4, kH264, {}, "", "0"},
        {"full", 46, 0, kH264, {}, "", "0"},
        {"full", 46, uint64_t{1} << 32 | 1, kH265, {}, "", "0"},
        {"full", 52, 1, kMpeg4, {}, "CUVID_MP4V_v2 CUVID/full 0 *", "1"},
        {"full", 52, 2, kMpeg4, {}, "", "0"},
        {"full", 53, 1, kH265, {}, "CUVID_HEVC_v2 CUVID/full 0 *", "1"},
        {"full", 53, 2, kH265, {}, "DXVA2_HEVC_v2 DXVA2/full 0 640 480 *", "2"},
        {"full", 53, 3, kH265, {}, "QuickSync_HEVC QuickSync/full *", "3"},
        {"plain", 46, 1, kH264, {}, "CUVID_H264 CUVID/plain *", "1"},
        {"plain", 46, 2, kH264, {}, "DXVA2Native DXVA2/plain 640 480 * 5 *", "2"},
        {"plain", 52, 1, kMpeg4, {}, "CUVID_MP4V CUVID/plain *", "1"},
        {"plain", 53, 1, kH265, {}, "CUVID_HEVC CUVID/plain *", "1"},
        {"plain", 53, 2, kH265, {}, "DXVA2Native_HEVC DXVA2/plain 640 480 *", "2"},
        {"plain", 46, 3, kH264, {}, "", "0"},
        {"v2", 46, 1, kH264, {}, "CUVID_H264_v2 CUVID/v2 0 *", "1"},
        {"none", 46, 1, kH264, {}, "", "0"},
        {"full", 46, 1, kH263, kOtherVendor, "Dahua Dahua/full *", "0"},
        {"full", 46, 1, kH263, kHikvision, "Hikvision Hikvision/full * 3 *", "0"},
        {"none", 46, 1, kH263, kOtherVendor, "", "0"},
        {"full", 46, 3, kH264, {}, "", "0", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.folder << " " << row.option << " " << row.kind);
        Told told;
        Player player(row.folder, row.option, row.kind, 0, 0, row.late);
        (void)told.Take();
        MediaFrameHeader header = VideoHeader(row.type, payload, true, 1, 640, 480);
        player.Feed(row.extension.empty() ? header : OfVendor(row.extension));
        const std::string wanted = row.call[0] != '\0' ? " " + std::string(row.call) : "", calls = told.Take();
        EXPECT_EQ(fnmatch(wanted.c_str(), calls.c_str(), 0), 0) << calls << " not " << wanted;
        EXPECT_EQ(player.kinds.Take(), row.kinds);
        EXPECT_TRUE(Eventually([&] { return wanted.empty() || player.shown.Take() == "P"; }));
    }
    // A decoder channel shows its pictures on no display adapter; here a decoder that fails.
    const struct {
        const char *folder, *call;
        uint32_t flags, kind;
    } silent[] = {{"full", " CUVID_H264 CUVID/full *", 0, 1},
                  {"full", " CUVID_H264 CUVID/full *", CORVANE_FLAG_DECODER_FALLBACK, 0},
                  {"v2", "", 0, 0}};
    for (const auto& [folder, call, flags, kind] : silent) {
        Told told;
        told.host.onDecode = [](auto&&...) { return -1; };
        void *instance = nullptr, *channel = nullptr;
        Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, flags);
        Corvane_LoadDecoders(instance, (kPlugins + folder).c_str());
        (void)told.Take();
        const DecoderChannelSettings settings{.format = CORVANE_PICTURE_I420};
        Corvane_CreateDecoderChannel(instance, &channel, &settings);
        Corvane_SetChannelOption(channel, 46, 1, 0);
        const MediaFrameHeader header = VideoHeader(kH264, payload, true, 1);
        (void)Corvane_InputToBeDecodedMediaFrame(channel, &header);
        const std::string calls = told.Take();
        EXPECT_EQ(fnmatch(call, calls.c_str(), 0), 0) << folder << calls;
        EXPECT_EQ(StatisticsOf(channel).decoderKind, kind) << folder << flags;
        EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
    }
}

// One fault in a stream of two groups of five pictures: P is a picture of the plug-in, a number that of the software.
TEST(Plugins, Faults) {
    const auto stream = MakeVideo({.frames = 10});
    using Fault = std::function<int32_t(DecodedFrame&, uint32_t*)>;
    const auto edit = [](auto change) -> Fault { return [=](DecodedFrame& p, uint32_t*) { return change(p), 0; }; };
    const auto got = [](uint32_t value) -> Fault { return [=](auto&, uint32_t* out) { return *out = value, 0; }; };
    const Fault fails = [](auto&&...) { return -1; };
    const Fault raises = [](auto&&...) -> int32_t { throw std::runtime_error("plug-in"); };
    constexpr uint32_t kAllowed = CORVANE_FLAG_DECODER_FALLBACK;
    constexpr int kFactory = -1, kShare = -2, kEnd = -3;
    const std::string all = "PPPPPPPPPP 3", lost = "PPPPPPPPP 3", replaced = "PPPPP56789 30", software = "0123456789 0";
    const struct {
        const char* name;
        Fault fault;
        int at;    // number of the frame, or another call
        uint32_t flags;
        std::string told;    // pictures and kinds
    } rows[] = {
        {"no fault", fails, 10, kAllowed, all},
        {"a key frame fails", fails, 5, kAllowed, replaced},
        {"a key frame fails, no fall-back", fails, 5, 0, lost},
        {"a dependent frame fails", fails, 3, kAllowed, lost},
        {"a dependent frame fails, no fall-back", fails, 3, 0, lost},
        {"a key frame throws", raises, 5, kAllowed, replaced},
        {"a dependent frame throws", raises, 3, 0, lost},
        {"no decoder", fails, kFactory, 0, software},
        {"the factory throws", raises, kFactory, 0, software},
        {"not shared", fails, kShare, 0, all},
        {"the share throws", raises, kShare, 0, all},
        {"the end throws", raises, kEnd, 0, all},
        {"no luma", edit([](auto& p) { p.planes[0] = nullptr; }), 3, 0, lost},
        {"no chroma", edit([](auto& p) { p.planes[2] = nullptr; }), 3, 0, lost},
        {"rows overlap", edit([](auto& p) { p.strides[0] = 63; }), 3, 0, lost},
        {"rows of chroma overlap", edit([](auto& p) { p.strides[1] = 31; }), 3, 0, lost},
        {"0 x 0", edit([](auto& p) { p.width = p.height = 0; }), 3, 0, lost},
        {"2^31 wide", edit([](auto& p) { p.width = p.strides[0] = 1u << 31; }), 3, 0, lost},
        {"got 7", got(7), 3, 0, lost},
        {"got 7 on a key frame", got(7), 5, kAllowed, replaced},
        {"it falls silent", got(0), 3, 0, "PPPPPPPP 303"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Told told;
        DecodedFrame none{};
        uint32_t some = 0;
        std::atomic<size_t> frame{0};
        const auto at = [&](int place) { return row.at == place ? row.fault(none, &some) : 0; };
        told.host.onDecode = [&](auto&, DecodedFrame& picture, uint32_t* out) {
            return row.at == int(frame) ? row.fault(picture, out) : 0;
        };
        told.host.onMake = [&](auto&) { return at(kFactory) == 0; };
        told.host.onShare = [&] { return at(kShare); };
        told.host.onDestroy = [&] { at(kEnd); };
        std::string text;
        {
            Player player("full", 46, 3, row.flags);
            for (; frame < 10; ++frame)
                player.Feed(VideoHeader(kH264, stream[frame].bytes, stream[frame].key, 40 * int64_t(frame)));
            const size_t pictures = row.told.find(' ');
            EXPECT_TRUE(Eventually([&] { return (text += player.shown.Take()).size() >= pictures; }));
            text += " " + player.kinds.Take();
        }
        const bool inUse = told.Take().find("QuickSync/full in use") != std::string::npos;
        EXPECT_EQ(text + (inUse ? " in use" : ""), row.told);
    }
}

// examples/decoder_plugin.c decodes, shares its pictures, and is unloaded.
TEST(Plugins, TheExampleDecodes) {
    const auto stream = MakeVideo({.frames = 10});
    std::string text;
    {
        Player player("example", 46, 3);
        for (size_t i = 0; i < 10; ++i)
            player.Feed(VideoHeader(kH264, stream[i].bytes, stream[i].key, 40 * int64_t(i)));
        text = player.kinds.Take();
        EXPECT_TRUE(Eventually([&] { return (text += player.shown.Take()).size() >= 11; }));
    }
    EXPECT_EQ(text, "30123456789");
    EXPECT_EQ(MappedBytes("example/DecoderIsolated", false), 0u);
}

// Code of a plug-in that calls every export, on its own channel and on another instance's: what would wait is refused.
TEST(Plugins, EveryExportInTheCodeOfAPlugin) {
    enum class Code { Start, End, Make, Decode, Destroy };
    for (const Code code : {Code::Start, Code::End, Code::Make, Code::Decode, Code::Destroy})
        for (const Call& call : Calls()) {
            if (std::string(call.name).starts_with("Initial"))
                continue;    // they release another instance, as the next row does
            SCOPED_TRACE(testing::Message() << call.name << " " << static_cast<int>(code));
            Told told;
            Player other("missing"), own("missing");
            std::vector<uint32_t> statuses;
            std::atomic<bool> decoded{false};
            const auto run = [&](Code now) {
                if (now != code || !statuses.empty())
                    return;
                statuses.push_back(call.call(other.instance, other.channel));
                if (code == Code::Make || code == Code::Decode)
                    statuses.push_back(call.call(own.instance, own.channel));
            };
            told.host.onStart = [&](auto&) { run(Code::Start); };
            told.host.onEnd = [&](auto&) { run(Code::End); };
            told.host.onMake = [&](auto&) { return run(Code::Make), true; };
            told.host.onDecode = [&](auto&&...) { return run(Code::Decode), decoded = true, 0; };
            told.host.onDestroy = [&] { run(Code::Destroy); };
            EXPECT_EQ(Corvane_LoadDecoders(own.instance, (kPlugins + "bare").c_str()), Status_Ok);
            own.Renew(46, 3);
            EXPECT_EQ(Feed(own.channel, {1, 2}, 1, kH264), Status_Ok);
            EXPECT_TRUE(Eventually([&] { return decoded.load(); }));
            (void)Corvane_StopChannel(own.channel);
            EXPECT_EQ(Corvane_Release(&own.instance), Status_Ok);
            EXPECT_FALSE(statuses.empty());
            for (const uint32_t status : statuses)
                EXPECT_EQ(status, call.onOwn);
        }
}

// While a library starts a channel can be made in another thread, and has what was found before. A load from there does
// nothing; one in another thread waits, and finds everything loaded.
TEST(Plugins, OthersGoOnWhileALibraryStarts) {
    Told told;
    void *instance = NewInstance(), *channel = nullptr;
    std::thread second;
    told.host.onStart = [&](const std::string& label) {
        told.Add(" +" + label);
        if (!label.starts_with("CUVID"))
            return;
        void* same = instance;
        EXPECT_EQ(Corvane_Release(&same), Status_Failed);
        std::thread([&] { channel = NewChannel(instance); }).join();
        EXPECT_EQ(Corvane_LoadDecoders(instance, (kPlugins + "part").c_str()), Status_Ok);
        second = std::thread([&] { Corvane_LoadDecoders(instance, (kPlugins + "part").c_str()); });
    };
    EXPECT_EQ(Corvane_LoadDecoders(instance, (kPlugins + "full").c_str()), Status_Ok);
    second.join();
    Corvane_StartChannel(channel, 0);
    Corvane_SetChannelOption(channel, 46, 1, 0);
    EXPECT_EQ(FeedHeader(channel, OfVendor(kOtherVendor)), Status_Ok);
    EXPECT_EQ(Feed(channel, {4, 5, 6}, 40, kH264), Status_Ok);
    EXPECT_TRUE(Eventually([&] { return StatisticsOf(channel).queueFrames == 0; }));
    EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
    EXPECT_TRUE(
        std::regex_match(told.Take(), std::regex("( \\+Dahua/full)? \\+Hikvision/full \\+CUVID/full \\+DXVA2/full"
                                                 " \\+QuickSync/full Dahua Dahua/full [^/]*"
                                                 " -QuickSync/full -DXVA2/full -CUVID/full -Hikvision/full")));
}

// Loads in mid-flight, of the same folder and of others: the decoder's code stays.
TEST(Plugins, ALoadWhileADecoderRuns) {
    Told told;
    std::string text;
    {
        Player player("v2", 46, 1);
        std::atomic<bool> stop{false};
        std::thread loader([&] {
            for (int i = 0; i < 400; ++i)
                Corvane_LoadDecoders(player.instance,
                                     (kPlugins + std::array{"v2", "none", "v2/", "missing"}[i % 4]).c_str());
            stop = true;
        });
        for (int64_t time = 0; !stop; ++time)
            player.Feed(VideoHeader(kH264, {1, 2, 3}, time % 8 == 0, time));
        loader.join();
        text = told.Take();
    }
    text += told.Take();
    EXPECT_EQ(text.substr(text.find(" -DXVA2/v2")), " -DXVA2/v2 -CUVID/v2 -Hikvision/none");
}

// Decoders and references on pictures of the three plug-ins of hardware at this moment; -1: none of them is loaded.
int InUse() {
    int sum = 0, loaded = 0;
    for (const char* const name : {"CUVID", "DXVA2", "QuickSync"}) {
        const std::string file = kPlugins + "full/DecoderIsolated_" + name + ".so";
        void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (library == nullptr)
            continue;
        ++loaded;
        sum += reinterpret_cast<int (*)()>(dlsym(library, "InUse"))();
        dlclose(library);
    }
    return loaded == 0 ? -1 : sum;
}

TEST(Plugins, NoPictureOutlivesItsChannel) {
    XServer server;
    XClient client(server.Display());
    enum Place { Callback, Window, PlainWindow, Raw };
    std::mt19937 random(1);
    for (int life = 0; life < 100; ++life) {
        const Place place = Place(life % 4);
        const bool window = place == Window || place == PlainWindow;
        Told told;
        Player player("full", 46, 1 + random() % 3, place == PlainWindow ? CORVANE_FLAG_GDI : 0,
                      window ? client.Create() : 0);
        if (place == Raw) {
            const CorvaneRawCallback raw = [](void*, uint32_t, void*) {};
            Corvane_SetChannelOption(player.channel, 16, CORVANE_PICTURE_BGR24, 0);
            Corvane_SetChannelOption(player.channel, 18, 0, reinterpret_cast<uint64_t>(raw));
        }
        std::atomic<bool> stop{false};
        std::thread stills([&] {
            for (uint32_t format = 1; !stop; format = format % 18 + 1) {
                PictureBuffer still{};
                (void)Corvane_GetCurrentSnapShot(player.channel, &still, 4 | format << 16);
                (void)Corvane_FreePicture(&still);
            }
        });
        for (int i = 0; i < 60; ++i)
            (void)Feed(player.channel, {uint8_t(i), 2}, 2 * i, kH264);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 40));
        stop = true;
        stills.join();
        if (random() % 2 != 0)
            Corvane_StopChannel(player.channel);
        if (random() % 2 != 0) {
            Corvane_DeleteChannel(player.instance, &player.channel);
            EXPECT_EQ(InUse(), 0);
        }
        EXPECT_EQ(Corvane_Release(&player.instance), Status_Ok);
        EXPECT_EQ(told.Take().find("in use"), std::string::npos);
        EXPECT_EQ(InUse(), -1);
        const size_t dahua = MappedBytes("full/DecoderIsolated_Dahua", false);
        EXPECT_TRUE(dahua > 0 && dahua == MappedBytes("full/DecoderIsolated_", false));
    }
}

}    // namespace
}    // namespace corvane::test
