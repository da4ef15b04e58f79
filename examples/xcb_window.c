/* Plays an H.264 Annex B file in a window made with plain xcb. Space pauses, q or closing the window quits. */
#include <poll.h>
#include <xcb/xcb.h>

#include "annexb.h"

static xcb_atom_t atom(xcb_connection_t* connection, const char* name)
{
    xcb_intern_atom_reply_t* reply =
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, (uint16_t)strlen(name), name), NULL);
    const xcb_atom_t value = reply ? reply->atom : 0;
    free(reply);
    return value;
}

/* A window with a black background that tells of keys and of its close button. */
static xcb_window_t openWindow(xcb_connection_t* connection, uint16_t width, uint16_t height)
{
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const xcb_window_t window = xcb_generate_id(connection);
    const uint32_t values[] = {screen->black_pixel, XCB_EVENT_MASK_KEY_PRESS};
    const xcb_atom_t close = atom(connection, "WM_DELETE_WINDOW");
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, width, height, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, 10, "xcb window");
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atom(connection, "WM_PROTOCOLS"), XCB_ATOM_ATOM, 32, 1,
                        &close);
    xcb_map_window(connection, window);
    xcb_flush(connection);
    return window;
}

/* The symbol on a key, without shift. */
static xcb_keysym_t keyOf(xcb_connection_t* connection, xcb_keycode_t code)
{
    xcb_get_keyboard_mapping_reply_t* map =
        xcb_get_keyboard_mapping_reply(connection, xcb_get_keyboard_mapping(connection, code, 1), NULL);
    const xcb_keysym_t key = map && map->keysyms_per_keycode ? xcb_get_keyboard_mapping_keysyms(map)[0] : 0;
    free(map);
    return key;
}

/* Does what has come. 0 when the program is to end. */
static int attend(xcb_connection_t* connection, int* paused)
{
    int goesOn = 1;
    xcb_generic_event_t* event;
    while ((event = xcb_poll_for_event(connection))) {
        const int type = event->response_type & 0x7f;
        if (type == XCB_KEY_PRESS) {
            const xcb_keysym_t key = keyOf(connection, ((xcb_key_press_event_t*)event)->detail);
            if (key == ' ') *paused = !*paused;
            if (key == 'q') goesOn = 0;
        } else if (type == XCB_CLIENT_MESSAGE) { /* the only one that we asked for: close */
            goesOn = 0;
        }
        free(event);
    }
    return goesOn && !xcb_connection_has_error(connection);
}

int main(int argc, char** argv)
{
    AnnexB file;
    MediaFrameHeader frame;
    void *instance = NULL, *channel = NULL;
    int paused = 0;
    if (argc < 2 || !annexbOpen(&file, argv[1])) return 2;
    xcb_connection_t* connection = xcb_connect(NULL, NULL);
    if (xcb_connection_has_error(connection)) return 2;

    /* The library draws into the window over a connection of its own and follows its size. */
    ChannelSettings settings = {.window = openWindow(connection, 640, 480)};
    Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
    Corvane_CreateChannel(instance, &channel, &settings);
    Corvane_StartChannel(channel, 1);

    /* A frame each 40 ms; one that goes early, after an event, waits in the channel's queue and is shown in time. */
    int more = annexbNext(&file, &frame);
    while (more && attend(connection, &paused)) {
        struct pollfd wait = {.fd = xcb_get_file_descriptor(connection), .events = POLLIN};
        if (!paused && Corvane_InputEncodedMediaFrame(channel, &frame) != Status_QueueFull)
            more = annexbNext(&file, &frame);
        poll(&wait, 1, 40);
    }

    Corvane_Release(&instance); /* before the window goes */
    xcb_disconnect(connection);
    free(file.data);
    return 0;
}
