#include "present/PictureCopies.h"

#include <cstdlib>
#include <cstring>

namespace corvane {

SharedPicture PictureCopies::Copy(const SharedPicture& from) {
    DecodedFrame picture = from.Get();
    const int planes = from.View().PlaneCount();
    size_t bytes[3] = {};
    for (int i = 0; i < planes; ++i)
        bytes[i] = size_t{picture.strides[i]} * (i == 0 ? picture.height : picture.height / 2 + picture.height % 2);
    QMRX::SDK::Utility::FrameReference<Frame> frame(m_frames.Get());
    AlignedBuffer& memory = frame->memory;
    if (const size_t whole = bytes[0] + bytes[1] + bytes[2]; memory.Size() != whole && !memory.Allocate(whole))
        return SharedPicture();
    uint8_t* to = memory.Data();
    for (int i = 0; i < planes; to += bytes[i++]) {
        std::memcpy(to, picture.planes[i], bytes[i]);
        picture.planes[i] = to;
    }
    picture.owner = frame.Get();
    picture.add_ref = &Frame::AddRefOwner;
    picture.release = &Frame::ReleaseOwner;
    return SharedPicture(picture, from.Colours());    // takes a reference of its own
}

}    // namespace corvane
