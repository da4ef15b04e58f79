// A surface that the worker writes pictures into: locked while it is written, unlocked while it is shown. Used by the
// thread that owns the buffer at that time.
#pragma once

#include <cstdint>
#include <memory>

#include "render/MonitorView.h"

namespace corvane {

class VideoSurface {
public:
    // Locked; null where the device has no such surface, or it cannot be locked. May raise std::bad_alloc.
    static std::unique_ptr<VideoSurface> Make(std::shared_ptr<MonitorView> view, uint32_t width, uint32_t height,
                                              uint32_t fourCC);
    ~VideoSurface() { Unlock(); }
    VideoSurface(const VideoSurface&) = delete;
    VideoSurface& operator=(const VideoSurface&) = delete;

    bool Is(uint32_t width, uint32_t height, uint32_t fourCC) const {
        return m_width == width && m_height == height && m_fourCC == fourCC;
    }
    uint32_t Width() const { return m_width; }
    uint32_t Height() const { return m_height; }
    uint32_t FourCC() const { return m_fourCC; }

    bool Lock();    // restores a lost surface; false on failure
    void Unlock();
    bool Locked() const { return m_locked; }
    uint8_t* Data() const { return m_data; }      // while locked
    uint32_t Pitch() const { return m_pitch; }    // bytes
    BlitSurface& Surface() const { return *m_surface; }

private:
    VideoSurface(std::shared_ptr<MonitorView> view, std::unique_ptr<BlitSurface> surface, uint32_t width,
                 uint32_t height, uint32_t fourCC)
        : m_view(std::move(view)), m_surface(std::move(surface)), m_width(width), m_height(height), m_fourCC(fourCC) {}

    const std::shared_ptr<MonitorView> m_view;    // keeps the device, which outlives the surface
    const std::unique_ptr<BlitSurface> m_surface;
    const uint32_t m_width;
    const uint32_t m_height;
    const uint32_t m_fourCC;
    bool m_locked = false;
    uint8_t* m_data = nullptr;
    uint32_t m_pitch = 0;
};

}    // namespace corvane
