// The abilities of the server, asked for once when the connection opens, and the layouts of its visuals. Private to
// x11/.
#pragma once

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <cstddef>
#include <cstdint>

namespace corvane {

// How an image reaches the server, the best first.
enum class Transport : uint32_t {
    Descriptor,    // shared memory by descriptor
    Segment,       // System V shared memory
    Bands,         // pixels in requests
};

struct ServerInfo {
    Transport transport = Transport::Bands;    // the best that was tried with success
    uint8_t shmCompletion = 0;                 // code of the event; 0: no shared memory
    uint8_t randrFirstEvent = 0;               // 0: no list of monitors
    uint8_t presentOpcode = 0;                 // 0: vertical blanks are not reported
    // Bytes of pixels in one request, where images are sent in bands: what the socket has room for whenever it is
    // writable, and little enough that the server serves other clients in between.
    size_t bandBytes = 0;
};

// Event thread, while the connection opens: waits for the server's answers. Selects the events of RandR.
ServerInfo AskServer(xcb_connection_t* xcb);

// The layouts of pixels that this library can write and read.
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
