#include "Window.h"

#include <poll.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "Reply.h"

namespace {

constexpr uint8_t kSynthetic = 0x80;    // bit of an event that another client sent
constexpr uint32_t kHand = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
                           XCB_EVENT_MASK_POINTER_MOTION;

}    // namespace

Box Box::Fitted(double shapeWidth, double shapeHeight) const {
    Box box = *this;
    if (shapeWidth <= 0 || shapeHeight <= 0)
        return box;
    const auto side = [](double length, uint32_t most) {
        return std::clamp(static_cast<uint32_t>(std::lround(length)), 1u, std::max(1u, most));
    };
    if (width * shapeHeight > height * shapeWidth)
        box.width = side(height * shapeWidth / shapeHeight, width);
    else
        box.height = side(width * shapeHeight / shapeWidth, height);
    box.x += static_cast<int32_t>((width - box.width) / 2);
    box.y += static_cast<int32_t>((height - box.height) / 2);
    return box;
}

std::unique_ptr<Window> Window::Open(const std::string& title, uint32_t width, uint32_t height, std::string& error) {
    std::unique_ptr<Window> window(new Window);
    return window->Connect(error) && window->Make(title, width, height, error) ? std::move(window) : nullptr;
}

std::unique_ptr<Window> Window::Follow(uint32_t id, std::string& error) {
    std::unique_ptr<Window> window(new Window);
    return window->Connect(error) && window->Take(id, error) ? std::move(window) : nullptr;
}

Window::~Window() {
    if (m_connection != nullptr)
        xcb_disconnect(m_connection);    // destroys a window of our own
}

bool Window::Connect(std::string& error) {
    int number = 0;
    m_connection = xcb_connect(nullptr, &number);
    if (xcb_connection_has_error(m_connection) != 0) {
        const char* const display = std::getenv("DISPLAY");
        error = display != nullptr && *display != 0 ? std::string("no X server answers at ") + display
                                                    : "DISPLAY is not set";
        error += "; --headless plays without a window";
        return false;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (; number > 0 && screens.rem > 1; --number)
        xcb_screen_next(&screens);
    m_screen = screens.data;
    return true;
}

uint32_t Window::Atom(const char* name) const {
    const auto cookie = xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::strlen(name)), name);
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(m_connection, cookie, nullptr));
    return reply ? reply->atom : uint32_t{XCB_ATOM_NONE};
}

void Window::SetProperty(uint32_t property, uint32_t type, uint8_t bits, uint32_t count, const void* value) {
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, m_id, property, type, bits, count, value);
}

bool Window::Make(const std::string& title, uint32_t width, uint32_t height, std::string& error) {
    const double fit = std::min({1.0, static_cast<double>(m_screen->width_in_pixels) / width,
                                 static_cast<double>(m_screen->height_in_pixels) / height});
    m_width = std::max(1u, static_cast<uint32_t>(std::lround(width * fit)));
    m_height = std::max(1u, static_cast<uint32_t>(std::lround(height * fit)));
    m_own = true;
    m_id = xcb_generate_id(m_connection);
    const uint32_t values[] = {m_screen->black_pixel, kHand | XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_id, m_screen->root, 0, 0, static_cast<uint16_t>(m_width),
                      static_cast<uint16_t>(m_height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    const auto length = static_cast<uint32_t>(title.size());
    SetProperty(XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, length, title.data());
    SetProperty(Atom("_NET_WM_NAME"), Atom("UTF8_STRING"), 8, length, title.data());
    constexpr char kClass[] = "corvane-play\0Corvane-play";    // instance and class, each with its zero
    SetProperty(XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8, sizeof(kClass), kClass);
    m_protocols = Atom("WM_PROTOCOLS");
    m_deleteWindow = Atom("WM_DELETE_WINDOW");
    SetProperty(m_protocols, XCB_ATOM_ATOM, 32, 1, &m_deleteWindow);
    m_keyboard.Read(m_connection);
    xcb_map_window(m_connection, m_id);
    if (xcb_flush(m_connection) <= 0)
        error = "the X server went away";
    return error.empty();
}

bool Window::Take(uint32_t id, std::string& error) {
    m_id = id;
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, id), nullptr));
    if (!geometry) {
        error = "there is no such window";
        return false;
    }
    m_width = geometry->width;
    m_height = geometry->height;
    const uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;    // its keys and buttons are its owner's
    xcb_change_window_attributes(m_connection, id, XCB_CW_EVENT_MASK, &events);
    xcb_flush(m_connection);
    return true;
}

void Window::ScreenPlace(int32_t& x, int32_t& y) const {
    const Reply<xcb_translate_coordinates_reply_t> place(xcb_translate_coordinates_reply(
        m_connection, xcb_translate_coordinates(m_connection, m_id, m_screen->root, 0, 0), nullptr));
    x = place ? place->dst_x : 0;
    y = place ? place->dst_y : 0;
}

// ---- Events --------------------------------------------------------------------------------------------------------

Window::Event Window::Next() {
    for (;;) {
        const Reply<xcb_generic_event_t> event(xcb_poll_for_event(m_connection));
        if (!event)
            return {xcb_connection_has_error(m_connection) != 0 ? Event::Kind::Lost : Event::Kind::None};
        if (const Event translated = Translate(event.get()); translated.kind != Event::Kind::None)
            return translated;
    }
}

Window::Event Window::Translate(const void* event) {
    using Kind = Event::Kind;
    constexpr uint16_t kShortcut = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;
    // The records of keys, buttons and motion are laid out alike.
    const auto* const hand = static_cast<const xcb_button_press_event_t*>(event);
    const auto pointer = [&](Kind kind, uint32_t key, uint32_t button) {
        return Event{kind, hand->event_x, hand->event_y, key, button, hand->time};
    };
    switch (hand->response_type & ~kSynthetic) {
    case XCB_KEY_PRESS: {
        const uint32_t key = (hand->state & kShortcut) == 0 ? m_keyboard.SymbolOf(hand->detail) : 0;
        return pointer(key != 0 ? Kind::Key : Kind::None, key, 0);
    }
    case XCB_BUTTON_PRESS:
        return pointer(Kind::Press, 0, hand->detail);
    case XCB_BUTTON_RELEASE:
        return pointer(Kind::Release, 0, hand->detail);
    case XCB_MOTION_NOTIFY:
        return pointer(Kind::Motion, 0, 0);
    case XCB_CONFIGURE_NOTIFY: {
        const auto* const change = static_cast<const xcb_configure_notify_event_t*>(event);
        m_width = change->width;
        m_height = change->height;
        return {Kind::Changed};
    }
    case XCB_CLIENT_MESSAGE: {
        const auto* const message = static_cast<const xcb_client_message_event_t*>(event);
        const bool close = message->type == m_protocols && message->data.data32[0] == m_deleteWindow;
        return {close ? Kind::Closed : Kind::None};
    }
    case XCB_DESTROY_NOTIFY:
        return {static_cast<const xcb_destroy_notify_event_t*>(event)->window == m_id ? Kind::Closed : Kind::None};
    case XCB_MAPPING_NOTIFY:
        m_keyboard.Read(m_connection);
        return {};
    default:
        return {};
    }
}

void Window::Wait(double seconds) const {
    xcb_flush(m_connection);
    pollfd wait{xcb_get_file_descriptor(m_connection), POLLIN, 0};
    const auto nanoseconds = static_cast<long>(std::max(0.0, seconds) * 1e9);
    const timespec limit{nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
    ppoll(&wait, 1, &limit, nullptr);
}

// ---- Windows inside -----------------------------------------------------------------------------------------------

uint32_t Window::MakeChild(uint32_t parent, uint32_t color) const {
    const uint32_t id = xcb_generate_id(m_connection);
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, id, parent, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL, &color);
    // Another connection draws into it: it must be there first.
    const Reply<xcb_get_geometry_reply_t> there(
        xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, id), nullptr));
    return there ? id : 0;
}

void Window::PlaceChild(uint32_t id, const Box& box) const {
    const uint32_t place[] = {static_cast<uint32_t>(box.x), static_cast<uint32_t>(box.y), std::max(1u, box.width),
                              std::max(1u, box.height)};
    xcb_configure_window(m_connection, id,
                         XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         place);
    xcb_flush(m_connection);
}

void Window::ShowChild(uint32_t id, bool shown) const {
    if (shown)
        xcb_map_window(m_connection, id);
    else
        xcb_unmap_window(m_connection, id);
    xcb_flush(m_connection);
}

// ---- Full screen ---------------------------------------------------------------------------------------------------

// A window manager of today leaves a window of its own named on the root.
bool Window::Managed() const {
    const auto cookie =
        xcb_get_property(m_connection, 0, m_screen->root, Atom("_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW, 0, 1);
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(m_connection, cookie, nullptr));
    return reply && xcb_get_property_value_length(reply.get()) == 4;
}

void Window::ToggleFullScreen() {
    if (!m_own)
        return;
    if (Managed())
        AskManager();
    else
        CoverScreen();
    xcb_flush(m_connection);
}

void Window::AskManager() {
    constexpr uint32_t kToggle = 2;
    constexpr uint32_t kApplication = 1;    // the source of the request
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = m_id;
    message.type = Atom("_NET_WM_STATE");
    message.data.data32[0] = kToggle;
    message.data.data32[1] = Atom("_NET_WM_STATE_FULLSCREEN");
    message.data.data32[3] = kApplication;
    xcb_send_event(m_connection, 0, m_screen->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
}

void Window::CoverScreen() {
    uint32_t place[4] = {0, 0, m_screen->width_in_pixels, m_screen->height_in_pixels};
    if (m_covers) {
        std::ranges::copy(m_before, place);
    } else {
        int32_t x = 0;
        int32_t y = 0;
        ScreenPlace(x, y);
        const uint32_t now[] = {static_cast<uint32_t>(x), static_cast<uint32_t>(y), m_width, m_height};
        std::ranges::copy(now, m_before);
    }
    m_covers = !m_covers;
    xcb_configure_window(m_connection, m_id,
                         XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         place);
}
