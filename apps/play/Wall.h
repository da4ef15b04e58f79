// One window with the views of one or several channels, and their control: keys and the mouse act on the channel under
// the pointer. One channel fills the window; several have windows of their own inside it, in a grid.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ChannelView.h"
#include "Options.h"
#include "RubberBand.h"
#include "Window.h"

class Wall {
public:
    enum class State { Playing, Paused, Ended, Lost };

    // Opens the window, or follows the one of the options, for channels of that picture size, whose pixels are
    // `pixelAspect` times as wide as high. Null with the reason in `error`.
    static std::unique_ptr<Wall> Open(const Options& options, uint32_t width, uint32_t height, double pixelAspect,
                                      std::string& error);

    const Window& TheWindow() const { return *m_window; }
    size_t Count() const { return m_views.size(); }
    ChannelView& View(size_t index) { return *m_views[index]; }

    // Handles the events since the last call and returns the state that they lead to. Lost and Ended are final.
    State Attend();
    // Sleeps until there are events, or at most `seconds`.
    void Wait(double seconds) const { m_window->Wait(seconds); }

    // The requests of the user since the last call, each reported once.
    std::string TakeNotice() { return std::exchange(m_notice, {}); }
    bool TakeScreenshotWish() { return std::exchange(m_screenshotWanted, false); }
    ChannelView* TakeStillWish() { return std::exchange(m_stillWanted, nullptr); }

private:
    Wall() = default;
    void LayOut();
    size_t Under(int32_t x, int32_t y) const;
    void Press(uint32_t key, size_t index);
    void PressButton(const Window::Event& event);
    void Drag(const Window::Event& event);
    void Release(const Window::Event& event);
    void Say(size_t index, const std::string& what);
    void ToggleAlone(size_t index);
    void KeysGoTo(size_t index);
    void MarkKeys();

    std::unique_ptr<Window> m_window;
    std::vector<std::unique_ptr<ChannelView>> m_views;
    State m_state = State::Playing;
    std::string m_notice;
    bool m_screenshotWanted = false;
    ChannelView* m_stillWanted = nullptr;
    size_t m_alone = SIZE_MAX;    // the one that is shown alone
    size_t m_keys = 0;            // the one that keys act on
    RubberBand m_mark{0x50B0FF};

    // The left button, from its press to its release.
    RubberBand m_band{0xFFD040};
    size_t m_dragged = SIZE_MAX;    // the view that it went down in
    Window::Event m_down;
    Window::Event m_clicked;    // the click before
};
