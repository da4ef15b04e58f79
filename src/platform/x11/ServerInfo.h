// What the server can do, asked once when the connection opens; and what its visuals look like. Private to x11/.
#pragma once

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <cstddef>
#include <cstdint>

namespace corvane {

// How an image comes to the server, the best first.
enum class Transport : uint32_t {
    Descriptor,    // shared memory by descriptor
    Segment,       // System V shared memory
    Bands,         // sent
};

struct ServerInfo {
    Transport transport = Transport::Bands;    // the best that was seen to work
    uint8_t shmCompletion = 0;                 // code of the event; 0: no shared memory
    uint8_t randrFirstEvent = 0;               // 0: no list of monitors
    uint8_t presentOpcode = 0;                 // 0: nobody tells of vertical blanks
    // Pixels that one request may carry where images are sent: as many as the socket has room for whenever it is
    // writable at all, and no more than keeps the server from others for a moment.
    size_t bandBytes = 0;
};

// Waits for the server's answers: event thread, while the connection opens. Selects the events of RandR.
ServerInfo AskServer(xcb_connection_t* xcb);

// The pixels of a visual, as far as this library can write and read them.
enum class PixelLayout : uint32_t {
    Unsupported,
    Bgrx32,    // bytes B, G, R, X: depth 24 and 32
    Rgb16,     // 5-6-5
    Rgb30,     // 2-10-10-10 in 32 bits
};
PixelLayout LayoutOf(xcb_connection_t* xcb, uint8_t depth, xcb_visualid_t visual);
inline uint32_t BytesPerPixel(PixelLayout layout) {
    return layout == PixelLayout::Rgb16 ? 2 : 4;
}

}    // namespace corvane
