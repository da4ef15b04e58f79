#include "platform/x11/VblankWatch.h"

#include <algorithm>
#include <string>

namespace corvane {

namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kSeldom = 30 * kSecond;
constexpr int64_t kForgotten = 5 * kSecond;    // an older measurement may have drifted too far

// The clock of the times that a server on this machine gives vertical blanks.
int64_t Now() {
    return Clock::System().Now();
}

}    // namespace

std::optional<Beam> VblankWatch::Of(xcb_window_t root, const Rect& place, bool* stale) {
    const int64_t now = Now();
    MutexLock lock(m_lock);
    const int64_t due = m_looks < 2 || !m_told.empty() ? kSecond : kSeldom;
    *stale = (m_looks == 0 || now - m_looked >= due) && !m_wanted.exchange(true);
    if (now - m_looked >= kForgotten)
        return std::nullopt;
    for (const Told& told : m_told)
        if (told.root == root && told.place.Contains(place) && told.place.top == place.top)
            return told.beam;
    return std::nullopt;
}

void VblankWatch::OnModesChanged() {
    MutexLock lock(m_lock);
    m_looks = 0;
}

void VblankWatch::OnJoin(Connection& connection) {
    xcb_connection_t* const xcb = connection.Xcb();
    connection.Ask<xcb_present_query_version_reply_t>(
        xcb_present_query_version(xcb, XCB_PRESENT_MAJOR_VERSION, XCB_PRESENT_MINOR_VERSION), shared_from_this(),
        [](const ReplyPtr<xcb_present_query_version_reply_t>&) {});
    int number = 0;
    for (xcb_screen_iterator_t i = xcb_setup_roots_iterator(xcb_get_setup(xcb)); i.rem > 0; xcb_screen_next(&i)) {
        const xcb_window_t root = i.data->root;
        m_screens.push_back({.root = root});
        const std::string name = "_NET_WM_CM_S" + std::to_string(number++);
        connection.Ask<xcb_intern_atom_reply_t>(
            xcb_intern_atom(xcb, 0, static_cast<uint16_t>(name.size()), name.data()), shared_from_this(),
            [this, &connection, place = m_screens.size() - 1](const ReplyPtr<xcb_intern_atom_reply_t>& reply) {
                m_screens[place].compositor = reply != nullptr ? reply->atom : 0;
                m_wanted = true;
                Look(connection);
            });
    }
}

void VblankWatch::OnTurn(Connection& connection) {
    if (m_wanted.load())
        Look(connection);
}

void VblankWatch::OnLost() noexcept {
    MutexLock lock(m_lock);
    m_told.clear();
}

// ---- A look: compositors, modes, then a vertical blank of each monitor

void VblankWatch::Look(Connection& connection) {
    if (std::ranges::any_of(m_screens, [](const Screen& screen) { return screen.compositor == 0; }))
        return;    // the names of the selections have not arrived yet
    {
        MutexLock lock(m_lock);
        m_wanted = false;
        m_looked = Now();
        ++m_looks;
    }
    xcb_connection_t* const xcb = connection.Xcb();
    for (size_t i = 0; i < m_screens.size(); ++i) {
        const xcb_window_t root = m_screens[i].root;
        connection.Ask<xcb_get_selection_owner_reply_t>(
            xcb_get_selection_owner(xcb, m_screens[i].compositor), shared_from_this(),
            [this, i](const ReplyPtr<xcb_get_selection_owner_reply_t>& reply) {
                m_screens[i].composited = reply == nullptr || reply->owner != XCB_NONE;
            });
        connection.Ask<xcb_randr_get_screen_resources_current_reply_t>(
            xcb_randr_get_screen_resources_current(xcb, root), shared_from_this(),
            [this, &connection, root](const ReplyPtr<xcb_randr_get_screen_resources_current_reply_t>& reply) {
                if (reply != nullptr)
                    OnResources(connection, root, *reply);
            });
    }
}

void VblankWatch::OnResources(Connection& connection, xcb_window_t root,
                              const xcb_randr_get_screen_resources_current_reply_t& resources) {
    const xcb_randr_mode_info_t* const firstMode = xcb_randr_get_screen_resources_current_modes(&resources);
    const std::vector<xcb_randr_mode_info_t> modes(firstMode, firstMode + resources.num_modes);
    const xcb_randr_crtc_t* const first = xcb_randr_get_screen_resources_current_crtcs(&resources);
    const std::vector<xcb_randr_crtc_t> ids(first, first + resources.num_crtcs);
    std::erase_if(m_crtcs, [&](Crtc& known) {
        const bool gone = known.root == root && std::ranges::find(ids, known.id) == ids.end();
        if (gone)
            DropProbe(connection, known);
        return gone;
    });
    for (const xcb_randr_crtc_t id : ids)
        connection.Ask<xcb_randr_get_crtc_info_reply_t>(
            xcb_randr_get_crtc_info(connection.Xcb(), id, resources.config_timestamp), shared_from_this(),
            [this, &connection, root, id, modes](const ReplyPtr<xcb_randr_get_crtc_info_reply_t>& reply) {
                if (reply != nullptr)
                    OnCrtc(connection, root, id, *reply, modes);
            });
}

void VblankWatch::OnCrtc(Connection& connection, xcb_window_t root, xcb_randr_crtc_t id,
                         const xcb_randr_get_crtc_info_reply_t& info, const std::vector<xcb_randr_mode_info_t>& modes) {
    auto crtc = std::ranges::find_if(m_crtcs, [id](const Crtc& known) { return known.id == id; });
    if (crtc == m_crtcs.end())
        crtc = m_crtcs.insert(crtc, {.id = id, .root = root, .place = {}, .measure = {}});
    const Rect place{info.x, info.y, int64_t{info.x} + info.width, int64_t{info.y} + info.height};
    if (crtc->place != place)
        DropProbe(connection, *crtc);
    crtc->place = place;
    const auto mode = std::ranges::find_if(modes, [&](const auto& known) { return known.id == info.mode; });
    // Interlaced and doubled modes do not send the lines in order, and a rotated monitor does not begin at the top.
    constexpr uint32_t kUnusual = XCB_RANDR_MODE_FLAG_INTERLACE | XCB_RANDR_MODE_FLAG_DOUBLE_SCAN;
    if (mode == modes.end() || (mode->mode_flags & kUnusual) != 0 || info.rotation != XCB_RANDR_ROTATION_ROTATE_0 ||
        mode->height != info.height)
        crtc->measure = {};
    else
        crtc->measure.SetMode(mode->dot_clock, mode->htotal, mode->height, mode->vtotal);
    if (crtc->measure.Real())
        AskBlank(connection, *crtc);
    else
        DropProbe(connection, *crtc);
    Publish();
}

void VblankWatch::AskBlank(Connection& connection, Crtc& crtc) {
    xcb_connection_t* const xcb = connection.Xcb();
    if (crtc.probe == 0) {
        crtc.probe = xcb_generate_id(xcb);
        const uint32_t redirect = 1;
        xcb_create_window(xcb, 0, crtc.probe, crtc.root, static_cast<int16_t>(crtc.place.left),
                          static_cast<int16_t>(crtc.place.top), static_cast<uint16_t>(crtc.place.Width()),
                          static_cast<uint16_t>(crtc.place.Height()), 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                          XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT, &redirect);
        xcb_present_select_input(xcb, xcb_generate_id(xcb), crtc.probe, XCB_PRESENT_EVENT_MASK_COMPLETE_NOTIFY);
    }
    constexpr uint64_t kEvery = 1;    // the next one, whatever its number
    xcb_present_notify_msc(xcb, crtc.probe, 0, 0, kEvery, 0);
}

void VblankWatch::DropProbe(Connection& connection, Crtc& crtc) {
    if (crtc.probe != 0)
        xcb_destroy_window(connection.Xcb(), crtc.probe);
    crtc.probe = 0;
}

void VblankWatch::OnEvent(Connection& connection, const xcb_generic_event_t& event) {
    if ((event.response_type & 0x7F) != XCB_GE_GENERIC)
        return;
    const auto& notice = reinterpret_cast<const xcb_present_complete_notify_event_t&>(event);
    if (notice.extension != connection.Server().presentOpcode || notice.event_type != XCB_PRESENT_COMPLETE_NOTIFY ||
        notice.kind != XCB_PRESENT_COMPLETE_KIND_NOTIFY_MSC)
        return;
    for (Crtc& crtc : m_crtcs)
        if (crtc.probe != 0 && crtc.probe == notice.window)
            crtc.measure.Add(notice.msc, static_cast<int64_t>(notice.ust) * 1000, Now());
    Publish();
}

void VblankWatch::Publish() {
    std::vector<Told> told;
    for (const Crtc& crtc : m_crtcs) {
        const auto screen = std::ranges::find_if(m_screens, [&](const Screen& s) { return s.root == crtc.root; });
        if (crtc.measure.Measured().period > 0 && screen != m_screens.end() && !screen->composited)
            told.push_back({crtc.root, crtc.place, crtc.measure.Measured()});
    }
    MutexLock lock(m_lock);
    m_told.swap(told);
}

}    // namespace corvane
