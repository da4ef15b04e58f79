#include "platform/x11/ServerInfo.h"

#include <sys/socket.h>
#include <xcb/present.h>
#include <xcb/shm.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/x11/SharedMemory.h"

namespace corvane {

namespace {

// With a server on another machine shared memory fails, or its id is that of an unrelated segment there.
bool IsLocal(xcb_connection_t* xcb) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    return getsockname(xcb_get_file_descriptor(xcb), reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
           address.ss_family == AF_UNIX;
}

// Linux reports a socket as writable when at least a third of its buffer is free. The largest request that the server
// accepts is another bound.
size_t BandBytes(xcb_connection_t* xcb) {
    constexpr size_t kMost = size_t{64} << 10;
    constexpr size_t kLeast = size_t{8} << 10;
    constexpr size_t kHeader = 28;    // of a request that puts an image, with the long form of the length
    int buffer = 0;
    socklen_t size = sizeof buffer;
    if (getsockopt(xcb_get_file_descriptor(xcb), SOL_SOCKET, SO_SNDBUF, &buffer, &size) != 0)
        buffer = 0;
    const size_t request = size_t{xcb_get_maximum_request_length(xcb)} * 4;
    return std::max(kLeast, std::min({kMost, static_cast<size_t>(std::max(buffer, 0)) / 4, request - kHeader}));
}

constexpr uint16_t kProbeBits = 512;

// Whether the server reads from `segment` what this process wrote. In another IPC namespace the same id may be that of
// another segment. The test puts one row of a bitmap and reads it back.
bool ReadsBack(xcb_connection_t* xcb, uint32_t segment, const uint8_t* written) {
    const xcb_pixmap_t pixmap = xcb_generate_id(xcb);
    const xcb_gcontext_t context = xcb_generate_id(xcb);
    xcb_create_pixmap(xcb, 1, pixmap, xcb_setup_roots_iterator(xcb_get_setup(xcb)).data->root, kProbeBits, 1);
    xcb_create_gc(xcb, context, pixmap, 0, nullptr);
    xcb_shm_put_image(xcb, pixmap, context, kProbeBits, 1, 0, 0, kProbeBits, 1, 0, 0, 1, XCB_IMAGE_FORMAT_Z_PIXMAP, 0,
                      segment, 0);
    const xcb_get_image_cookie_t cookie =
        xcb_get_image(xcb, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, 0, 0, kProbeBits, 1, ~0u);
    xcb_free_gc(xcb, context);
    xcb_free_pixmap(xcb, pixmap);
    xcb_get_image_reply_t* read = xcb_get_image_reply(xcb, cookie, nullptr);
    const bool same = read != nullptr && xcb_get_image_data_length(read) >= kProbeBits / 8 &&
                      std::memcmp(xcb_get_image_data(read), written, kProbeBits / 8) == 0;
    std::free(read);
    return same;
}

// Tries with a little memory which kind the server can attach: it may run in another IPC or PID namespace, or as
// another user.
bool CanAttach(xcb_connection_t* xcb, Transport transport) {
    SharedMemory memory;
    if (!memory.Make(transport, kProbeBits / 8))
        return false;
    for (uint32_t i = 0; i < kProbeBits / 8; ++i)
        memory.Data()[i] = static_cast<uint8_t>(i * 37 + 11);
    const uint32_t segment = xcb_generate_id(xcb);
    const xcb_void_cookie_t cookie = memory.AttachChecked(xcb, segment);
    xcb_generic_error_t* error = xcb_request_check(xcb, cookie);
    const bool attached = error == nullptr && xcb_connection_has_error(xcb) == 0;
    std::free(error);
    if (!attached)
        return false;
    const bool works = ReadsBack(xcb, segment, memory.Data());
    xcb_shm_detach(xcb, segment);
    return works;
}

void AskShm(xcb_connection_t* xcb, ServerInfo& info) {
    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(xcb, &xcb_shm_id);
    if (shm == nullptr || !shm->present || !IsLocal(xcb))
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
    xcb_prefetch_extension_data(xcb, &xcb_present_id);
    xcb_prefetch_maximum_request_length(xcb);
    ServerInfo info;
    info.bandBytes = BandBytes(xcb);
    AskShm(xcb, info);
    AskRandr(xcb, info);
    const xcb_query_extension_reply_t* present = xcb_get_extension_data(xcb, &xcb_present_id);
    if (present != nullptr && present->present && IsLocal(xcb))    // a local server stamps blanks with our clock
        info.presentOpcode = present->major_opcode;
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
