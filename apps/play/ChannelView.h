// The view of one channel in its window: zoom, overview, margins, deinterlacing, kind of scaling. Functions that change
// the view return a few words on the change for the status line, empty where nothing changed.
#pragma once

#include <atomic>
#include <string>

#include "RubberBand.h"
#include "Window.h"
#include "ZoomView.h"
#include "corvane/corvane.h"

class ChannelView {
public:
    // `id`: the channel's own window, which is `window` or lies inside it. `fill`: the picture fills it.
    ChannelView(const Window& window, uint32_t id, bool fill) : m_window(window), m_id(id), m_fill(fill) {}

    uint32_t Id() const { return m_id; }
    const Box& Place() const { return m_place; }

    // Adds the window and the text callback to the settings of the channel.
    void Prepare(ChannelSettings& settings);
    void SetChannel(void* channel);
    void* Channel() const { return m_channel; }
    // Where its window lies in the player's now.
    void SetPlace(const Box& place);
    // The proportions that the picture keeps. Nothing where a side is 0.
    void SetShape(double width, double height);
    bool Fills() const { return m_fill; }
    double ShapeWidth() const { return m_shapeWidth; }
    double ShapeHeight() const { return m_shapeHeight; }
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
    std::string ToggleFill();
    std::string ToggleDeinterlace();
    std::string NextScaling();
    std::string ToggleSound();
    std::string Louder() { return ChangeVolume(10); }
    std::string Softer() { return ChangeVolume(-10); }

private:
    static void OnOsd(void* context, OsdInfo* info);    // on the render thread
    double ShareX(int32_t x) const;
    double ShareY(int32_t y) const;
    std::string Zoomed(bool changed);
    std::string ChangeVolume(int percent);
    std::string SendSound();
    void SendArea();
    void SendMargins();
    void ShowFrames(const Box& overview);

    const Window& m_window;
    const uint32_t m_id;
    void* m_channel = nullptr;
    Box m_place;
    Box m_picture;    // where the picture lies in its own window
    double m_shapeWidth = 0;
    double m_shapeHeight = 0;
    bool m_fill;
    ZoomView m_zoom;
    std::atomic<bool> m_margins{false};
    bool m_deinterlace = false;
    bool m_overview = false;
    bool m_heard = true;
    int m_volume = 100;        // percent
    uint32_t m_scaling = 1;    // clean at every size; the nearest sample drops lines
    RubberBand m_overviewFrame{0xA0A0A0};
    RubberBand m_partFrame{0xFFD040};    // the selected part, in the overview
};
