#include "support/XClient.h"

#include <xcb/randr.h>
#include <xcb/res.h>
#include <xcb/xcbext.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace corvane::test {

namespace {

struct Freer {
    void operator()(void* reply) const { std::free(reply); }
};

// What the server answers; null after an error.
template <typename Reply, typename Cookie>
std::unique_ptr<Reply, Freer> Answer(xcb_connection_t* xcb,
                                     Reply* (*take)(xcb_connection_t*, Cookie, xcb_generic_error_t**), Cookie cookie) {
    return std::unique_ptr<Reply, Freer>(take(xcb, cookie, nullptr));
}

auto ScreenResources(xcb_connection_t* xcb, xcb_window_t root) {
    return Answer(xcb, &xcb_randr_get_screen_resources_current_reply,
                  xcb_randr_get_screen_resources_current(xcb, root));
}

}    // namespace

XClient::XClient(const std::string& display) : m_xcb(xcb_connect(display.c_str(), nullptr)) {
    if (xcb_connection_has_error(m_xcb) != 0)
        throw std::runtime_error("no X server");
    m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_xcb)).data;
}

XClient::~XClient() {
    xcb_disconnect(m_xcb);
}

void XClient::Sync(xcb_void_cookie_t) {
    Answer(m_xcb, &xcb_get_input_focus_reply, xcb_get_input_focus(m_xcb));
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_xcb))
        std::free(event);    // errors
}

xcb_atom_t XClient::Atom(const std::string& name) {
    const auto length = static_cast<uint16_t>(name.size());
    return Answer(m_xcb, &xcb_intern_atom_reply, xcb_intern_atom(m_xcb, 0, length, name.c_str()))->atom;
}

xcb_visualid_t XClient::VisualOf(uint8_t depth) const {
    for (xcb_depth_iterator_t i = xcb_screen_allowed_depths_iterator(m_screen); i.rem > 0; xcb_depth_next(&i))
        if (i.data->depth == depth && i.data->visuals_len > 0)
            return depth == m_screen->root_depth ? m_screen->root_visual : xcb_depth_visuals(i.data)[0].visual_id;
    return 0;
}

xcb_window_t XClient::Create(const Options& options) {
    const uint8_t depth = options.depth != 0 ? options.depth : m_screen->root_depth;
    const xcb_visualid_t visual = VisualOf(depth);
    if (visual == 0)
        return 0;
    xcb_colormap_t colormap = m_screen->default_colormap;
    if (visual != m_screen->root_visual) {
        colormap = xcb_generate_id(m_xcb);
        xcb_create_colormap(m_xcb, XCB_COLORMAP_ALLOC_NONE, colormap, m_screen->root, visual);
    }
    const xcb_window_t window = xcb_generate_id(m_xcb);
    const uint32_t values[] = {options.background, 0, colormap};
    xcb_create_window(m_xcb, options.inputOnly ? 0 : depth, window,
                      options.parent != 0 ? options.parent : m_screen->root, options.x, options.y, options.width,
                      options.height, options.border,
                      options.inputOnly ? XCB_WINDOW_CLASS_INPUT_ONLY : XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                      options.inputOnly ? 0 : XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_COLORMAP, values);
    if (options.mapped)
        xcb_map_window(m_xcb, window);
    Sync();
    return window;
}

void XClient::Fill(xcb_window_t window, const Rect& rect, uint32_t pixel) {
    const xcb_gcontext_t context = xcb_generate_id(m_xcb);
    xcb_create_gc(m_xcb, context, window, XCB_GC_FOREGROUND, &pixel);
    const xcb_rectangle_t area{static_cast<int16_t>(rect.left), static_cast<int16_t>(rect.top),
                               static_cast<uint16_t>(rect.Width()), static_cast<uint16_t>(rect.Height())};
    xcb_poly_fill_rectangle(m_xcb, window, context, 1, &area);
    xcb_free_gc(m_xcb, context);
    Sync();
}

std::vector<uint32_t> XClient::Read(xcb_drawable_t window, const Rect& rect) {
    const auto reply = Answer(m_xcb, &xcb_get_image_reply,
                              xcb_get_image(m_xcb, XCB_IMAGE_FORMAT_Z_PIXMAP, window, static_cast<int16_t>(rect.left),
                                            static_cast<int16_t>(rect.top), static_cast<uint16_t>(rect.Width()),
                                            static_cast<uint16_t>(rect.Height()), ~0u));
    std::vector<uint32_t> pixels;
    if (reply == nullptr)
        return pixels;
    const size_t bytes = reply->depth == 16 ? 2 : 4;
    const size_t rowBytes = (static_cast<size_t>(rect.Width()) * bytes + 3) & ~size_t{3};
    const uint8_t* data = xcb_get_image_data(reply.get());
    for (size_t y = 0; y < static_cast<size_t>(rect.Height()); ++y)
        for (size_t x = 0; x < static_cast<size_t>(rect.Width()); ++x)
            std::memcpy(&pixels.emplace_back(), data + y * rowBytes + x * bytes, bytes);
    return pixels;
}

uint32_t XClient::CountForeign(bool resources) {
    const auto clients = Answer(m_xcb, &xcb_res_query_clients_reply, xcb_res_query_clients(m_xcb));
    uint32_t count = 0;
    const uint32_t own = xcb_get_setup(m_xcb)->resource_id_base;
    for (xcb_res_client_iterator_t i = xcb_res_query_clients_clients_iterator(clients.get()); i.rem > 0;
         xcb_res_client_next(&i)) {
        if (i.data->resource_base == own || i.data->resource_base == 0)    // 0: the server itself
            continue;
        const auto kinds = Answer(m_xcb, &xcb_res_query_client_resources_reply,
                                  xcb_res_query_client_resources(m_xcb, i.data->resource_base));
        if (kinds == nullptr)
            continue;    // gone meanwhile
        count += resources ? 0 : 1;
        for (xcb_res_type_iterator_t kind = xcb_res_query_client_resources_types_iterator(kinds.get());
             resources && kind.rem > 0; xcb_res_type_next(&kind))
            count += kind.data->count;
    }
    return count;
}

bool XClient::SetMode(uint32_t clock, uint16_t lineTotal, uint16_t total) {
    const auto all = ScreenResources(m_xcb, Root());
    if (all == nullptr)
        return false;
    const std::string name = "test-" + std::to_string(clock);
    xcb_randr_mode_info_t mode{};
    mode.width = m_screen->width_in_pixels;
    mode.height = m_screen->height_in_pixels;
    mode.dot_clock = clock;
    mode.htotal = lineTotal;
    mode.vtotal = total;
    mode.name_len = static_cast<uint16_t>(name.size());
    const auto made = Answer(m_xcb, &xcb_randr_create_mode_reply,
                             xcb_randr_create_mode(m_xcb, Root(), mode, mode.name_len, name.c_str()));
    if (made == nullptr)
        return false;
    xcb_randr_output_t output = xcb_randr_get_screen_resources_current_outputs(all.get())[0];
    xcb_randr_add_output_mode(m_xcb, output, made->mode);
    const auto set = Answer(m_xcb, &xcb_randr_set_crtc_config_reply,
                            xcb_randr_set_crtc_config(m_xcb, xcb_randr_get_screen_resources_current_crtcs(all.get())[0],
                                                      0, 0, 0, 0, made->mode, XCB_RANDR_ROTATION_ROTATE_0, 1, &output));
    return set != nullptr && set->status == XCB_RANDR_SET_CONFIG_SUCCESS;
}

void XClient::Composite(bool on) {
    Sync(xcb_set_selection_owner(m_xcb, on ? Create({.mapped = false}) : XCB_NONE, Atom("_NET_WM_CM_S0"),
                                 XCB_CURRENT_TIME));
}

void XClient::SetMonitors(const std::vector<Rect>& monitors) {
    const auto all = ScreenResources(m_xcb, Root());
    const bool outputs = all != nullptr && xcb_randr_get_screen_resources_current_outputs_length(all.get()) > 0;
    const xcb_randr_output_t output = outputs ? xcb_randr_get_screen_resources_current_outputs(all.get())[0] : 0;
    for (size_t i = 0; i < monitors.size(); ++i) {
        // The first takes the server's only output with it, so that no monitor of the server's own is left.
        const bool takesOutput = i == 0 && outputs;
        const Rect& place = monitors[i];
        struct {
            xcb_randr_set_monitor_request_t head;
            xcb_randr_monitor_info_t info;
            xcb_randr_output_t output;
        } request{{0, 0, 0, Root()},
                  {Atom("test-" + std::to_string(i)), 0, 0, takesOutput, static_cast<int16_t>(place.left),
                   static_cast<int16_t>(place.top), static_cast<uint16_t>(place.Width()),
                   static_cast<uint16_t>(place.Height()), 0, 0},
                  output};
        // Sent by hand: xcb's own form of this request fails an assertion of xcb. Two parts in front are xcb's.
        iovec parts[3] = {};
        parts[2] = {&request, sizeof request - (takesOutput ? 0 : sizeof request.output)};
        const xcb_protocol_request_t protocol{1, &xcb_randr_id, XCB_RANDR_SET_MONITOR, 1};
        xcb_send_request(m_xcb, 0, parts + 2, &protocol);
    }
    // Xvfb reports no new monitors, but another primary output.
    for (const xcb_randr_output_t primary : {xcb_randr_output_t{0}, output})
        xcb_randr_set_output_primary(m_xcb, Root(), primary);
    Sync();
}

}    // namespace corvane::test
