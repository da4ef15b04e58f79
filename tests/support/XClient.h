// A client of the X server that plays the host of the library: it makes, paints and reads windows.
#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/Rectangle.h"

namespace corvane::test {

// One thread. Every call waits until the server has done it. Errors of the server are ignored where a return value
// does not tell them.
class XClient {
public:
    explicit XClient(const std::string& display);    // raises std::runtime_error where there is no server
    ~XClient();                                      // its windows go with it
    XClient(const XClient&) = delete;
    XClient& operator=(const XClient&) = delete;

    struct Options {
        xcb_window_t parent = 0;    // 0: the root window
        int16_t x = 0;
        int16_t y = 0;
        uint16_t width = 100;
        uint16_t height = 80;
        uint16_t border = 0;
        uint8_t depth = 0;    // 0: as the root window; else the first visual of that depth, with its own colour map
        bool inputOnly = false;
        uint32_t background = 0;    // pixel
        bool mapped = true;
    };
    // Asks for no events. 0 where the server has no such visual.
    xcb_window_t Create(const Options& options);
    xcb_window_t Create() { return Create(Options()); }
    void Map(xcb_window_t window) { Sync(xcb_map_window(m_xcb, window)); }
    void Unmap(xcb_window_t window) { Sync(xcb_unmap_window(m_xcb, window)); }
    void Destroy(xcb_window_t window) { Sync(xcb_destroy_window(m_xcb, window)); }
    void Move(xcb_window_t window, int16_t x, int16_t y) {
        Configure(window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, {uint32_t(x), uint32_t(y)});
    }
    void Resize(xcb_window_t window, uint16_t width, uint16_t height) {
        Configure(window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, {width, height});
    }
    void Raise(xcb_window_t window) { Configure(window, XCB_CONFIG_WINDOW_STACK_MODE, {XCB_STACK_MODE_ABOVE}); }
    // Parent 0: the root window.
    void Reparent(xcb_window_t window, xcb_window_t parent, int16_t x, int16_t y) {
        Sync(xcb_reparent_window(m_xcb, window, parent != 0 ? parent : Root(), x, y));
    }
    void Fill(xcb_window_t window, const Rect& rect, uint32_t pixel);
    // Makes the server send exposures for the whole window.
    void Expose(xcb_window_t window) { Sync(xcb_clear_area(m_xcb, 1, window, 0, 0, 0, 0)); }

    // Pixels as the server has them, row by row; empty where it refuses.
    std::vector<uint32_t> Read(xcb_drawable_t window, const Rect& rect);
    // All resources of all other clients of the server, and how many such clients there are.
    uint32_t ForeignResources() { return CountForeign(true); }
    uint32_t ForeignClients() { return CountForeign(false); }
    // Splits the screen into monitors, left to right.
    void SetMonitors(const std::vector<Rect>& monitors);
    // Gives the server's only monitor a mode of its size with these timings: pixel clock in Hz, pixels of a whole line,
    // lines with the blank. False where the server refuses.
    bool SetMode(uint32_t clock, uint16_t lineTotal, uint16_t total);
    // Becomes the screen's compositor by name, or stops being it.
    void Composite(bool on);
    void Sync(xcb_void_cookie_t = {});    // until the server has done all

    xcb_window_t Root() const { return m_screen->root; }
    xcb_connection_t* Xcb() const { return m_xcb; }

private:
    xcb_visualid_t VisualOf(uint8_t depth) const;
    uint32_t CountForeign(bool resources);
    xcb_atom_t Atom(const std::string& name);
    void Configure(xcb_window_t window, uint16_t mask, const std::vector<uint32_t>& values) {
        Sync(xcb_configure_window(m_xcb, window, mask, values.data()));
    }

    xcb_connection_t* m_xcb;
    xcb_screen_t* m_screen;    // of the connection
};

}    // namespace corvane::test
