#include "platform/x11/GrabJob.h"

#include <algorithm>
#include <utility>

namespace corvane {

namespace {

constexpr size_t kReplyBytes = size_t{8} << 20;
constexpr uint32_t kMostRounds = 4;

Rect Outside(const xcb_get_geometry_reply_t& window) {
    const int64_t border = 2 * int64_t{window.border_width};
    return {window.x, window.y, window.x + window.width + border, window.y + window.height + border};
}

void Add(std::vector<Rect>& rects, const Rect& rect) {
    if (!rect.Empty())
        rects.push_back(rect);
}

// The part of `whole` that `covers` leave, in disjoint rectangles.
std::vector<Rect> Uncovered(const Rect& whole, const std::vector<Rect>& covers) {
    std::vector<Rect> left;
    Add(left, whole);
    for (const Rect& cover : covers) {
        std::vector<Rect> next;
        for (const Rect& part : left) {
            const Rect both = part.Intersected(cover);
            if (both.Empty()) {
                next.push_back(part);
                continue;
            }
            Add(next, {part.left, part.top, part.right, both.top});
            Add(next, {part.left, both.top, both.left, both.bottom});
            Add(next, {both.right, both.top, part.right, both.bottom});
            Add(next, {part.left, both.bottom, part.right, part.bottom});
        }
        left = std::move(next);
    }
    return left;
}

}    // namespace

bool GrabJob::Wait(ThreadWait& wait, Result& result) {
    MutexLock lock(m_lock);
    while (!m_done && wait.On(m_finished, lock)) {
    }
    if (!m_done)
        return false;
    result = std::move(m_result);
    return true;
}

void GrabJob::Finish(bool read) noexcept {
    MutexLock lock(m_lock);
    if (m_done)
        return;
    m_done = true;
    m_result = std::move(m_made);
    m_result.read = read;
    m_finished.NotifyAll();
}

template <typename Reply, typename Cookie, typename Handler>
void GrabJob::AskCounted(Connection& connection, Cookie cookie, Handler handler) {
    ++m_open;
    connection.Ask<Reply>(cookie, shared_from_this(), [this, &connection, handler](ReplyPtr<Reply> reply) {
        handler(std::move(reply));
        if (--m_open == 0)
            OnAllAnswered(connection);
    });
}

// ---- Measuring

void GrabJob::Measure(Connection& connection) {
    m_reading = false;
    m_refused = false;
    m_covers.clear();
    xcb_connection_t* xcb = connection.Xcb();
    AskCounted<xcb_get_window_attributes_reply_t>(
        connection, xcb_get_window_attributes(xcb, m_window), [this](ReplyPtr<xcb_get_window_attributes_reply_t> own) {
            m_refused |= own == nullptr;
            m_hidden = own != nullptr && own->map_state != XCB_MAP_STATE_VIEWABLE;
        });
    AskCounted<xcb_query_tree_reply_t>(connection, xcb_query_tree(xcb, m_window),
                                       [this](ReplyPtr<xcb_query_tree_reply_t> tree) {
                                           m_refused |= tree == nullptr;
                                           m_above = tree != nullptr ? tree->parent : 0;
                                       });
    AskCounted<xcb_get_geometry_reply_t>(
        connection, xcb_get_geometry(xcb, m_window), [this, &connection](ReplyPtr<xcb_get_geometry_reply_t> own) {
            m_refused |= own == nullptr;
            if (m_refused)
                return;
            m_size = {own->width, own->height};
            m_bound = {0, 0, own->width, own->height};
            m_parent = {-(int64_t{own->x} + own->border_width), -(int64_t{own->y} + own->border_width)};
            if (m_above != 0)    // 0: the window is the root
                AskLevel(connection, m_window, m_above);
        });
}

void GrabJob::AskLevel(Connection& connection, xcb_window_t child, xcb_window_t parent) {
    xcb_connection_t* xcb = connection.Xcb();
    AskCounted<xcb_query_tree_reply_t>(connection, xcb_query_tree(xcb, parent),
                                       [this, &connection, child](ReplyPtr<xcb_query_tree_reply_t> tree) {
                                           m_refused |= tree == nullptr;
                                           if (tree == nullptr)
                                               return;
                                           m_above = tree->parent;
                                           AskCovers(connection, child, *tree);
                                       });
    AskCounted<xcb_get_geometry_reply_t>(connection, xcb_get_geometry(xcb, parent),
                                         [this, &connection, parent](ReplyPtr<xcb_get_geometry_reply_t> geometry) {
                                             m_refused |= geometry == nullptr;
                                             if (!m_refused)
                                                 OnParent(connection, parent, m_above, *geometry);
                                         });
}

void GrabJob::OnParent(Connection& connection, xcb_window_t parent, xcb_window_t grandparent,
                       const xcb_get_geometry_reply_t& geometry) {
    m_bound = m_bound.Intersected(Rect{0, 0, geometry.width, geometry.height}.Moved(m_parent.x, m_parent.y));
    if (grandparent == 0)
        return;    // the root has no siblings
    m_parent.x -= int64_t{geometry.x} + geometry.border_width;
    m_parent.y -= int64_t{geometry.y} + geometry.border_width;
    AskLevel(connection, parent, grandparent);
}

void GrabJob::AskCovers(Connection& connection, xcb_window_t child, const xcb_query_tree_reply_t& siblings) {
    const xcb_window_t* first = xcb_query_tree_children(&siblings);
    const xcb_window_t* end = first + xcb_query_tree_children_length(&siblings);
    const xcb_window_t* own = std::find(first, end, child);    // in the order from bottom to top
    m_refused |= own == end;                                   // the window was reparented meanwhile
    for (const xcb_window_t* sibling = own; !m_refused && ++sibling != end;)
        AskCover(connection, *sibling, m_parent);
}

// A sibling that no longer exists covers nothing.
void GrabJob::AskCover(Connection& connection, xcb_window_t sibling, Origin parent) {
    xcb_connection_t* xcb = connection.Xcb();
    AskCounted<xcb_get_window_attributes_reply_t>(
        connection, xcb_get_window_attributes(xcb, sibling),
        [this](ReplyPtr<xcb_get_window_attributes_reply_t> attributes) {
            m_coverShown = attributes != nullptr && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
                           attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT;
        });
    AskCounted<xcb_get_geometry_reply_t>(connection, xcb_get_geometry(xcb, sibling),
                                         [this, parent](ReplyPtr<xcb_get_geometry_reply_t> geometry) {
                                             if (m_coverShown && geometry != nullptr)
                                                 m_covers.push_back(Outside(*geometry).Moved(parent.x, parent.y));
                                         });
}

// ---- Reading

void GrabJob::OnAllAnswered(Connection& connection) {
    if (!m_reading && !m_refused) {
        OnMeasured(connection);
        return;
    }
    if (m_refused && ++m_round >= kMostRounds)
        Finish(false);
    else
        Measure(connection);
}

void GrabJob::OnMeasured(Connection& connection) {
    if (m_hidden) {
        m_made = {false, true, m_size, {}, {}};
        Finish(false);
        return;
    }
    std::vector<Rect> visible = Uncovered(m_bound, m_covers);
    const bool stoodStill = m_made.read && m_made.size == m_size && m_made.visible == visible;
    if (stoodStill || (m_made.read && ++m_round >= kMostRounds)) {
        Finish(stoodStill);
        return;
    }
    m_made = {true, false, m_size, std::move(visible), {}};
    Read(connection);
}

void GrabJob::Read(Connection& connection) {
    Rect box;
    for (const Rect& part : m_made.visible)
        box = box.Empty() ? part
                          : Rect{std::min(box.left, part.left), std::min(box.top, part.top),
                                 std::max(box.right, part.right), std::max(box.bottom, part.bottom)};
    if (box.Empty()) {
        Finish(true);
        return;
    }
    m_reading = true;
    const size_t rowBytes = static_cast<size_t>(box.Width()) * BytesPerPixel(m_layout);
    const int64_t rows = static_cast<int64_t>(std::max<size_t>(1, kReplyBytes / rowBytes));
    for (int64_t top = box.top; top < box.bottom; top += rows) {
        const Rect band{box.left, top, box.right, std::min(top + rows, box.bottom)};
        AskCounted<xcb_get_image_reply_t>(
            connection,
            xcb_get_image(connection.Xcb(), XCB_IMAGE_FORMAT_Z_PIXMAP, m_window, static_cast<int16_t>(band.left),
                          static_cast<int16_t>(band.top), static_cast<uint16_t>(band.Width()),
                          static_cast<uint16_t>(band.Height()), ~0u),
            [this, band](ReplyPtr<xcb_get_image_reply_t> pixels) {
                m_refused |= pixels == nullptr;
                m_made.read &= pixels != nullptr;
                m_made.bands.push_back({band, std::move(pixels)});
            });
    }
}

}    // namespace corvane
