// Memory that the server may attach. Private to x11/.
#pragma once

#include <xcb/xcb.h>

#include <cstddef>
#include <cstdint>
#include <utility>

#include "platform/x11/ServerInfo.h"

namespace corvane {

// Our mapping of a piece of memory; that of the server lives until the server detaches it. One thread at a time.
class SharedMemory {
public:
    SharedMemory() = default;
    ~SharedMemory() { Free(); }
    SharedMemory(SharedMemory&& other) noexcept { Swap(other); }
    SharedMemory& operator=(SharedMemory&& other) noexcept {
        Swap(other);
        return *this;
    }

    // `size` zeroed bytes, and padding after them that may be read and written. False when there is no memory, and for
    // a transport without shared memory.
    [[nodiscard]] bool Make(Transport transport, size_t size);
    void Free() noexcept;
    // Frees the pages after the first `size` bytes; those bytes stay as they are, for us and for the server.
    void Trim(size_t size) noexcept;
    uint8_t* Data() const { return m_data; }
    size_t Size() const { return m_size; }    // bytes that may be used

    // Asks the server, once, to attach the memory for reading as `segment`; sends what was buffered. An error goes to
    // the event loop, or with Checked to xcb_request_check. From this call on the system frees the memory by itself,
    // even if the process dies.
    unsigned Attach(xcb_connection_t* xcb, uint32_t segment);
    xcb_void_cookie_t AttachChecked(xcb_connection_t* xcb, uint32_t segment);

private:
    bool MakeDescriptor(size_t size);
    bool MakeSegment(size_t size);
    void Swap(SharedMemory& other) noexcept {
        std::swap(m_transport, other.m_transport);
        std::swap(m_data, other.m_data);
        std::swap(m_size, other.m_size);
        std::swap(m_mapped, other.m_mapped);
        std::swap(m_id, other.m_id);
    }
    xcb_void_cookie_t Send(xcb_connection_t* xcb, uint32_t segment, bool checked);

    Transport m_transport = Transport::Bands;
    uint8_t* m_data = nullptr;
    size_t m_size = 0;
    size_t m_mapped = 0;    // bytes
    int m_id = -1;          // a descriptor until it is sent, or the id of a System V segment
};

}    // namespace corvane
