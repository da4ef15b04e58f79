// The player's window: one that it opens, or somebody else's that it follows. Its own connection to the X server, used
// on one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct xcb_connection_t;
struct xcb_screen_t;

class Window {
public:
    enum class Event {
        None,       // nothing more waits
        Key,        // see LastKey
        Changed,    // its size or its place
        Closed,     // by the user, or destroyed
        Lost,       // the server is gone
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

    // The next event that is here already.
    Event Next();
    // The X11 keysym without modifiers, as on the key.
    uint32_t LastKey() const { return m_key; }
    // Sleeps until something may have come, a signal, or at most `seconds`.
    void Wait(double seconds) const;

    // By the window manager, or where there is none by covering the screen. Only a window of our own.
    void ToggleFullScreen();

private:
    Window() = default;
    bool Connect(std::string& error);
    bool Make(const std::string& title, uint32_t width, uint32_t height, std::string& error);
    bool Take(uint32_t id, std::string& error);
    uint32_t Atom(const char* name) const;
    void SetProperty(uint32_t property, uint32_t type, uint8_t bits, uint32_t count, const void* value);
    void ReadKeyboard();
    uint32_t KeyOf(uint8_t code) const;
    bool Managed() const;
    Event Translate(const void* event);

    xcb_connection_t* m_connection = nullptr;
    xcb_screen_t* m_screen = nullptr;
    uint32_t m_id = 0;
    bool m_own = false;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_key = 0;
    uint32_t m_protocols = 0;    // atoms
    uint32_t m_deleteWindow = 0;
    std::vector<uint32_t> m_keysyms;    // m_keysymsPerCode for each code from m_firstCode on
    uint32_t m_keysymsPerCode = 0;
    uint32_t m_firstCode = 0;
    bool m_covers = false;        // the screen, without a window manager
    uint32_t m_before[4] = {};    // x, y, width, height from before
};
