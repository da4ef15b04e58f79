// A decoded picture, the colours that its stream signals, and the reference that keeps its pixels alive. Where the
// decoder does not share its pictures there is no reference, and the picture is valid until the next call on the
// decoder.
#pragma once

#include <cstdint>
#include <utility>

#include "base/ColourSignal.h"
#include "base/PictureView.h"
#include "corvane/decoder.h"

namespace corvane {

// The only place where a decoder's record becomes a view. Of its colours the record says nothing.
inline ConstPictureView ViewOf(const DecodedFrame& picture) {
    ConstPictureView view{.size = {picture.width, picture.height},
                          .format = picture.strides[2] != 0 ? uint32_t{PF_I420} : uint32_t{PF_NV12}};
    for (int i = 0; i < view.PlaneCount(); ++i) {
        view.plane[i] = picture.planes[i];
        view.stride[i] = static_cast<ptrdiff_t>(picture.strides[i]);
    }
    return view;
}

// May be destroyed on any thread, also after the decoder.
class SharedPicture {
public:
    SharedPicture() = default;
    // Takes a reference of its own; none where the owner or one of the two functions is missing.
    explicit SharedPicture(const DecodedFrame& picture, const ColourSignal& colours = {})
        : SharedPicture(picture, TakenReference(), colours) {
        if (Shared())
            m_picture.add_ref(m_picture.owner);
    }
    // Tag: the reference was taken already, by ShareFrame, and is now owned by this object.
    struct TakenReference {};
    SharedPicture(const DecodedFrame& picture, TakenReference, const ColourSignal& colours = {})
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
    // Another reference on the same picture.
    SharedPicture Share() const { return SharedPicture(m_picture, m_colours); }
    const DecodedFrame& Get() const { return m_picture; }
    // With the colours that the stream signals.
    ConstPictureView View() const {
        ConstPictureView view = ViewOf(m_picture);
        view.colours = m_colours;
        return view;
    }
    const ColourSignal& Colours() const { return m_colours; }

private:
    DecodedFrame m_picture{};
    ColourSignal m_colours;
};

}    // namespace corvane
