// The operations of a display adapter that carries video to the screen, as the default renderer uses them: a device for
// each monitor, video surfaces that a worker fills, a composite that becomes what the window shows, text that is laid
// over it by colour key, and the copy to the screen.
//
//   Blitter      the platform: which monitors there are, and their devices
//   BlitDevice   makes surfaces; scan line; the primary surface, which is the screen
//   BlitSurface  memory of a device that is filled, blitted and locked
//
// Errors are these codes, which the default renderer decides by; every other code counts as a failure of its own. They
// stay between the blitter and render/, whose renderers say what a pass came to as an Outcome. Unless said otherwise a
// call comes from the render thread of the channel that owns the surface, never waits for the window system, and takes
// no lock but leaves. The processor's backing (Processor) keeps all surfaces in memory and works with the house's
// kernels.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/ColourSignal.h"
#include "base/Mutex.h"
#include "base/Rectangle.h"
#include "platform/blitter/DeviceMap.h"
#include "platform/raster/Raster.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

class WindowSink;

enum class BlitResult : int32_t {
    Ok = 0,
    Failed = -1,
    SurfaceLost = static_cast<int32_t>(0x887601C2u),     // the memory is gone; it may be restored
    WrongMode = static_cast<int32_t>(0x8876024Bu),       // the device is of a display mode that is no more
    StillDrawing = static_cast<int32_t>(0x8876021Cu),    // busy; a caller that does not wait gives up
    InBlank = static_cast<int32_t>(0x88760219u),         // no line: the beam is in vertical blank
    InvalidArgument = static_cast<int32_t>(0x80070057u),
};
constexpr bool Failed(BlitResult result) {
    return static_cast<int32_t>(result) < 0;
}

constexpr uint32_t FourCC(char a, char b, char c, char d) {
    return static_cast<uint32_t>(static_cast<uint8_t>(a)) | static_cast<uint32_t>(static_cast<uint8_t>(b)) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(c)) << 16 | static_cast<uint32_t>(static_cast<uint8_t>(d)) << 24;
}
inline constexpr uint32_t kFourCCNV12 = FourCC('N', 'V', '1', '2');
inline constexpr uint32_t kFourCCYV12 = FourCC('Y', 'V', '1', '2');

// Operations that a kind of surface does not have fail.
class BlitSurface {
public:
    virtual ~BlitSurface() = default;

    // Gives the memory away until Unlock, and waits for it. `keepSystemFree`: the system is not held up as long. Video
    // surfaces: the planes follow one another, chroma rows are as long as luma rows for NV12, half as long for YV12.
    // The thread that owns the surface calls it: the worker while it writes, the render thread while it shows.
    virtual BlitResult Lock(bool /*keepSystemFree*/, uint8_t** /*data*/, uint32_t* /*pitch*/) {
        return BlitResult::Failed;
    }
    virtual BlitResult Unlock() { return BlitResult::Failed; }
    virtual BlitResult Restore() { return BlitResult::Failed; }

    // Of a video surface: what its samples mean, from here on, as PictureView has it.
    virtual void SetColours(const std::optional<ColourSignal>& /*colours*/) {}

    // Both clip to the surface. `color` is 0x00BBGGRR.
    virtual BlitResult Fill(const Rect& /*rect*/, uint32_t /*color*/) { return BlitResult::Failed; }
    // Scales `source` of another surface of this device, video converted, into `to`.
    virtual BlitResult Blit(const Rect& /*to*/, BlitSurface& /*from*/, const Rect& /*source*/) {
        return BlitResult::Failed;
    }
    // What a client draws on; only of a text surface in system memory.
    virtual PictureView Drawing() { return {}; }
};

// Where a pass draws. A window beside the main one has its place in `room`, which lies outside (0, 0) .. size.
struct BlitTarget {
    WindowWatchPtr window;
    WindowWatch::Size size;    // the window's inside
    bool hidden = false;       // nothing is drawn on the window itself
    WindowSink* sink = nullptr;
    WindowSink* overview = nullptr;    // of the window beside it, may be null
    Rect room;                         // empty: there is none
};

// What a picture is composed on, as large as window and room together.
class BlitComposite : public BlitSurface {
public:
    // Readies it for a pass; may be called again. StillDrawing: what was copied last is still read, or the window
    // cannot be seen; the listeners of the window's watch are called when a new attempt is due. InvalidArgument: the
    // window has another size by now. SurfaceLost: the server is gone. Failed: nothing can be drawn.
    virtual BlitResult Begin(const BlitTarget& target) = 0;
    // Takes another size, and keeps what it works with. False: it cannot, and another one must take its place.
    virtual bool Resize(uint32_t /*width*/, uint32_t /*height*/) { return false; }
};

class BlitDevice {
public:
    virtual ~BlitDevice() = default;

    // Surfaces: null where the device has no such surface, or no memory. Text is keyed by black once it is blitted from
    // system memory to the device: pixels of value 0 let through what lies below. Surfaces die before their device.
    virtual std::unique_ptr<BlitSurface> CreateVideo(uint32_t width, uint32_t height, uint32_t fourCC) = 0;    // worker
    // Whether it reads memory that is not its own.
    virtual bool WrapsVideo() const { return false; }    // worker
    // A video surface that is somebody else's finished picture, which outlives it; it cannot be locked. Null also where
    // WrapsVideo is false.
    virtual std::unique_ptr<BlitSurface> WrapVideo(const ConstPictureView& /*picture*/) { return nullptr; }
    virtual std::unique_ptr<BlitComposite> CreateComposite(uint32_t width, uint32_t height) = 0;
    virtual std::unique_ptr<BlitSurface> CreateTextSystem(uint32_t width, uint32_t height) = 0;
    virtual std::unique_ptr<BlitSurface> CreateText(uint32_t width, uint32_t height) = 0;

    // The line that is on its way to the monitor of `window` at `now` (monotonic ns), from 0; InBlank; any other code
    // where it cannot be told. No lock.
    virtual BlitResult GetScanLine(const WindowWatch& window, int64_t now, uint32_t* line) = 0;

    // The primary surface, as far as `window` needs it. Lock() is held.
    virtual BlitResult IsLost(const WindowWatch& window) = 0;
    virtual BlitResult RestorePrimary(const WindowWatch& window) = 0;
    virtual BlitResult Recreate() = 0;    // all of the device anew, in place
    // Shows `source` of the composite at `destination` of the monitor, without waiting. Lock() is not needed: each
    // composite has a way of its own to the screen.
    virtual BlitResult Copy(const WindowWatch& window, const Rect& destination, BlitComposite& from,
                            const Rect& source) = 0;

    Mutex& Lock() { return m_lock; }

private:
    Mutex m_lock;    // guards the primary surface against other renderers on the same monitor; before leaves only
};

class Blitter {
public:
    Blitter() : m_devices(*this) {}
    virtual ~Blitter() = default;
    Blitter(const Blitter&) = delete;
    Blitter& operator=(const Blitter&) = delete;

    // Any thread.
    virtual std::vector<Monitor> Enumerate() = 0;    // may be empty, and may not know all
    virtual Monitor Desktop() = 0;                   // that of the desktop: there always is one
    // That of a window, which may be null; nothing where it cannot be told.
    virtual std::optional<Monitor> FindMonitor(const WindowWatchPtr& window) = 0;
    virtual std::unique_ptr<BlitDevice> CreateDevice(const Monitor& monitor) = 0;    // null on failure

    DeviceMap& Devices() { return m_devices; }

    // The one of the process.
    static Blitter& Processor();
    // Pictures converted by it so far, in the process: hidden and paused channels convert none.
    static uint64_t Conversions();

private:
    DeviceMap m_devices;
};

}    // namespace corvane
