// A decoded picture together with what its stream signals of its colours and the reference that keeps its pixels alive.
// Of a picture that its decoder does not share it holds no reference: such a one ends with the next call on the
// decoder.
#pragma once

#include <utility>

#include "base/ColourSignal.h"
#include "corvane/decoder.h"

namespace corvane {

// May be dropped on any thread, also after the end of the decoder.
class SharedPicture {
public:
    SharedPicture() = default;
    // Without a reference where the owner, or either function, is missing.
    explicit SharedPicture(const DecodedFrame& picture, const ColourSignal& colours = {})
        : SharedPicture(picture, Adopted(), colours) {
        if (Shared())
            m_picture.add_ref(m_picture.owner);
    }
    // Takes over the reference that ShareFrame took.
    struct Adopted {};
    SharedPicture(const DecodedFrame& picture, Adopted, const ColourSignal& colours = {})
        : m_picture(picture), m_colours(colours) {
        if (!Shared())
            m_picture.owner = nullptr;
    }
    SharedPicture(SharedPicture&& other) noexcept
        : m_picture(std::exchange(other.m_picture, DecodedFrame{})), m_colours(other.m_colours) {}
    SharedPicture& operator=(SharedPicture&& other) noexcept {
        std::swap(m_picture, other.m_picture);
        std::swap(m_colours, other.m_colours);
        return *this;
    }
    ~SharedPicture() {
        if (m_picture.owner != nullptr)
            m_picture.release(m_picture.owner);
    }

    bool Shared() const {
        return m_picture.owner != nullptr && m_picture.add_ref != nullptr && m_picture.release != nullptr;
    }
    const DecodedFrame& Get() const { return m_picture; }
    const ColourSignal& Colours() const { return m_colours; }

private:
    DecodedFrame m_picture{};
    ColourSignal m_colours;
};

}    // namespace corvane
