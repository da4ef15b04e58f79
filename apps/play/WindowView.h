// What the player does with its window: keys, the layout that they choose, the end.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Options.h"
#include "Window.h"
#include "corvane/corvane.h"

class WindowView {
public:
    enum class State { Playing, Paused, Ended, Lost };

    // Opens the window, or follows the one of the options, for a stream of that size. Null with the reason in `error`.
    static std::unique_ptr<WindowView> Open(const Options& options, uint32_t width, uint32_t height,
                                            std::string& error);

    const Window& TheWindow() const { return *m_window; }
    // What the channel is made with: its window and its text.
    void Prepare(ChannelSettings& settings);
    // The channel that shows in the window; it outlives the view's use.
    void SetChannel(void* channel) { m_channel = channel; }

    // Does what has come since, and tells where that leads. Lost and Ended stay.
    State Attend();
    // Sleeps until there is something to attend to, or at most `seconds`.
    void Wait(double seconds) const { m_window->Wait(seconds); }

    bool ScreenshotWanted() const { return m_screenshotWanted; }
    void ScreenshotTaken() { m_screenshotWanted = false; }

private:
    WindowView() = default;
    static void OnOsd(void* context, OsdInfo* info);    // on the render thread
    void Press(uint32_t key);
    void ToggleMargins();
    void SendArea();

    std::unique_ptr<Window> m_window;
    void* m_channel = nullptr;
    State m_state = State::Playing;
    std::atomic<bool> m_margins{false};
    bool m_zoom = false;
    bool m_overview = false;
    bool m_screenshotWanted = false;
};
