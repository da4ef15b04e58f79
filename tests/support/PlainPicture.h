// A decoded picture made by hand, for tests below the decoders.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/SharedPicture.h"

namespace corvane::test {

class PlainPicture {
public:
    PlainPicture(uint32_t width, uint32_t height, uint8_t luma = 100, uint8_t u = 128, uint8_t v = 128)
        : m_y(size_t{width} * height, luma), m_u(size_t{(width + 1) / 2} * ((height + 1) / 2), u), m_v(m_u.size(), v) {
        frame.planes[0] = m_y.data();
        frame.planes[1] = m_u.data();
        frame.planes[2] = m_v.data();
        frame.strides[0] = width;
        frame.strides[1] = frame.strides[2] = (width + 1) / 2;
        frame.width = width;
        frame.height = height;
    }
    PlainPicture(const PlainPicture&) = delete;
    PlainPicture& operator=(const PlainPicture&) = delete;

    // Makes it one that its decoder shares; `references` are those of others.
    void Share() {
        frame.owner = this;
        frame.add_ref = [](void* self) { ++static_cast<PlainPicture*>(self)->references; };
        frame.release = [](void* self) { --static_cast<PlainPicture*>(self)->references; };
    }

    // With a reference of its own where it is shared.
    SharedPicture Picture(const ColourSignal& colours = {}) const { return SharedPicture(frame, colours); }

    DecodedFrame frame{};
    std::atomic<int> references{0};

private:
    std::vector<uint8_t> m_y, m_u, m_v;
};

}    // namespace corvane::test
