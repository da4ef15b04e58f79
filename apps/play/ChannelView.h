// How one channel shows in its window: zoom, overview, margins, deinterlacing, kind of scaling. What changes something
// tells it in a few words for the status line, empty when nothing did.
#pragma once

#include <atomic>
#include <string>

#include "Window.h"
#include "ZoomView.h"
#include "corvane/corvane.h"

class ChannelView {
public:
    // `id`: the channel's own window, which is `window` or lies inside it.
    ChannelView(const Window& window, uint32_t id) : m_window(window), m_id(id) {}

    uint32_t Id() const { return m_id; }
    const Box& Place() const { return m_place; }

    // What the channel is made with: its window and its text.
    void Prepare(ChannelSettings& settings);
    void SetChannel(void* channel) { m_channel = channel; }
    void* Channel() const { return m_channel; }
    // Where its window lies in the player's now.
    void SetPlace(const Box& place) { m_place = place; }
    // The player's window moved or changed its size.
    void Moved();

    // Places are in the player's window.
    std::string Zoom(int32_t x1, int32_t y1, int32_t x2, int32_t y2);
    std::string ZoomAt(int32_t x, int32_t y, double factor);
    std::string ZoomBack();
    std::string ZoomReset();
    std::string ToggleMiddle();    // between the middle and the whole picture
    std::string ToggleOverview();
    std::string ToggleMargins();
    std::string ToggleDeinterlace();
    std::string NextScaling();

    bool Deinterlaces() const { return m_deinterlace; }

private:
    static void OnOsd(void* context, OsdInfo* info);    // on the render thread
    double ShareX(int32_t x) const;
    double ShareY(int32_t y) const;
    std::string Zoomed(bool changed);
    void SendArea();

    const Window& m_window;
    const uint32_t m_id;
    void* m_channel = nullptr;
    Box m_place;
    ZoomView m_zoom;
    std::atomic<bool> m_margins{false};
    std::atomic<bool> m_deinterlace{false};
    bool m_overview = false;
    uint32_t m_scaling = 0;
};
