// Determines which parts of a window are visible and reads them, on the event thread. Private to x11/.
//
// A round: from the window up to the root, the inside of each ancestor clips the window, and the siblings stacked above
// cover it; then the rest is read. Windows may move meanwhile, so the same is measured again after the reading, and the
// pixels count only when nothing has changed.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "base/Mutex.h"
#include "base/Rectangle.h"
#include "platform/Clock.h"
#include "platform/x11/WatchState.h"

namespace corvane {

class GrabJob final : public EventClient, public std::enable_shared_from_this<GrabJob> {
public:
    // Whole rows as the server sent them, each padded to 4 bytes.
    struct Band {
        Rect place;    // as all rectangles here, in coordinates of the inside of the window
        ReplyPtr<xcb_get_image_reply_t> pixels;
    };
    struct Result {
        bool read = false;      // false: the server refused, the windows kept moving, or the connection was lost
        bool hidden = false;    // not viewable: nothing was read, but the size is known
        WindowWatch::Size size;
        std::vector<Rect> visible;    // disjoint
        std::vector<Band> bands;      // together they cover `visible`
    };

    GrabJob(xcb_window_t window, PixelLayout layout) : m_window(window), m_layout(layout) {}

    // Waits for the result; false when the limit of `wait` passes first. Leave must follow.
    bool Wait(ThreadWait& wait, Result& result);

    void OnJoin(Connection& connection) override { Measure(connection); }
    void OnLost() noexcept override { Finish(false); }

private:
    struct Origin {
        int64_t x = 0;
        int64_t y = 0;
    };

    template <typename Reply, typename Cookie, typename Handler>
    void AskCounted(Connection& connection, Cookie cookie, Handler handler);
    void Measure(Connection& connection);
    void AskLevel(Connection& connection, xcb_window_t child, xcb_window_t parent);
    void OnParent(Connection& connection, xcb_window_t parent, xcb_window_t grandparent,
                  const xcb_get_geometry_reply_t& geometry);
    void AskCovers(Connection& connection, xcb_window_t child, const xcb_query_tree_reply_t& siblings);
    void AskCover(Connection& connection, xcb_window_t sibling, Origin parent);
    void OnAllAnswered(Connection& connection);
    void OnMeasured(Connection& connection);
    void Read(Connection& connection);
    void Finish(bool read) noexcept;

    const xcb_window_t m_window;
    const PixelLayout m_layout;

    // Only on the event thread.
    uint32_t m_round = 0;
    uint32_t m_open = 0;    // requests without an answer so far
    bool m_refused = false;
    bool m_hidden = false;
    bool m_reading = false;       // they read pixels
    bool m_coverShown = false;    // the last sibling asked for is mapped
    xcb_window_t m_above = 0;     // parent of the window whose tree was asked for last
    Origin m_parent;              // of the inside of the parent at the current level
    Rect m_bound;                 // the part of the window's inside that its ancestors and the screen leave
    std::vector<Rect> m_covers;
    WindowWatch::Size m_size;
    Result m_made;    // of the last reading

    Mutex m_lock;    // a leaf
    Condition m_finished;
    bool m_done GUARDED_BY(m_lock) = false;
    Result m_result GUARDED_BY(m_lock);
};

}    // namespace corvane
