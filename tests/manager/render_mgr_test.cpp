#include "audio/DeviceKeeper.h"
#include "base/Log.h"
#include "base/PictureLayout.h"
#include "manager/RenderMgr.h"
#include "support/Calling.h"
#include "support/PlainPicture.h"
#include "support/ScriptedRenderer.h"
#include "support/ScriptedSound.h"
#include "support/SoundMaker.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

FramePtr Frame(int64_t timeMs, uint32_t width = 0, uint32_t height = 0, uint32_t type = CORVANE_STREAM_H264) {
    return MakeFrame(type, {1, 2, 3}, true, timeMs, width, height);
}

// A manager without a window, a picture to show, and what its callbacks were told.
struct RenderMgr : testing::Test {
    RenderMgr() { manager.SetCallback(&PresentSettings::afterDisplay, Calling(onShown)); }
    void Present(const FramePtr& frame) { manager.PresentFrame(frame, picture.Picture(), true); }

    // Keeps what the off-screen callback is given: all records, and the pixels of the last.
    void KeepPictures(uint32_t format) { manager.SetPictureCallback(Calling(onPicture), format); }
    // The last record, once there are so many.
    PseudoFrame Await(size_t number) {
        EXPECT_TRUE(Eventually([&] {
            const std::lock_guard lock(mutex);
            return pictures.size() == number;
        }));
        const std::lock_guard lock(mutex);
        return pictures.empty() ? PseudoFrame() : pictures.back();
    }
    std::mutex mutex;
    std::vector<PseudoFrame> pictures;
    std::vector<uint8_t> pixels;
    std::function<void(const PseudoFrame&)> atPicture = [](const PseudoFrame&) {};
    std::atomic<int> shown{0}, texts{0}, freshTexts{0};
    AfterDisplayRecord lastShown{};
    std::function<void(const PseudoFrame*)> onPicture = [this](const PseudoFrame* frame) {
        atPicture(*frame);
        const std::lock_guard lock(mutex);
        pictures.push_back(*frame);
        pixels.assign(frame->data, frame->data + frame->size);
    };
    std::function<void(const AfterDisplayRecord*)> onShown = [this](const AfterDisplayRecord* record) {
        lastShown = *record;
        ++shown;
    };
    std::function<void(OsdInfo*)> onText = [this](OsdInfo* info) {
        freshTexts += (info->flags & CORVANE_OSD_FRESH) != 0 ? 1 : 0;
        ++texts;
    };
    PlainPicture picture{64, 48, 200};
    CRenderMgr manager{this, 0, 0};
};

RendererScript* scripts[2];    // of the default renderer and of the plain one
template <int Which>
RendererPtr MakeScripted(const PresentSettings&, Clock&) {
    return std::make_shared<ScriptedRenderer>(*scripts[Which]);
}
constexpr auto kAny = [](uint32_t) { return true; };
const RendererMaker kScripted[] = {{"DirectDraw", kAny, &MakeScripted<0>}, {"GDI", kAny, &MakeScripted<1>}};

std::atomic<int> logLines;

TEST_F(RenderMgr, FallBackTable) {
    const struct {
        const char* name;
        const char* follows;
        uint32_t flags;
        bool presentFails, replaced;    // else no buffer
    } rows[] = {
        {"default without a buffer", "GDI", 0, false, true},
        {"default that cannot present", "GDI", 0, true, true},
        {"default, fall-back forbidden", "GDI", CORVANE_FLAG_NO_FALLBACK, false, false},
        {"plain without a buffer", nullptr, 0, false, false},
        {"its follower is not of this build", "Vulkan", 0, false, false},
    };
    log::hook = [](int level, const char*, int, const char* format, const void*) {
        if (level == 3)    // no other one is expected
            logLines += std::string(format) == "[%p] DirectDraw renderer failed, reset to GDI renderer" ? 1 : 100;
    };
    std::atomic<int> fallbackCodes{0};
    std::function<void(uint32_t, uint64_t, uint64_t)> onInfo = [&](uint32_t code, uint64_t a, uint64_t) {
        fallbackCodes += code == CORVANE_INFO_FALLBACK && a == 2 ? 1 : 0;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        RendererScript first, second;
        first.traits.followsOnFailure = row.follows;
        first.refuseBuffers = !row.presentFails;
        first.failPresents = row.presentFails;
        second.traits.name = "GDI";
        second.traits.followsOnFailure = nullptr;
        scripts[0] = &first;
        scripts[1] = &second;
        logLines = fallbackCodes = 0;
        {
            CRenderMgr scripted(&first, 0, row.flags, Clock::System(), kScripted);
            scripted.SetStreamInfo(Calling(onInfo));
            // No renderer has such a size, so none of them is asked, and none fails.
            scripted.PresentFrame(Frame(0, 60000, 60000), picture.Picture(), true);
            EXPECT_EQ(first.buffers, 0);
            for (int i = 0; i < 3; ++i) {    // the first is lost where nothing replaces what failed
                scripted.PresentFrame(Frame(40 * i), picture.Picture(), true);
                const int least = i + (row.presentFails || row.replaced ? 1 : 0);
                ASSERT_TRUE(Eventually([&] { return first.presents + second.presents >= least; }));
                ASSERT_TRUE(Eventually([&] { return logLines == (row.replaced ? 1 : 0); }));
            }
            EXPECT_EQ(second.buffers > 0, row.replaced);
            EXPECT_EQ(fallbackCodes, row.replaced ? 1 : 0);
        }
        EXPECT_EQ(first.destroyed, 1);
        EXPECT_TRUE(first.diedOnRenderThread && second.diedOnRenderThread);
    }
    log::hook = nullptr;
}

// A picture that comes while the render thread turns to another state is the next one's, and is shown.
TEST_F(RenderMgr, NoPictureIsLostToAStateThatIsOver) {
    KeepPictures(PF_BGRA32);
    for (size_t i = 1; i <= 2000; ++i) {
        manager.ResetToStopped();
        const auto from = std::chrono::steady_clock::now() + std::chrono::microseconds(i % 100);
        while (std::chrono::steady_clock::now() < from) {    // each moment of the turn once
        }
        Present(Frame(static_cast<int64_t>(i)));
        ASSERT_EQ(Await(i).milliseconds, i % 1000);
    }
}

TEST_F(RenderMgr, TargetSizes) {
    const struct {
        const char* name;
        uint32_t statedWidth, statedHeight, type, capWidth, capHeight, width, height;
    } rows[] = {
        {"as decoded", 0, 0, CORVANE_STREAM_H264, 0, 0, 640, 480},
        {"one side stated only", 320, 0, CORVANE_STREAM_H264, 0, 0, 640, 480},
        {"as stated", 320, 200, CORVANE_STREAM_H264, 0, 0, 320, 200},
        {"half-height pictures are line-doubled", 704, 240, CORVANE_STREAM_H263, 0, 0, 704, 480},
        {"not so when narrow", 352, 240, CORVANE_STREAM_H263, 0, 0, 352, 240},
        {"not so in other streams", 704, 240, CORVANE_STREAM_H264, 0, 0, 704, 240},
        {"cap, each side by itself, made even", 0, 0, CORVANE_STREAM_H264, 99, 1000, 100, 480},
        {"half a cap is none", 0, 0, CORVANE_STREAM_H264, 0, 100, 640, 480},
        {"a cap that cannot be rounded up", 0, 0, CORVANE_STREAM_H264, 0xFFFFFFFF, 0xFFFFFFFF, 640, 480},
    };
    PlainPicture decoded(640, 480);
    KeepPictures(PF_BGRA32);
    for (const auto& row : rows) {
        manager.SetRawDataCallbackSize(row.capWidth, row.capHeight);
        manager.PresentFrame(Frame(0, row.statedWidth, row.statedHeight, row.type), decoded.Picture(), true);
        const PseudoFrame frame = Await(static_cast<size_t>(&row - rows) + 1);
        EXPECT_EQ(frame.width * 1000 + frame.height, row.width * 1000 + row.height) << row.name;
        EXPECT_EQ(frame.size, 4 * row.width * row.height) << row.name;
        ASSERT_FALSE(HasFailure());    // those that follow count on its record
    }
}

// What is told of a picture and after it was shown: when it is to be presented, and when it was taken.
TEST_F(RenderMgr, RecordsOfAPicture) {
    KeepPictures(PF_BGRA32);
    manager.Stop(true);    // fresh information
    MediaFrameHeader header = VideoHeader(CORVANE_STREAM_H264, {}, true, 1'234'567);
    header.timeSeconds = 86400 + 3661;    // 1970-01-02 01:01:01
    header.timeZoneSeconds = 3600;
    for (const bool on : {false, true}) {    // while nothing is presented, the information stays fresh
        manager.SetPresentEnabled(on);
        Present(std::make_shared<MediaFrameImpl>(header));
        ASSERT_TRUE(Eventually([&] { return shown == on + 1; }));
    }
    const PseudoFrame frame = Await(1);
    EXPECT_EQ(frame.flags, 0x20u);
    EXPECT_EQ(frame.seconds * 1000 + frame.milliseconds, 1'234'567u);
    EXPECT_EQ(frame.timeSeconds, 86400u + 3661u);
    EXPECT_EQ(frame.timeZone, 44);
    EXPECT_EQ(pixels[0], 200);
    const uint8_t extension[] = {0, 0, 0, 0, 96, 12, 0, 0, 0, 9, 0, 0, 0, 8, 0, 7, 0, 1};    // the base time
    header.extension = extension;
    header.extensionSize = sizeof extension;
    Present(std::make_shared<MediaFrameImpl>(header));
    const PseudoFrame next = Await(2);
    EXPECT_TRUE(next.flags == 0 && next.seconds == 9 && next.timeZone == 7);
    ASSERT_TRUE(Eventually([&] { return shown == 3; }));
    EXPECT_EQ(lastShown.presentTime.seconds * 1000 + lastShown.presentTime.milliseconds, 1'234'567u);
    EXPECT_EQ(lastShown.baseTime.seconds, 9u);
    // Sound in the place of pictures: a notice without a picture, once a second of the frames.
    size_t records = 2;
    for (const int64_t second : {5, 6}) {
        manager.InputAudio(Frame(1000 * second), true, true);
        const PseudoFrame notice = Await(++records);
        manager.InputAudio(Frame(1000 * second + 40), true, true);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(notice.flags, 8u);
        EXPECT_EQ(notice.data, nullptr);
        EXPECT_EQ(notice.timeSeconds, static_cast<uint32_t>(second));
    }
    (void)Await(records);
}

// A picture callback that takes long neither holds the worker up nor sees a picture twice or torn.
TEST_F(RenderMgr, ASlowCallbackLosesPicturesAndNothingElse) {
    Gate entered, go;
    atPicture = [&](const PseudoFrame& frame) {
        entered.Open();
        EXPECT_TRUE(go.Wait());
        for (uint32_t i = 0; i < frame.size; ++i)
            ASSERT_EQ(frame.data[i], i % 4 == 3 ? 0 : frame.data[0]);
        EXPECT_EQ(frame.milliseconds, frame.data[0]) << "picture and frame belong together";
    };
    KeepPictures(PF_BGRA32);
    for (int i = 1; i <= 9; ++i) {
        PlainPicture next(64, 48, static_cast<uint8_t>(i));
        manager.PresentFrame(Frame(i), next.Picture(), i == 1);    // never blocks, never finds the manager busy
        ASSERT_TRUE(entered.Wait());
    }
    go.Open();
    EXPECT_EQ(Await(2).milliseconds, 9u);
    EXPECT_EQ(pictures[0].milliseconds, 1u);
}

// That size and state must be reported is told to the text callback with the next text, however many pictures later,
// and once; without a text callback nothing is kept for it. A redraw is one text, and so are pictures after another
// state.
TEST_F(RenderMgr, TextFollowsPolicyRedrawsAndFreshInformation) {
    const auto setText = [&](bool on) {
        manager.SetCallback(&PresentSettings::osd, on ? Calling(onText) : ClientCallback<CorvaneOsdCallback>());
    };
    setText(true);
    manager.SetOsdPolicy(2);    // by the frame's second
    const auto presented = [&](const std::function<void()>& call) {
        const int before = shown;
        call();
        return Eventually([&] { return shown > before; });
    };
    const auto nothing = [] {};
    const auto restart = [&] { manager.Stop(false); };
    const struct {
        int64_t timeMs;
        std::function<void()> happens;
        int texts, fresh = 0;
    } rows[] = {
        {1000, nothing, 1},
        {1040, restart, 0},
        {1080, nothing, 0},
        {2000, nothing, 1, 1},
        {3000, nothing, 1},
        {3040, [&] { manager.Stop(false), setText(false); }, 0},
        {3080, [&] { setText(true); }, 1},
        {3120, [&] { EXPECT_TRUE(presented([&] { manager.RequestRedraw(); })); }, 1},
        {3160, [&] { manager.ResetToStopped(); }, 1},
        {3200, [&] { manager.SetOsdPolicy(CORVANE_TEXT_ALWAYS); }, 0},
        {3240, nothing, 1},
        {3280, [&] { manager.SetOsdPolicy(2); }, 1},
        {3320, nothing, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.timeMs);
        texts = freshTexts = 0;
        row.happens();
        ASSERT_TRUE(presented([&] { Present(Frame(row.timeMs)); }));
        EXPECT_EQ(texts, row.texts);
        EXPECT_EQ(freshTexts, row.fresh);
    }
}

TEST_F(RenderMgr, RotationTakesTheBoxAndLosesWhatItCannotTurn) {
    KeepPictures(PF_BGRA32);
    EXPECT_EQ(manager.SetRotateOption(1), Status::Failed);
    EXPECT_EQ(manager.EnableRotateFilter(90), Status::Ok);
    EXPECT_EQ(manager.EnableRotateFilter(90), Status::Failed);
    Present(Frame(0));
    manager.DisableRotateFilter();
    Present(Frame(40));
    EXPECT_EQ(Await(1).milliseconds, 40u);
    // What cannot be turned leaves the last picture, be it of another size or of that of the box.
    const PictureSize turnedSize = RotateFilter(90).OutputSize({64, 48});
    PlainPicture box(turnedSize.width, turnedSize.height, 99);
    size_t records = 1;
    for (const PlainPicture* const last : {&picture, &box}) {
        manager.PresentFrame(Frame(60), last->Picture(), true);
        (void)Await(++records);
        EXPECT_EQ(manager.EnableRotateFilter(90), Status::Ok);
        Present(Frame(80));
        manager.DisableRotateFilter();
        manager.RequestRedraw();
        const PseudoFrame again = Await(++records);
        EXPECT_EQ(again.width * 1000 + again.height, last->frame.width * 1000 + last->frame.height);
        EXPECT_EQ(again.milliseconds, 60u);
        EXPECT_EQ(pixels[0], last->frame.planes[0][0]);
    }
    EXPECT_EQ(manager.EnableRotateFilter(90), Status::Ok);
    KeepPictures(PF_BGR24);
    Present(Frame(120));
    const PseudoFrame turned = Await(++records);
    EXPECT_TRUE(turned.height >= 64 && turned.width <= 52);
    EXPECT_NEAR(pixels[32 * RowBytes(PF_BGR24, turned.width) + 72], 200, 1);
}

TEST_F(RenderMgr, DisplayAreaFieldsFollowTheMask) {
    DisplayArea area{.overview = {{0, 0, 10, 10}},
                     .zoomIsWindow = 1,    // a null window
                     .zoomMargin = {4},
                     .zoomEnabled = 1,
                     .overviewEnabled = 1};
    const auto told = [&] {
        const DisplayArea now = manager.GetDisplayArea();
        return std::array<int64_t, 4>{now.overview.rectangle[2], now.overview.rectangle[3], now.zoomEnabled,
                                      now.zoomMargin[0]};
    };
    EXPECT_EQ(manager.SetDisplayArea(area, 1 | 4 | 16), Status::InvalidArgument);
    EXPECT_EQ(told(), (std::array<int64_t, 4>{10, 10, 0, 0})) << "bits before the faulty one are kept";
    EXPECT_EQ(manager.SetDisplayArea(area, 8 | 16 | 32), Status::Ok);
    area.overview.rectangle[3] = 0;    // empty
    EXPECT_EQ(manager.SetDisplayArea(area, 1), Status::InvalidArgument);
    EXPECT_EQ(told(), (std::array<int64_t, 4>{10, 10, 1, 4}));
}

// The picture from before a waiting state is not shown again, also where the render thread, which is inside a call, saw
// nothing of that state, and the next picture was taken back.
TEST_F(RenderMgr, APictureFromBeforeAWaitingStateDoesNotComeBack) {
    Gate inCall, go;
    atPicture = [&, first = true](const PseudoFrame&) mutable {
        if (std::exchange(first, false)) {
            inCall.Open();
            go.Wait();
        }
    };
    KeepPictures(PF_I420);
    Present(Frame(40));
    ASSERT_TRUE(inCall.Wait());
    manager.Stop(true);
    manager.PresentFrame(Frame(80), picture.Picture(), false);
    CallingFilter held([&](QMRX::Filter::FilterArgs*) {    // after the buffer of the second picture was taken back
        go.Open();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return 0;
    });
    EXPECT_EQ(manager.InsertFilter(&held), Status::Ok);
    manager.PresentFrame(Frame(120), picture.Picture(), false);
    EXPECT_EQ(Await(2).header->timeMilliseconds, 120u);
}

// The decoder gets its picture back once it was delivered. A client that asks for it again and again does not hold up
// what is shown instead of a picture.
TEST_F(RenderMgr, RawPicturesGoBackToTheDecoderAndEndWithTheState) {
    std::atomic<int> calls{0};
    std::atomic<uint32_t> repeat{0};
    std::function<void(uint32_t, void*)> onRaw = [&](uint32_t, void* record) {
        static_cast<RawPictureInfo*>(record)->repeat = repeat;
        ++calls;
    };
    picture.Share();
    KeepPictures(PF_BGRA32);    // converted into a lent buffer
    manager.Stop(false);
    Present(Frame(0));
    EXPECT_EQ(picture.references, 0) << "kept though nobody wants it";
    manager.Raw().Set(&RawSettings::format, CORVANE_PICTURE_I420);
    manager.Raw().SetCallback(&RawSettings::first, Calling(onRaw));
    Present(Frame(40));
    EXPECT_TRUE(Eventually([&] { return calls == 1 && picture.references == 0; }));
    repeat = 1;
    Present(Frame(80));
    EXPECT_TRUE(Eventually([&] { return calls > 3; }));
    manager.InputAudio(Frame(5000), true, true);
    EXPECT_EQ(Await(4).flags, 8u);
    repeat = 0;
    manager.Raw().SetCallback(&RawSettings::first, {});
}

// The sound device's thread waits for its turn at the raw callback only as long as the sound is on.
TEST(RenderMgrSound, SwitchedOffItWaitsForNoRawCallback) {
    ScriptedSound sound;
    CRenderMgr manager(&sound, 0, 0, Clock::System(), BuiltRenderers(), sound);
    manager.Raw().SetCallback(&RawSettings::first, {[](void*, uint32_t, void*) { ADD_FAILURE(); }, nullptr});
    const std::vector<uint8_t> payload(160);
    manager.InputAudio(std::make_shared<MediaFrameImpl>(SoundHeader(CORVANE_STREAM_MULAW, payload, 8000)), true, false);
    ASSERT_TRUE(Eventually([&] { return sound.openNow == 1; }));
    std::optional<RawClient::Turn> running(std::in_place, manager.Raw(), [] { return true; });
    std::atomic<bool> returned{false};
    std::thread device([&] {
        (void)sound.Take(2048 + 320);
        returned = true;
    });
    ChannelStatistics told{.recordSize = sizeof told};
    EXPECT_TRUE(Eventually([&] { return manager.Counters().Fill(told), told.soundHeard == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));    // for its turn
    EXPECT_FALSE(returned);
    manager.EnableSound(false);
    EXPECT_TRUE(Eventually([&] { return returned.load(); }));
    running.reset();
    device.join();
    EXPECT_TRUE(DeviceKeeper::Process().WaitIdle(60'000'000'000)) << "the device uses the sound";
}

// A stop wakes the worker, which waits at most half a second for the render thread. A single try may be slow on a busy
// machine, and one is enough.
TEST(RenderMgrStop, WakesTheWorker) {
    RendererScript holding;
    Gate leaves;
    std::atomic<bool> inside{false};
    holding.present = [&](const FinishedPicture&, Pass&) { return inside = true, (void)leaves.Wait(), Outcome::Put; };
    scripts[0] = scripts[1] = &holding;
    const PlainPicture picture(64, 48, 200);
    CRenderMgr manager(&holding, 0, 0, Clock::System(), kScripted);
    manager.PresentFrame(Frame(0), picture.Picture(), true);
    EXPECT_TRUE(Eventually([&] { return inside.load(); }));
    manager.PresentFrame(Frame(40), picture.Picture(), true);    // stays in the mailbox
    bool woken = false;
    for (int i = 0; i < 20 && !woken; ++i) {
        manager.Interrupt();
        const int64_t before = Clock::System().Now();
        manager.PresentFrame(Frame(80), picture.Picture(), true);
        woken = Clock::System().Now() - before < 250'000'000;
    }
    EXPECT_TRUE(woken);
    leaves.Open();
}

}    // namespace
}    // namespace corvane::test
