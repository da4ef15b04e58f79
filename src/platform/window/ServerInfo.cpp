#include "platform/window/ServerInfo.h"

#include <xcb/shm.h>

#include <cstdlib>

#include "platform/sink/SharedMemory.h"

namespace corvane {

namespace {

// Tries out with one page which kind of shared memory the server can attach: it may be on another machine, in another
// IPC or PID world, or run as somebody else.
bool CanAttach(xcb_connection_t* xcb, Transport transport) {
    SharedMemory memory;
    if (!memory.Make(transport, 1))
        return false;
    const uint32_t segment = xcb_generate_id(xcb);
    const xcb_void_cookie_t cookie = memory.AttachChecked(xcb, segment);
    xcb_generic_error_t* error = xcb_request_check(xcb, cookie);
    const bool works = error == nullptr && xcb_connection_has_error(xcb) == 0;
    std::free(error);
    if (works)
        xcb_shm_detach(xcb, segment);
    return works;
}

void AskShm(xcb_connection_t* xcb, ServerInfo& info) {
    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(xcb, &xcb_shm_id);
    if (shm == nullptr || !shm->present)
        return;
    xcb_shm_query_version_reply_t* version = xcb_shm_query_version_reply(xcb, xcb_shm_query_version(xcb), nullptr);
    if (version == nullptr)
        return;
    const bool byDescriptor =
        version->major_version > 1 || (version->major_version == 1 && version->minor_version >= 2);
    std::free(version);
    info.shmCompletion = static_cast<uint8_t>(shm->first_event + XCB_SHM_COMPLETION);
    if (byDescriptor && CanAttach(xcb, Transport::Descriptor))
        info.transport = Transport::Descriptor;
    else if (CanAttach(xcb, Transport::Segment))
        info.transport = Transport::Segment;
}

void AskRandr(xcb_connection_t* xcb, ServerInfo& info) {
    const xcb_query_extension_reply_t* randr = xcb_get_extension_data(xcb, &xcb_randr_id);
    if (randr == nullptr || !randr->present)
        return;
    xcb_randr_query_version_reply_t* version =
        xcb_randr_query_version_reply(xcb, xcb_randr_query_version(xcb, 1, 5), nullptr);
    if (version == nullptr)
        return;
    const bool hasMonitors = version->major_version > 1 || (version->major_version == 1 && version->minor_version >= 5);
    std::free(version);
    if (!hasMonitors)
        return;
    info.randrFirstEvent = randr->first_event;
    for (xcb_screen_iterator_t screen = xcb_setup_roots_iterator(xcb_get_setup(xcb)); screen.rem > 0;
         xcb_screen_next(&screen))
        xcb_randr_select_input(xcb, screen.data->root,
                               XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                                   XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
}

const xcb_visualtype_t* FindVisual(const xcb_setup_t* setup, uint8_t depth, xcb_visualid_t visual) {
    for (xcb_screen_iterator_t screen = xcb_setup_roots_iterator(setup); screen.rem > 0; xcb_screen_next(&screen))
        for (xcb_depth_iterator_t d = xcb_screen_allowed_depths_iterator(screen.data); d.rem > 0; xcb_depth_next(&d))
            for (xcb_visualtype_iterator_t v = xcb_depth_visuals_iterator(d.data); v.rem > 0; xcb_visualtype_next(&v))
                if (d.data->depth == depth && v.data->visual_id == visual)
                    return v.data;
    return nullptr;
}

const xcb_format_t* FindFormat(const xcb_setup_t* setup, uint8_t depth) {
    for (xcb_format_iterator_t f = xcb_setup_pixmap_formats_iterator(setup); f.rem > 0; xcb_format_next(&f))
        if (f.data->depth == depth)
            return f.data;
    return nullptr;
}

}    // namespace

ServerInfo AskServer(xcb_connection_t* xcb) {
    xcb_prefetch_extension_data(xcb, &xcb_shm_id);
    xcb_prefetch_extension_data(xcb, &xcb_randr_id);
    xcb_prefetch_maximum_request_length(xcb);
    ServerInfo info;
    info.maxRequestBytes = size_t{xcb_get_maximum_request_length(xcb)} * 4;
    AskShm(xcb, info);
    AskRandr(xcb, info);
    return info;
}

PixelLayout LayoutOf(xcb_connection_t* xcb, uint8_t depth, xcb_visualid_t visual) {
    const xcb_setup_t* setup = xcb_get_setup(xcb);
    const xcb_visualtype_t* type = FindVisual(setup, depth, visual);
    const xcb_format_t* format = FindFormat(setup, depth);
    if (type == nullptr || format == nullptr || format->scanline_pad != 32 ||
        setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST ||
        (type->_class != XCB_VISUAL_CLASS_TRUE_COLOR && type->_class != XCB_VISUAL_CLASS_DIRECT_COLOR))
        return PixelLayout::Unsupported;
    const auto isLaidOut = [&](uint32_t bits, uint32_t red, uint32_t green, uint32_t blue) {
        return format->bits_per_pixel == bits && type->red_mask == red && type->green_mask == green &&
               type->blue_mask == blue;
    };
    if ((depth == 24 || depth == 32) && isLaidOut(32, 0xFF0000, 0xFF00, 0xFF))
        return PixelLayout::Bgrx32;
    if (depth == 16 && isLaidOut(16, 0xF800, 0x7E0, 0x1F))
        return PixelLayout::Rgb16;
    if (depth == 30 && isLaidOut(32, 0x3FF00000, 0xFFC00, 0x3FF))
        return PixelLayout::Rgb30;
    return PixelLayout::Unsupported;
}

}    // namespace corvane
