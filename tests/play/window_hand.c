/*
 * Acts as the user of a window, for the tests of programs with windows: window_hand TITLE WORD...
 * Waits for a top-level window of that title (at most 20 s), then does each word:
 *   id              prints its id
 *   size            prints its size and place: WxH+X+Y
 *   size:WxH        resizes it
 *   key:SYM         presses a key, by X11 keysym in hexadecimal; key:SYM@X,Y with the pointer there
 *   drag:X,Y,X,Y    presses the left button, moves the pointer, releases the button
 *   click:N@X,Y     presses and releases button N
 *   close           asks it to close, as a window manager does
 *   new:WxH         before any other word: makes the window, prints its id and keeps it until its input ends
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <xcb/xcb.h>

static xcb_connection_t* connection;
static xcb_screen_t* screen;

static int titled(xcb_window_t window, const char* title) {
    xcb_get_property_reply_t* name = xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 0, 64), NULL);
    const int same = name && (size_t)xcb_get_property_value_length(name) == strlen(title) &&
                     memcmp(xcb_get_property_value(name), title, strlen(title)) == 0;
    free(name);
    return same;
}

static xcb_window_t find(const char* title) {
    xcb_window_t found = 0;
    xcb_query_tree_reply_t* tree = xcb_query_tree_reply(connection, xcb_query_tree(connection, screen->root), NULL);
    for (int i = 0; tree && i < xcb_query_tree_children_length(tree) && !found; ++i)
        if (titled(xcb_query_tree_children(tree)[i], title))
            found = xcb_query_tree_children(tree)[i];
    free(tree);
    return found;
}

static xcb_atom_t atom(const char* name) {
    xcb_intern_atom_reply_t* reply =
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, (uint16_t)strlen(name), name), NULL);
    const xcb_atom_t value = reply ? reply->atom : 0;
    free(reply);
    return value;
}

static xcb_keycode_t codeOf(xcb_keysym_t symbol) {
    const xcb_setup_t* setup = xcb_get_setup(connection);
    const int count = setup->max_keycode - setup->min_keycode + 1;
    xcb_get_keyboard_mapping_reply_t* map = xcb_get_keyboard_mapping_reply(
        connection, xcb_get_keyboard_mapping(connection, setup->min_keycode, (uint8_t)count), NULL);
    for (int i = 0; map && i < count * map->keysyms_per_keycode; ++i)
        if (xcb_get_keyboard_mapping_keysyms(map)[i] == symbol)
            return (xcb_keycode_t)(setup->min_keycode + i / map->keysyms_per_keycode);
    return 0;
}

/* An event of the pointer or of a key; their records are laid out alike. */
static void hand(xcb_window_t window, uint8_t type, unsigned detail, int x, int y, uint32_t mask) {
    const xcb_button_press_event_t event = {.response_type = type,
                                            .detail = (uint8_t)detail,
                                            .event = window,
                                            .root = screen->root,
                                            .event_x = (int16_t)x,
                                            .event_y = (int16_t)y,
                                            .same_screen = 1};
    xcb_send_event(connection, 0, window, mask, (const char*)&event);
}

static int act(xcb_window_t window, const char* word) {
    unsigned width, height, symbol, button;
    int x = 0, y = 0, x2, y2;
    if (strcmp(word, "id") == 0) {
        printf("%u\n", window);
    } else if (strcmp(word, "size") == 0) {
        xcb_get_geometry_reply_t* is = xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), NULL);
        if (!is)
            return 0;
        printf("%ux%u+%d+%d\n", is->width, is->height, is->x, is->y);
    } else if (sscanf(word, "size:%ux%u", &width, &height) == 2) {
        xcb_configure_window(connection, window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                             (uint32_t[]){width, height});
    } else if (sscanf(word, "key:%x@%d,%d", &symbol, &x, &y) >= 1) {
        hand(window, XCB_KEY_PRESS, codeOf(symbol), x, y, XCB_EVENT_MASK_KEY_PRESS);
    } else if (sscanf(word, "drag:%d,%d,%d,%d", &x, &y, &x2, &y2) == 4) {
        hand(window, XCB_BUTTON_PRESS, 1, x, y, XCB_EVENT_MASK_BUTTON_PRESS);
        hand(window, XCB_MOTION_NOTIFY, 0, x2, y2, XCB_EVENT_MASK_BUTTON_MOTION);
        hand(window, XCB_BUTTON_RELEASE, 1, x2, y2, XCB_EVENT_MASK_BUTTON_RELEASE);
    } else if (sscanf(word, "click:%u@%d,%d", &button, &x, &y) == 3) {
        hand(window, XCB_BUTTON_PRESS, button, x, y, XCB_EVENT_MASK_BUTTON_PRESS);
        hand(window, XCB_BUTTON_RELEASE, button, x, y, XCB_EVENT_MASK_BUTTON_RELEASE);
    } else if (strcmp(word, "close") == 0) {
        xcb_client_message_event_t ask = {
            .response_type = XCB_CLIENT_MESSAGE, .format = 32, .window = window, .type = atom("WM_PROTOCOLS")};
        ask.data.data32[0] = atom("WM_DELETE_WINDOW");
        xcb_send_event(connection, 0, window, 0, (const char*)&ask);
    } else {
        return 0;
    }
    free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), NULL)); /* all of it has arrived */
    return 1;
}

static int keep(const char* title, unsigned width, unsigned height) {
    const xcb_window_t window = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, (uint16_t)width, (uint16_t)height,
                      0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, NULL);
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        (uint32_t)strlen(title), title);
    xcb_map_window(connection, window);
    act(window, "id");
    fflush(stdout);
    while (getchar() != EOF) {
    }
    xcb_disconnect(connection);
    return 0;
}

int main(int argc, char** argv) {
    unsigned width, height;
    if (argc < 3)
        return 2;
    connection = xcb_connect(NULL, NULL);
    if (xcb_connection_has_error(connection))
        return 2;
    screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    if (sscanf(argv[2], "new:%ux%u", &width, &height) == 2)
        return keep(argv[1], width, height);
    xcb_window_t window = 0;
    for (int i = 0; i < 200 && !(window = find(argv[1])); ++i)
        usleep(100000);
    for (int i = 2; i < argc; ++i)
        if (!window || !act(window, argv[i])) {
            fprintf(stderr, "window_hand: %s: %s\n", argv[1], window ? argv[i] : "no such window");
            return 1;
        }
    xcb_disconnect(connection);
    return 0;
}
