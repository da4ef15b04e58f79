// The operations of a display adapter that the default renderer uses: a device for each monitor, video surfaces that
// the worker fills, a composite with the contents of the window, text that is laid over it by colour key, and the copy
// to the screen.
//
//   Blitter      the platform: which monitors there are, and their devices
//   BlitDevice   makes surfaces; scan line; the primary surface, which is the screen
//   BlitSurface  memory of a device that is filled, blitted and locked
//
// The default renderer handles each of these error codes; any other code is a failure. Only the blitter and render/ use
// these codes; the outcome of a pass is an Outcome. Unless stated otherwise, calls come from the render thread of the
// channel that owns the surface, never wait for the window system, and take only leaf locks. The processor's backing
// (Processor) keeps all surfaces in memory and uses the kernels of this library.
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
    WrongMode = static_cast<int32_t>(0x8876024Bu),       // the device was made for a former display mode
    StillDrawing = static_cast<int32_t>(0x8876021Cu),    // busy
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

    // Lends the memory until Unlock, and waits for it. `keepSystemFree`: the lock does not block the system. Video
    // surfaces: memory in PF_NV12 or PF_YV12, as LayOut has it. The thread that owns the surface calls this: the worker
    // while it writes, the render thread while it shows.
    virtual BlitResult Lock(bool /*keepSystemFree*/, uint8_t** /*data*/, uint32_t* /*pitch*/) {
        return BlitResult::Failed;
    }
    virtual BlitResult Unlock() { return BlitResult::Failed; }
    virtual BlitResult Restore() { return BlitResult::Failed; }

    // Sets the colours of a video surface, as those of a PictureView.
    virtual void SetColours(const std::optional<ColourSignal>& /*colours*/) {}

    // Fill and Blit clip to the surface. `color` is 0x00BBGGRR.
    virtual BlitResult Fill(const Rect& /*rect*/, uint32_t /*color*/) { return BlitResult::Failed; }
    // Scales `source` of another surface of this device into `to`, and converts video.
    virtual BlitResult Blit(const Rect& /*to*/, BlitSurface& /*from*/, const Rect& /*source*/) {
        return BlitResult::Failed;
    }
    // The picture that a client draws on; only of a text surface in system memory.
    virtual PictureView Drawing() { return {}; }
};

// The windows that a pass draws on. The overview window has its place in `room`, which lies outside (0, 0) .. size.
struct BlitTarget {
    WindowWatchPtr window;
    WindowWatch::Size size;    // the window's inside
    bool hidden = false;       // nothing is drawn on the window itself
    WindowSink* sink = nullptr;
    WindowSink* overview = nullptr;    // of the overview window; may be null
    Rect room;                         // empty: there is none
};

// The surface that a picture is composed on, as large as window and room together.
class BlitComposite : public BlitSurface {
public:
    // Prepares the composite for a pass; may be called again. StillDrawing: the server still reads the last copy, or
    // the window is not viewable; the listeners of the window's watch are called when a new attempt is due.
    // InvalidArgument: the window has another size by now. SurfaceLost: the server is gone. Failed: nothing can be
    // drawn.
    virtual BlitResult Begin(const BlitTarget& target) = 0;
    // Changes the size. False: the composite cannot, and must be replaced.
    virtual bool Resize(uint32_t /*width*/, uint32_t /*height*/) { return false; }
};

class BlitDevice {
public:
    virtual ~BlitDevice() = default;

    // Surfaces: null where the device has no such surface, or no memory. Text that was blitted from system memory to
    // the device is keyed by black: pixels of value 0 are transparent. Surfaces die before their device.
    virtual std::unique_ptr<BlitSurface> CreateVideo(uint32_t width, uint32_t height, uint32_t fourCC) = 0;    // worker
    // Whether the device reads memory of others.
    virtual bool WrapsVideo() const { return false; }    // worker
    // A video surface around a decoder's picture, which outlives the surface. It cannot be locked. Null also where
    // WrapsVideo is false.
    virtual std::unique_ptr<BlitSurface> WrapVideo(const ConstPictureView& /*picture*/) { return nullptr; }
    virtual std::unique_ptr<BlitComposite> CreateComposite(uint32_t width, uint32_t height) = 0;
    virtual std::unique_ptr<BlitSurface> CreateTextSystem(uint32_t width, uint32_t height) = 0;
    virtual std::unique_ptr<BlitSurface> CreateText(uint32_t width, uint32_t height) = 0;

    // The line, from 0, that the monitor of `window` draws at `now` (monotonic ns); InBlank; any other code where it is
    // unknown. No lock.
    virtual BlitResult GetScanLine(const WindowWatch& window, int64_t now, uint32_t* line) = 0;

    // The primary surface, as far as `window` needs it. Lock() is held.
    virtual BlitResult IsLost(const WindowWatch& window) = 0;
    virtual BlitResult RestorePrimary(const WindowWatch& window) = 0;
    virtual BlitResult Recreate() = 0;    // makes the device anew, in place
    // Shows `source` of the composite at `destination` of the monitor, without waiting. Lock() is not needed: each
    // composite has its own connection to the screen.
    virtual BlitResult Copy(const WindowWatch& window, const Rect& destination, BlitComposite& from,
                            const Rect& source) = 0;

    Mutex& Lock() { return m_lock; }

private:
    Mutex m_lock;    // guards the primary surface against other renderers on the same monitor; only leaf locks are
                     // taken inside
};

class Blitter {
public:
    Blitter() : m_devices(*this) {}
    virtual ~Blitter() = default;
    Blitter(const Blitter&) = delete;
    Blitter& operator=(const Blitter&) = delete;

    // Any thread.
    virtual std::vector<Monitor> Enumerate() = 0;    // may be empty or incomplete
    virtual Monitor Desktop() = 0;                   // the monitor of the desktop, which always exists
    // The monitor of a window, which may be null; no value where it is unknown.
    virtual std::optional<Monitor> FindMonitor(const WindowWatchPtr& window) = 0;
    virtual std::unique_ptr<BlitDevice> CreateDevice(const Monitor& monitor) = 0;    // null on failure

    DeviceMap& Devices() { return m_devices; }

    // The blitter of the process.
    static Blitter& Processor();
    // The number of pictures that the processor's backing has converted in this process.
    static uint64_t Conversions();

private:
    DeviceMap m_devices;
};

}    // namespace corvane
