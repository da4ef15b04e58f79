// The whole life of a channel with its n-th allocation, thread start or platform call failing, once and for good, n
// rising until the path succeeds: thousands of lives. After each: a status, nothing leaked, no thread left.
#include <cairo.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <new>

#include "base/FailurePoint.h"
#include "channels/ChannelLive.h"
#include "corvane/filter.h"
#include "corvane/movarix.h"
#include "entry/InChild.h"
#include "platform/x11/AbandonedConnections.h"
#include "support/Client.h"
#include "support/Mappings.h"
#include "support/ScriptedSound.h"
#include "support/SoundMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace {

// Every operator new of the process goes through here. Counting starts and stops with the sweep.
std::atomic<int64_t> liveBytes{0};
std::atomic<bool> counting{false};
std::atomic<uint64_t> calls{0};
std::atomic<uint64_t> failAt{0};
std::atomic<bool> failForGood{false};

bool Fails() noexcept {
    if (!counting.load(std::memory_order_relaxed))
        return false;
    const uint64_t call = calls.fetch_add(1) + 1;
    return call == failAt || (failForGood && call > failAt && failAt != 0);
}

void* Allocate(std::size_t size, std::size_t alignment) noexcept {
    if (Fails())
        return nullptr;
    void* const memory = alignment <= alignof(std::max_align_t)
                             ? std::malloc(size)
                             : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    liveBytes += static_cast<int64_t>(malloc_usable_size(memory));
    return memory;
}

void Free(void* memory) noexcept {
    liveBytes -= static_cast<int64_t>(malloc_usable_size(memory));
    std::free(memory);
}

void* OrThrow(void* memory) {
    return memory != nullptr ? memory : throw std::bad_alloc();
}

}    // namespace

// The other forms of the standard library call these.
void* operator new(std::size_t size) {
    return OrThrow(Allocate(size, 0));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return OrThrow(Allocate(size, static_cast<std::size_t>(alignment)));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return Allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    Free(memory);
}

namespace corvane {
namespace {

// Bytes, descriptors, threads.
auto Held() {
    return std::array{static_cast<size_t>(liveBytes), test::Entries("/proc/self/fd"), test::Entries("/proc/self/task")};
}

size_t Maps() {
    std::ifstream maps("/proc/self/maps");
    return static_cast<size_t>(std::count(std::istreambuf_iterator<char>(maps), {}, '\n'));
}

enum class What { Allocation, Thread, Platform };

void Arm(What what, uint64_t n, bool forGood) {
    calls = 0;
    failAt = n;
    failForGood = forGood;
    if (what == What::Allocation)
        counting = true;
    else
        failure::Arm(
            static_cast<uint32_t>(what == What::Thread ? failure::Site::ThreadStart : failure::Site::PlatformCall), n,
            forGood);
}

// Whether the armed failure was reached.
bool Failed() {
    return failAt != 0 && (counting ? calls.load() : failure::Hits()) >= failAt;
}

bool Disarm() {
    const bool reached = Failed();
    counting = false;
    failAt = 0;
    failure::Disarm();
    return reached;
}

struct Outcome {
    bool allWell;
    bool documented = true;    // all statuses
};

// Lives whose n-th failure of one kind comes once, and then for good, n rising until none is reached. `ended`: nothing
// of a life runs any more. `least`: that many are there to be met.
void SweepFailures(What what, const std::function<Outcome()>& live, const std::function<bool()>& ended,
                   uint64_t least) {
    for (const bool forGood : {false, true}) {
        bool reached = true;
        uint64_t n = 1;
        for (; reached; ++n) {
            SCOPED_TRACE(testing::Message() << static_cast<int>(what) << " " << forGood << " " << n);
            ASSERT_LT(n, 5000u) << "the path never succeeds";
            const auto before = Held();
            Arm(what, n, forGood);
            const Outcome outcome = live();
            reached = Disarm();
            EXPECT_TRUE(test::Eventually([&] { return ended() && Held() == before; }));
            EXPECT_TRUE(outcome.documented && (reached || outcome.allWell));
        }
        EXPECT_GT(n, least) << "the sweep found nothing to fail";
    }
}

struct PassFilter final : QMRX::Filter::IFilter {
    int32_t Process(QMRX::Filter::FilterArgs* args) override { return args->source->plane[0] != nullptr ? 0 : -1; }
};

struct Stream {
    uint32_t type;
    std::vector<test::EncodedPicture> pictures;
    uintptr_t window = 0;    // where they are shown; 0: by the picture callback
};

// The statuses of one life. It allocates nothing of its own.
struct Life {
    uint32_t statuses[20] = {};
    int count = 0;
    std::atomic<int> shown{0};

    void Note(uint32_t status) { statuses[count++] = status; }
    bool AllWell() const {
        return std::all_of(statuses, statuses + count, [](uint32_t status) { return status == Status_Ok; });
    }
    bool Documented() const {
        static constexpr uint32_t kDocumented[] = {Status_Ok, Status_Failed, Status_OutOfMemory,
                                                   Status_ChannelNotStarted};
        return std::all_of(statuses, statuses + count,
                           [](uint32_t status) { return std::ranges::count(kDocumented, status) != 0; });
    }
};

void TakeStills(void* channel, Life& life) {
    const CorvaneOsdCallback overlay = [](void*, OsdInfo* info) { cairo_paint(info->deviceContext); };
    Corvane_SetChannelOption(channel, 56, reinterpret_cast<uint64_t>(overlay), 0);
    PictureBuffer still{};
    life.Note(Corvane_GetCurrentSnapShot(channel, &still, 4 | 8 << 16));
    Corvane_FreePicture(&still);
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 80, 32);
    cairo_t* const context = cairo_create(surface);
    DisplayFrameInfo info{};
    life.Note(Corvane_GetZoomedDisplay(channel, context, &info));
    cairo_destroy(context);
    cairo_surface_destroy(surface);
}

void Live(const Stream& stream, Life& life, PassFilter& filter) {
    void* instance = nullptr;
    void* channel = nullptr;
    life.Note(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0));
    if (instance == nullptr)
        return;
    ChannelSettings settings{};
    settings.mask = 0x00A2;
    settings.window = stream.window;
    settings.marginLeft = settings.marginTop = 4;
    settings.osd = [](void*, OsdInfo*) {};
    life.Note(Corvane_CreateChannel(instance, &channel, &settings));
    if (channel != nullptr) {
        if (stream.window != 0)
            life.Note(Corvane_RegisterAfterDisplayCallback(
                channel, [](void* context, const AfterDisplayRecord*) { ++*static_cast<std::atomic<int>*>(context); },
                &life.shown));
        else
            life.Note(Corvane_RegisterRawDataCallback(
                channel, [](void* context, const PseudoFrame*) { ++*static_cast<std::atomic<int>*>(context); },
                &life.shown, 3, 0));
        life.Note(Corvane_SetChannelOption(channel, 48, 1, 0));
        life.Note(Corvane_SetRawDataCallbackSize(channel, 64, 24));
        life.Note(Corvane_InsertFilter(channel, &filter));
        life.Note(Corvane_EnableRotateFilter(channel, 30));
        life.Note(Corvane_StartChannel(channel, 0));
        for (size_t i = 0; i < stream.pictures.size(); ++i) {
            const MediaFrameHeader header = test::VideoHeader(stream.type, stream.pictures[i].bytes,
                                                              stream.pictures[i].key, static_cast<int64_t>(i));
            life.Note(Corvane_InputEncodedMediaFrame(channel, &header));
        }
        QueueState state{};
        // A failure may leave nothing to show: then no longer than a picture takes on a quiet machine.
        for (int i = 0; i < (Failed() ? 150 : 20'000) && life.shown == 0 && life.AllWell(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        Corvane_GetRemainingQueueElementCount(channel, &state);
        if (life.shown > 0)
            TakeStills(channel, life);
        life.Note(Corvane_StopChannel(channel));
        life.Note(Corvane_DeleteChannel(instance, &channel));
    }
    life.Note(Corvane_Release(&instance));
}

// What the short lives are fed with.
const std::vector<uint8_t> kSilence(160, 0xFF);
const auto kJpeg = test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 80, .height = 32, .frames = 3});

// Pictures that are transcoded by way of a decoder channel, and sound, recorded by the real side library.
void LiveRecording(Life& life) {
    const MovarixStart start = {sizeof start, MOVARIX_START_REPLACE, RECORDING, 0, 0, {}};
    void *instance = nullptr, *avi = nullptr;
    life.Note(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0));
    if (instance != nullptr) {    // without memory for the module there is no side library
        const uint32_t made = Corvane_CreateLiveAVIChannel(instance, &avi);
        life.Note(made == Status_WrongChannelType ? Status_OutOfMemory : made);
    }
    if (avi != nullptr) {
        life.Note(Corvane_ChooseChannelVideoCompressor(avi, CORVANE_STREAM_MPEG4, 0, 0));
        life.Note(Corvane_StartAVIChannel(avi, reinterpret_cast<uint64_t>(&start)));
        for (size_t i = 0; i < kJpeg.size(); ++i) {
            const auto picture =
                test::VideoHeader(CORVANE_STREAM_JPEG, kJpeg[i].bytes, true, 40 * static_cast<int64_t>(i));
            const auto sound =
                test::SoundHeader(CORVANE_STREAM_MULAW, kSilence, 8000, 1, 1, 40 * static_cast<int64_t>(i));
            life.Note(Corvane_InputAVIMedia(avi, reinterpret_cast<uint64_t>(&picture)));
            life.Note(Corvane_InputAVIMedia(avi, reinterpret_cast<uint64_t>(&sound)));
        }
        uint64_t written = 0;
        life.Note(Corvane_StopAVIChannel(avi));
        life.Note(Corvane_GetCurrentAVIFileSize(avi, reinterpret_cast<uint64_t>(&written)));
        life.shown += written > 2000;
        life.Note(Corvane_DeleteAVIChannel(instance, &avi));
    }
    life.Note(Corvane_Release(&instance));
}

// What is made once per process is made in the first instance: each of these is in a process of its own.
TEST(Sweep, TheNthFailureOfTheFirstRecording) {
    for (const bool forGood : {false, true}) {
        uint64_t n = 1;
        for (std::string told = "reached"; told == "reached"; ++n)
            told = test::InChild([&]() -> std::string {
                Life life;
                Arm(What::Platform, n, forGood);
                LiveRecording(life);
                if (Disarm())
                    return life.Documented() ? "reached" : "another status";
                return life.AllWell() && life.shown > 0 ? "all well" : "not reached";
            });
        EXPECT_GT(n, 24u);    // to open it, and to find each function
    }
}

TEST(Sweep, TheNthFailureIsAStatusAndLeavesNothingBehind) {
    test::XServer server;
    test::XClient client(server.Display());
    mallopt(M_ARENA_MAX, 2);    // arenas of threads come and go with chance and would count as maps
    PassFilter filter;
    for (const auto& [type, window] :
         {std::pair{CORVANE_STREAM_JPEG, false}, {CORVANE_STREAM_H264, false}, {CORVANE_STREAM_JPEG, true}}) {
        const Stream stream{type, test::MakeVideo({.streamType = type, .width = 80, .height = 32, .frames = 3}),
                            window ? client.Create() : 0};
        for (int i = 0; i < 50; ++i) {    // what is made once per process is made here
            Life warm;
            Live(stream, warm, filter);
            ASSERT_TRUE(warm.AllWell() && warm.shown > 0);
        }
        EXPECT_TRUE(test::Eventually([] { return !AbandonedConnections::Instance().Reap(); }));
        [[maybe_unused]] const size_t maps = Maps();
        const auto live = [&] {
            Life life;
            Live(stream, life, filter);
            return Outcome{life.AllWell() && life.shown > 0, life.Documented()};
        };
        for (const What what : {What::Allocation, What::Thread, What::Platform})
            SweepFailures(
                what, live, [] { return !AbandonedConnections::Instance().Reap(); }, what == What::Allocation ? 20 : 3);
#if !defined(CORVANE_SANITIZED)    // the sanitizer's allocator has mappings of its own
        EXPECT_EQ(Maps(), maps);
#endif
    }
}

// Sound in two formats, through all but the device itself. False where it was not heard.
bool LiveWithSound(test::ScriptedSound& sound, const std::vector<uint8_t>& payload) {
    ChannelStatistics told{};
    told.recordSize = sizeof told;
    try {
        CChannelLive channel(0, 0, Clock::System(), BuiltRenderers(), sound);
        try {
            (void)channel.Start(false);
            for (const uint32_t rate : {8000u, 16000u}) {
                (void)channel.Input(test::SoundHeader(CORVANE_STREAM_MULAW, payload, static_cast<int>(rate)));
                const uint64_t heard = told.soundHeard;
                for (int i = 0; i < (Failed() ? 20 : 20'000) && told.soundHeard == heard; ++i) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    channel.GetStatistics(told);
                }
            }
        } catch (const std::bad_alloc&) {
        }
        channel.End();
    } catch (const std::bad_alloc&) {
    } catch (const std::system_error&) {
    }
    return told.soundHeard == 2;
}

TEST(Sweep, TheNthFailureOfALifeWithSound) {
    const std::vector<uint8_t> payload(160);
    test::ScriptedSound sound;
    sound.clocked = true;
    const size_t threads = test::Entries("/proc/self/task");
    const auto ended = [&] { return test::Entries("/proc/self/task") == threads; };    // that opens and closes too
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(LiveWithSound(sound, payload) && test::Eventually(ended));
    for (const What what : {What::Allocation, What::Thread})
        SweepFailures(
            what, [&] { return Outcome{LiveWithSound(sound, payload)}; }, ended, what == What::Allocation ? 20 : 3);
}

// An instance with decoder plug-ins, one of which decodes a picture.
void LiveWithPlugins(Life& life) {
    const MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_H264, kSilence, true, 1);    // it takes anything
    void *instance = nullptr, *channel = nullptr;
    life.Note(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0));
    if (instance != nullptr) {
        life.Note(Corvane_LoadDecoders(instance, FAKE_PLUGINS "/full"));
        life.Note(Corvane_CreateChannel(instance, &channel, nullptr));
    }
    if (channel != nullptr) {
        life.Note(Corvane_RegisterRawDataCallback(
            channel, [](void* shown, const PseudoFrame*) { ++*static_cast<std::atomic<int>*>(shown); }, &life.shown, 3,
            0));
        Corvane_SetChannelOption(channel, 46, 3, 0);
        life.Note(Corvane_StartChannel(channel, 0));
        life.Note(Corvane_InputEncodedMediaFrame(channel, &header));
        for (int i = 0; i < (Failed() ? 20 : 20'000) && life.shown == 0 && life.AllWell(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        life.Note(Corvane_DeleteChannel(instance, &channel));
    }
    life.Note(Corvane_Release(&instance));    // with a channel it would need memory
}

// A decoder channel that gives a picture by each of its ways, one of them twice, and sound by both.
void LiveDecoding(Life& life) {
    static PassFilter filter;
    static uint8_t memory[80 * 32 * 4];
    const MediaFrameHeader picture = test::VideoHeader(CORVANE_STREAM_JPEG, kJpeg[0].bytes, true, 1);
    const MediaFrameHeader sound = test::SoundHeader(CORVANE_STREAM_MULAW, kSilence, 8000);
    void *instance = nullptr, *channel = nullptr;
    life.Note(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0));
    const DecoderChannelSettings settings = {nullptr, nullptr, CORVANE_PICTURE_BMP_BGR24, 50};
    if (instance != nullptr)
        life.Note(Corvane_CreateDecoderChannel(instance, &channel, &settings));
    if (channel != nullptr) {
        const CorvaneRawCallback pushed = [](void* shown, uint32_t code, void* record) {
            auto* const info = static_cast<RawPictureInfo*>(record);
            if (code == CORVANE_RAW_PICTURE && info->count == 1)
                info->repeat = 1, info->requestedFormat = CORVANE_PICTURE_JPEG;
            ++*static_cast<std::atomic<int>*>(shown);
        };
        life.Note(Corvane_SetChannelOption(channel, CORVANE_OPTION_RAW_CALLBACK_2,
                                           reinterpret_cast<uint64_t>(&life.shown),
                                           reinterpret_cast<uint64_t>(pushed)));
        life.Note(Corvane_SetChannelOption(channel, 35, 1, 0));
        life.Note(Corvane_InsertFilter(channel, &filter));
        DecodedPictureSize told{};
        DecodedVideoInfo info{.capacity = sizeof memory, .buffer = memory};
        DecodedAudioInfo samples{.capacity = sizeof memory, .pcm = memory};
        uint32_t bytes[3] = {};
        life.Note(Corvane_DecodeVideo(channel, &picture, &info, &bytes[0]));
        life.Note(Corvane_SetDecodeSize(channel, 40, 17));
        life.Note(Corvane_DecodeVideoDecodeOnly(channel, &picture, &told, &bytes[1]));
        life.Note(Corvane_GetDecodedVideoFrame(channel, 0, &info, CORVANE_PICTURE_JPEG, 13, &bytes[1]));
        life.Note(Corvane_DecodeAudio(channel, &sound, &samples, &bytes[2]));
        life.shown += bytes[0] / 7680 + (bytes[1] < 1000 ? 1 : 0) + bytes[2] / 320;    // of a BMP, a JPEG, 20 ms
        life.Note(Corvane_InputToBeDecodedMediaFrame(channel, &picture));
        life.Note(Corvane_InputToBeDecodedMediaFrame(channel, &sound));
        life.Note(Corvane_DeleteDecoderChannel(instance, &channel));
    }
    life.Note(Corvane_Release(&instance));
}

TEST(Sweep, TheNthFailureOfAShortLife) {
    mallopt(M_ARENA_MAX, 2);
    const struct {
        const char* name;
        void (*live)(Life&);
        int shown;
        uint64_t allocations, platformCalls;    // that it has at least
    } rows[] = {{"plug-ins", &LiveWithPlugins, 1, 20, 20},
                {"decoder channel", &LiveDecoding, 6, 30, 0},
                {"AVI channel", &LiveRecording, 1, 40, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto live = [&] {
            Life life;
            row.live(life);
            return Outcome{life.AllWell() && life.shown >= row.shown, life.Documented()};
        };
        auto held = Held();
        [[maybe_unused]] size_t maps = 0;
        for (int i = 0; i < 1000; ++i) {
            ASSERT_TRUE(live().allWell);
            if (i == 50) {
                held = Held();
                maps = Maps();
            }
        }
        EXPECT_EQ(Held(), held);
#if !defined(CORVANE_SANITIZED)
        EXPECT_EQ(Maps(), maps);
#endif
        SweepFailures(
            What::Allocation, live, [] { return true; }, row.allocations);
        SweepFailures(
            What::Platform, live, [] { return true; }, row.platformCalls);
    }
}

}    // namespace
}    // namespace corvane
