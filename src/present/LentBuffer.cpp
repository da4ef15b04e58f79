#include "present/LentBuffer.h"

#include "base/PictureLayout.h"

namespace corvane {

LentBuffer MemoryBuffers::Lend(PictureSize size, uint32_t format) {
    const std::shared_ptr<MemorySlot> slot = m_pair.Free();
    if (slot == nullptr)
        return {};
    if (!slot->view || slot->view.size != size || slot->format != format) {
        const uint64_t bytes = format == PF_NV12 ? 0 : PictureBytes(format, size.width, size.height);
        slot->view = {};
        if (bytes == 0 || !slot->memory.Allocate(bytes))
            return {};
        slot->view = LayOut(slot->memory.Data(), RowBytes(format, size.width), size, format);
        slot->format = format;
    }
    return LentBuffer(slot);
}

}    // namespace corvane
