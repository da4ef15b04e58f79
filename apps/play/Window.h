// The player's window: its own, or that of another program, which it follows; and windows inside it. Its own connection
// to the X server, used on one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Keyboard.h"

struct xcb_connection_t;
struct xcb_screen_t;

// Place and size inside a window, pixels.
struct Box {
    int32_t x = 0, y = 0;
    uint32_t width = 0, height = 0;

    bool operator==(const Box&) const = default;
    // The largest box of those proportions in the middle of this one.
    Box Fitted(double shapeWidth, double shapeHeight) const;
    bool Has(int32_t px, int32_t py) const {
        return px >= x && py >= y && px - x < static_cast<int32_t>(width) && py - y < static_cast<int32_t>(height);
    }
};

class Window {
public:
    struct Event {
        enum class Kind {
            None,     // nothing more waits
            Key,      // `key`
            Press,    // `button`: 1 left, 2 middle, 3 right, 4 and 5 the wheel forward and back
            Release,
            Motion,
            Changed,    // size or place of the window
            Closed,     // by the user, or destroyed
            Lost,       // the server is gone
        };
        Kind kind = Kind::None;
        int32_t x = 0, y = 0;    // of the pointer in the window
        uint32_t key = 0;        // X11 keysym without modifiers, as on the key
        uint32_t button = 0;
        uint32_t timeMs = 0;    // of the server
    };

    // Both: null with the reason in `error`. A new window is as large as the screen at most, with the shape of
    // `width` x `height`.
    static std::unique_ptr<Window> Open(const std::string& title, uint32_t width, uint32_t height, std::string& error);
    static std::unique_ptr<Window> Follow(uint32_t id, std::string& error);
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    uint32_t Id() const { return m_id; }
    uint32_t Width() const { return m_width; }    // inside, pixels
    uint32_t Height() const { return m_height; }
    // The inside's left upper corner on the screen; waits for the server.
    void ScreenPlace(int32_t& x, int32_t& y) const;

    // The next event that is here already. Those inside windows inside this one come as this one's.
    Event Next();
    // Sleeps until something may have come, a signal, or at most `seconds`.
    void Wait(double seconds) const;

    // Windows inside: not shown at first, gone with this one.
    uint32_t MakeChild(uint32_t parent, uint32_t color) const;
    void PlaceChild(uint32_t id, const Box& box) const;
    void ShowChild(uint32_t id, bool shown) const;

    // By the window manager, or where there is none by covering the screen. Only a window of our own.
    void ToggleFullScreen();

private:
    Window() = default;
    bool Connect(std::string& error);
    bool Make(const std::string& title, uint32_t width, uint32_t height, std::string& error);
    bool Take(uint32_t id, std::string& error);
    uint32_t Atom(const char* name) const;
    void SetProperty(uint32_t property, uint32_t type, uint8_t bits, uint32_t count, const void* value);
    bool Managed() const;
    void AskManager();
    void CoverScreen();
    Event Translate(const void* event);

    xcb_connection_t* m_connection = nullptr;
    xcb_screen_t* m_screen = nullptr;
    uint32_t m_id = 0;
    bool m_own = false;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_protocols = 0;    // atoms
    uint32_t m_deleteWindow = 0;
    Keyboard m_keyboard;
    bool m_covers = false;        // the screen, without a window manager
    uint32_t m_before[4] = {};    // x, y, width, height from before
};
