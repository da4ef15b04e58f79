// The least that a program without the library needs: the same file, demuxed, paced and decoded as by decode_only, each
// picture converted by libyuv into the one image that is shared with the X server, and put. No queue, no other thread,
// no text, no redraw. bare_window FILE THREADS SECONDS
#include <libyuv.h>
#include <sys/shm.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>

#include "PacedDecode.h"

namespace {

class BareWindow {
public:
    BareWindow() = default;
    BareWindow(const BareWindow&) = delete;
    BareWindow& operator=(const BareWindow&) = delete;
    ~BareWindow() {
        xcb_disconnect(m_connection);
        if (m_pixels != nullptr)
            shmdt(m_pixels);
    }

    bool Show(const AVFrame& frame) {
        if (m_pixels == nullptr && !Open(frame.width, frame.height))
            return false;
        while (m_busy) {
            xcb_generic_event_t* event = xcb_wait_for_event(m_connection);
            if (event == nullptr)
                return false;
            m_busy = (event->response_type & 0x7F) != m_completion;
            std::free(event);
        }
        libyuv::J420ToARGB(frame.data[0], frame.linesize[0], frame.data[1], frame.linesize[1], frame.data[2],
                           frame.linesize[2], m_pixels, m_width * 4, m_width, m_height);
        const auto width = static_cast<uint16_t>(m_width), height = static_cast<uint16_t>(m_height);
        xcb_shm_put_image(m_connection, m_window, m_gc, width, height, 0, 0, width, height, 0, 0, 24,
                          XCB_IMAGE_FORMAT_Z_PIXMAP, 1, m_segment, 0);
        m_busy = true;
        return xcb_flush(m_connection) > 0;
    }

private:
    bool Open(int width, int height) {
        m_width = width;
        m_height = height;
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        const xcb_query_extension_reply_t* shared = xcb_get_extension_data(m_connection, &xcb_shm_id);
        const int id =
            shmget(IPC_PRIVATE, static_cast<size_t>(width) * static_cast<size_t>(height) * 4, IPC_CREAT | 0600);
        if (screen == nullptr || screen->root_depth != 24 || shared == nullptr || id < 0)
            return false;
        m_completion = static_cast<uint8_t>(shared->first_event + XCB_SHM_COMPLETION);
        m_pixels = static_cast<uint8_t*>(shmat(id, nullptr, 0));
        m_window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, screen->root, 0, 0,
                          static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          screen->root_visual, 0, nullptr);
        xcb_map_window(m_connection, m_window);
        m_gc = xcb_generate_id(m_connection);
        xcb_create_gc(m_connection, m_gc, m_window, 0, nullptr);
        m_segment = xcb_generate_id(m_connection);
        xcb_generic_error_t* error = xcb_request_check(
            m_connection, xcb_shm_attach_checked(m_connection, m_segment, static_cast<uint32_t>(id), 0));
        shmctl(id, IPC_RMID, nullptr);
        return error == nullptr && m_pixels != reinterpret_cast<uint8_t*>(-1);
    }

    xcb_connection_t* m_connection = xcb_connect(nullptr, nullptr);
    xcb_window_t m_window = 0;
    xcb_gcontext_t m_gc = 0;
    xcb_shm_seg_t m_segment = 0;
    uint8_t* m_pixels = nullptr;
    uint8_t m_completion = 0;
    bool m_busy = false;
    int m_width = 0;
    int m_height = 0;
};

}    // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "bare_window FILE THREADS SECONDS\n");
        return 2;
    }
    BareWindow window;
    const int pictures = corvane::bench::PacedDecode(argv[1], std::atoi(argv[2]), std::atof(argv[3]), 1,
                                                     [&](const AVFrame& frame) { return window.Show(frame); });
    std::printf("%d\n", pictures);
    return pictures > 0 ? 0 : 1;
}
