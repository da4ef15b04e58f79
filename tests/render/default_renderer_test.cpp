// The default renderer on a scripted adapter: what it asks for, in which order, and what it makes of each failure.

#include <map>
#include <set>

#include "present/ScriptedWatch.h"
#include "render/DDrawRenderer.h"
#include "support/PlainPicture.h"
#include "support/RendererHand.h"
#include "support/SteppedClock.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using enum BlitResult;
using test::ScriptedWatch;
using Life = WindowWatch::Life;
using Lines = std::vector<std::string>;

std::string Text(const Rect& rect) {
    return std::to_string(rect.left) + "," + std::to_string(rect.top) + "," + std::to_string(rect.right) + "," +
           std::to_string(rect.bottom);
}

// The script, and what happened.
struct Script {
    std::vector<Monitor> monitors{{7, {0, 0, 1920, 1080}}, {8, {1920, 0, 3200, 1024}}};
    std::optional<Monitor> current = monitors[0];
    std::set<std::string> refused;                             // surfaces and devices by name
    bool wraps = false;                                        // reads the memory of others
    std::map<std::string, std::vector<BlitResult>> results;    // by operation; taken from the front, then Ok
    Lines log;
    int looks = 0;    // at the beam
    uint32_t lineNow = 0;
    std::map<std::string, int> alive;

    BlitResult Log(const std::string& line) { return log.push_back(line), Ok; }
    BlitResult Take(const std::string& operation) {
        auto& queue = results[operation];
        const BlitResult result = queue.empty() ? Ok : queue.front();
        queue.erase(queue.begin(), queue.begin() + !queue.empty());
        return result;
    }
};

// Any kind of surface.
class ScriptedSurface final : public BlitComposite {
public:
    ScriptedSurface(Script& script, const std::string& called) : m_name(called), m_script(script) {
        (void)m_raster.Resize(400, 400);    // as large as any
        ++m_script.alive[m_name];
    }
    ~ScriptedSurface() override { --m_script.alive[m_name]; }
    BlitResult Lock(bool keepSystemFree, uint8_t** data, uint32_t* pitch) override {
        (void)Note(keepSystemFree ? "lock" : "lock plainly");
        *data = m_raster.View().plane[0];
        *pitch = static_cast<uint32_t>(m_raster.View().stride[0]);
        return m_script.Take("lock");
    }
    BlitResult Unlock() override { return Note("unlock"); }
    BlitResult Restore() override { return Note("restore"); }
    BlitResult Blit(const Rect& to, BlitSurface& from, const Rect& source) override {
        return Note("blit " + static_cast<ScriptedSurface&>(from).m_name + " " + Text(source) + " to " + Text(to));
    }
    PictureView Drawing() override { return m_raster.View(); }
    BlitResult Begin(const BlitTarget&) override { return m_script.Take("begin"); }

private:
    BlitResult Note(const std::string& what) { return m_script.Log(m_name + " " + what); }
    const std::string m_name;
    Script& m_script;
    Raster m_raster;
};

class ScriptedDevice final : public BlitDevice {
public:
    ScriptedDevice(Script& script, const Monitor& monitor) : m_script(script), m_monitor(monitor) {}
    std::unique_ptr<BlitSurface> CreateVideo(uint32_t, uint32_t, uint32_t fourCC) override {
        const std::string name = fourCC == kFourCCNV12 ? "NV12" : "YV12";
        m_script.Log("ask " + name);
        return Make(name);
    }
    bool WrapsVideo() const override { return m_script.wraps; }
    std::unique_ptr<BlitSurface> WrapVideo(const ConstPictureView&) override {
        return m_script.wraps ? Make("wrap") : nullptr;
    }
    std::unique_ptr<BlitComposite> CreateComposite(uint32_t, uint32_t) override { return Make("composite"); }
    std::unique_ptr<BlitSurface> CreateTextSystem(uint32_t, uint32_t) override { return Make("system"); }
    std::unique_ptr<BlitSurface> CreateText(uint32_t, uint32_t) override { return Make("text"); }
    BlitResult GetScanLine(const WindowWatch&, int64_t, uint32_t* line) override {
        *line = m_script.lineNow;
        ++m_script.looks;
        return m_script.Take("line");
    }
    BlitResult IsLost(const WindowWatch&) override { return m_script.Take("lost"); }
    BlitResult RestorePrimary(const WindowWatch&) override { return m_script.Take("restore"); }
    BlitResult Recreate() override { return m_script.Log("recreate"); }
    BlitResult Copy(const WindowWatch&, const Rect& to, BlitComposite&, const Rect& source) override {
        m_script.Log("copy " + Text(source) + " to " + Text(to) + " of " + std::to_string(m_monitor.handle));
        return m_script.Take("copy");
    }

private:
    std::unique_ptr<ScriptedSurface> Make(const std::string& name) {
        return m_script.refused.contains(name) ? nullptr : std::make_unique<ScriptedSurface>(m_script, name);
    }
    Script& m_script;
    const Monitor m_monitor;
};

class ScriptedBlitter final : public Blitter, public Script {
public:
    std::vector<Monitor> Enumerate() override { return monitors; }
    Monitor Desktop() override { return {99, {0, 0, 800, 600}}; }
    std::optional<Monitor> FindMonitor(const WindowWatchPtr& window) override {
        return window != nullptr || !current ? current : Desktop();
    }
    std::unique_ptr<BlitDevice> CreateDevice(const Monitor& monitor) override {
        Log("device " + std::to_string(monitor.handle));
        return refused.contains("device") ? nullptr : std::make_unique<ScriptedDevice>(*this, monitor);
    }
};

// A renderer with a window of 100 x 80 at (50, 40), driven by hand.
struct Stage : test::RendererHand {
    Stage() {
        settings.window = watch;
        settings.osd = {[](void*, OsdInfo*) {}, nullptr};
    }
    ~Stage() { shown = {}; }    // before the adapter
    bool Lend(uint32_t wish = PF_I420, uint32_t width = 64) { return RendererHand::Lend(*renderer, width, 48, wish); }
    Outcome Pass() { return RendererHand::Pass(*renderer); }
    // With pictures on the window, if all goes well, in both buffers; then the log starts anew.
    void Start() {
        renderer = std::make_unique<CDDrawRenderer>(settings, blitter, *clock);
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(Lend());
            EXPECT_EQ(Pass(), Outcome::Put);
        }
        EXPECT_EQ(Alive("composite") * 10 + Alive("YV12"), 12);
        blitter.log.clear();
    }
    void WithOverviewWindow() {
        settings.overviewWindow = std::make_shared<ScriptedWatch>(Rect{300, 200, 340, 230});
        settings.area.overviewEnabled = settings.area.overviewIsWindow = 1;
    }
    int Alive(const char* name) { return blitter.alive[name]; }
    bool Logged(const char* start) const {    // "": anyhow
        return *start == 0 || std::ranges::any_of(blitter.log, [=](auto& line) { return line.starts_with(start); });
    }

    Clock* clock = &Clock::System();
    ScriptedBlitter blitter;
    std::shared_ptr<ScriptedWatch> watch = std::make_shared<ScriptedWatch>(Rect{50, 40, 150, 120});
    std::unique_ptr<CDDrawRenderer> renderer;
};

// What may happen between two passes.
using Happening = std::function<void(Stage&)>;
Happening Fails(const std::map<std::string, std::vector<BlitResult>>& results) {
    return [=](Stage& s) { s.blitter.results = results; };
}
Happening Moves(const Monitor& monitor, const Rect& place, const char* refused) {
    return [=](Stage& s) {
        s.blitter.current = monitor;
        s.watch->outer = place;
        s.blitter.refused = {refused};
    };
}

Happening HasRoom(const Rect& place, bool overview = true) {
    return [=](Stage& s) {
        s.WithOverviewWindow();
        s.settings.area.overviewEnabled = overview;
        s.watch->outer = place;
    };
}

// Each row: a channel shows a picture, then something happens to it, then comes another pass, another buffer and, with
// what was lost mended, one more pass.
TEST(DefaultRenderer, WhatFailsInAPass) {
    const Monitor first{7, {0, 0, 1920, 1080}}, second{8, {1920, 0, 3200, 1024}};
    using enum Outcome;
    constexpr Outcome Nowhere = NothingToDrawOn;
    const auto is = [](Life life) -> Happening { return [=](Stage& s) { s.watch->life = life; }; };
    const auto hidden = [](Stage& s) { s.watch->viewable = false; };
    const struct {
        const char* name;
        Happening happen;
        Outcome present;
        bool composite;    // lives on after the pass
        bool lend;
        Outcome next;
        const char* trace = "";    // in the log of the pass and the lending
    } rows[] = {
        {"nothing", [](Stage&) {}, Put, true, true, Put, "copy 0,0,100,80 to 50,40,150,120 of 7"},
        {"no window any more", [](Stage& s) { s.settings.window = nullptr; }, Nowhere, true, true, Nowhere},
        {"window destroyed", is(Life::Dead), Nowhere, false, true, Nowhere},
        {"window beyond the limits", Moves(first, {0, 0, 9000, 9000}, ""), Nowhere, false, true, Nowhere},
        {"window that just keeps them", HasRoom({0, 0, 16200, 300}, false), Put, true, true, Put},
        {"no room for its overview beside it", HasRoom({0, 0, 16200, 300}), Nowhere, false, true, Nowhere},
        {"nor below it", HasRoom({0, 0, 300, 16200}), Nowhere, false, true, Nowhere},
        {"window not known yet", is(Life::Unknown), Nowhere, true, true, Nowhere},
        {"server gone", [](Stage& s) { s.watch->life = Life::Dead, s.watch->serverLost = true; }, Failed, false, false,
         Failed},
        {"window not viewable", hidden, Nowhere, true, true, Nowhere},
        {"its overview is", [=](Stage& s) { hidden(s), s.WithOverviewWindow(); }, Put, true, true, Put,
         "copy 100,0,140,30 to 300,200,340,230 of 7"},
        {"on another monitor", Moves(second, {2000, 50, 2100, 130}, ""), NotDue, true, true, Put,
         "copy 0,0,100,80 to 80,50,180,130 of 8"},
        {"a monitor that came later", Moves({9, {-100, 0, 0, 100}}, {50, 40, 150, 120}, ""), NotDue, true, true, Put,
         "device 9"},
        {"monitor not told", [](Stage& s) { s.blitter.current.reset(); }, Failed, false, true, Failed},
        {"device of the next one refused", Moves({9, {}}, {50, 40, 150, 120}, "device"), Failed, false, false, Failed},
        {"surface set refused", Moves(first, {50, 40, 170, 120}, "composite"), Failed, false, true, Failed},
        {"screen lost", Fails({{"copy", {SurfaceLost}}}), Failed, false, false, NotDue},
        {"copy fails otherwise", Fails({{"copy", {InvalidArgument}}}), Busy, false, true, Put},
        {"screen still drawing", Fails({{"copy", {StillDrawing}}}), Busy, true, true, Put},
        {"composite still read", Fails({{"begin", {StillDrawing}}}), Busy, true, true, Put},
        {"composite lost", Fails({{"begin", {SurfaceLost}}}), Failed, false, false, NotDue},
        {"window resized meanwhile", Fails({{"begin", {InvalidArgument}}}), Put, true, true, Put, "copy"},
        {"resized all the time", Fails({{"begin", {InvalidArgument, InvalidArgument}}}), Busy, true, true, Put},
        {"another mode", Fails({{"lost", {SurfaceLost}}, {"restore", {WrongMode}}}), Put, true, true, Put, "recreate"},
        {"video lock of the old kind", Fails({{"lock", {InvalidArgument}}}), Put, true, true, Put, "YV12 lock plainly"},
        {"video lost and restored", Fails({{"lock", {SurfaceLost}}}), Put, true, true, Put, "YV12 restore"},
        {"video cannot be locked", Fails({{"lock", {SurfaceLost, SurfaceLost}}}), Put, true, true, Put},
        {"presenting is off", [](Stage& s) { s.settings.presentEnabled = false; }, NotDue, true, true, NotDue},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Stage stage;
        stage.Start();
        row.happen(stage);
        EXPECT_EQ(stage.Pass(), row.present);
        EXPECT_EQ(stage.Alive("composite"), row.composite ? 1 : 0);
        EXPECT_EQ(stage.Lend(), row.lend);
        EXPECT_LE(stage.Alive("YV12"), 2);
        EXPECT_TRUE(stage.Logged(row.trace)) << testing::PrintToString(stage.blitter.log);
        EXPECT_EQ(stage.Pass(), row.next);
        if (row.next == Put) {    // what the text needs goes with it
            EXPECT_EQ(stage.Alive("system") * 10 + stage.Alive("text"), 11);
            stage.settings.osd = {};
            (void)stage.Pass();
            EXPECT_EQ(stage.Alive("system") + stage.Alive("text"), 0);
        }
        stage.renderer.reset();
        stage.shown = {};
        EXPECT_EQ(stage.Alive("YV12") + stage.Alive("composite") + stage.Alive("system") + stage.Alive("text"), 0);
        EXPECT_EQ(stage.blitter.Devices().Users(), 0u);
    }
}

// What a worker is lent in a format and width, or has taken by reference where the adapter reads the memory of others.
// Each row follows the one before; of the two buffers that one is free which was not shown last.
TEST(DefaultRenderer, BuffersAndPicturesOfTheWorker) {
    test::PlainPicture first(64, 48), pairs(64, 48);    // the latter with chroma in pairs
    pairs.frame.strides[2] = 0;
    first.Share();
    pairs.Share();
    using Call = std::function<bool(Stage&)>;    // false: it got nothing
    const auto lend = [](uint32_t wish, uint32_t width = 64) -> Call {
        return [=](Stage& s) { return s.Lend(wish, width); };
    };
    const auto take = [](const test::PlainPicture& picture) -> Call {
        return [&](Stage& s) { return s.Take(*s.renderer, picture.Picture()); };
    };
    const auto pass = [](Outcome outcome) -> Call { return [=](Stage& s) { return s.Pass() == outcome; }; };
    const struct {
        const char* name;
        Happening happens;    // before
        Call call;
        bool succeeds;
        uint32_t format = 0;    // of the buffer that is shown from here on; 0: there is none
        bool asks = false;      // the device for a surface
    } rows[] = {
        {"no memory of others", [](Stage&) {}, take(first), false, PF_I420},
        {"by reference", [](Stage& s) { s.blitter.wraps = true; }, take(first), true},
        {"shown", [](Stage&) {}, pass(Outcome::Put), true},
        {"by reference, chroma in pairs", [](Stage&) {}, take(pairs), true},
        {"a buffer of its own again", [](Stage&) {}, lend(PF_NV12), true, PF_NV12, true},
        {"others get planes", [](Stage&) {}, lend(PF_BGRA32), true, PF_I420},
        {"the free one is of pairs", [](Stage&) {}, lend(PF_I420), true, PF_I420, true},
        {"the same", [](Stage&) {}, lend(PF_I420), true, PF_I420},
        {"another width", [](Stage&) {}, lend(PF_I420, 66), true, PF_I420, true},
        {"refused", [](Stage& s) { s.blitter.refused = {"NV12"}; }, lend(PF_NV12), true, PF_I420, true},
        {"refused for good", [](Stage& s) { s.blitter.refused = {}; }, lend(PF_NV12, 66), true, PF_I420},
        {"not by reference either", [](Stage&) {}, take(pairs), false, PF_I420},
        {"cannot be locked", Fails({{"lock", {BlitResult::Failed}}}), lend(PF_I420, 70), false, PF_I420, true},
        {"none at all", [](Stage& s) { s.blitter.refused = {"YV12"}; }, lend(PF_I420), false, PF_I420, true},
        {"by reference all the same", [](Stage&) {}, take(first), true},
        {"on another device too", [](Stage& s) { s.blitter.current->handle = 9; }, pass(Outcome::Put), true},
        {"with the screen lost", Fails({{"copy", {SurfaceLost}}}), pass(Outcome::Failed), true},
        {"no device", [](Stage&) {}, take(first), false},
    };
    Stage stage;
    stage.Start();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        stage.blitter.log.clear();
        row.happens(stage);
        EXPECT_EQ(row.call(stage), row.succeeds);
        const BufferSlot* const buffer = stage.shown.Buffer();
        EXPECT_EQ(buffer != nullptr ? buffer->view.format : 0, row.format);
        EXPECT_EQ(first.references + pairs.references, buffer == nullptr ? 1 : 0);
        EXPECT_EQ(stage.Logged("ask"), row.asks);
        if (row.name == std::string("shown"))
            EXPECT_TRUE(stage.Logged("composite blit wrap 0,0,64,48 to 0,0,100,80"));
        EXPECT_FALSE(stage.Logged("wrap")) << "never locked";
        EXPECT_EQ(stage.Alive("wrap"), 0) << "for one pass";
    }
}

// How often a copy begun in vertical blank ended clear of the window is kept from one picture to the next: where it
// seldom does, a blank is no good moment any more.
TEST(DefaultRenderer, BlanksThatDoNotHelpAreRemembered) {
    Stage stage;
    stage.watch->outer = {50, -10, 150, 70};    // line 0 lies within
    stage.Start();
    const auto looks = [&] {
        const int before = stage.blitter.looks;
        stage.blitter.results["line"] = {InBlank, Ok};
        EXPECT_EQ(stage.Pass(), Outcome::Put);
        return stage.blitter.looks - before;
    };
    EXPECT_EQ(looks(), 2) << "before and after the copy";
    for (int i = 0; i < 70; ++i)
        (void)looks();
    EXPECT_GT(looks(), 2);
}

// A beam that stays within the window is waited for by the clock that was given, a millisecond a look.
TEST(DefaultRenderer, WaitsForTheBeamByItsClock) {
    test::SteppedClock clock;
    Stage stage;
    stage.clock = &clock;
    stage.watch->outer = {50, 40, 150, 600};
    stage.Start();
    stage.blitter.looks = 0;
    stage.blitter.lineNow = 100;
    EXPECT_EQ(stage.Pass(), Outcome::Put);
    EXPECT_EQ(stage.blitter.looks, 1 + 100 + 1) << "the last is after the copy";
}

TEST(DefaultRenderer, ScanLineOfTheProcessor) {
    ScriptedWatch watch({});
    const auto device = Blitter::Processor().CreateDevice({});
    uint32_t line = 9;
    EXPECT_EQ(device->GetScanLine(watch, 0, &line), Failed);
    watch.beam = Beam{3, 4, 400, 1000};
    EXPECT_EQ(device->GetScanLine(watch, 1000 + 299, &line), Ok);
    EXPECT_EQ(line, 2u);
    EXPECT_EQ(device->GetScanLine(watch, 1000 + 300, &line), InBlank);
}

TEST(DefaultRenderer, DeviceMap) {
    ScriptedBlitter blitter;
    blitter.monitors = {{0, {}}, {5, {}}};
    {
        const DeviceMap::Use first(blitter.Devices());
        const DeviceMap::Use second(blitter.Devices());
        EXPECT_EQ(blitter.log, Lines{"device 5"}) << "no monitor, no device; once for all";
        EXPECT_EQ(first.Find({5, {}}), second.Find({5, {}}));
    }
    blitter.monitors.clear();
    const DeviceMap::Use use(blitter.Devices());
    EXPECT_EQ(blitter.log.back(), "device 99") << "that of the desktop, where nothing is told";
}

}    // namespace
}    // namespace corvane
