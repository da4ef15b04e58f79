#include "present/LentBuffer.h"

#include "corvane/decoder.h"
#include "filters/FilterChain.h"

namespace corvane {

LentBuffer MemoryBuffers::Lend(PictureSize size, uint32_t format) {
    const std::shared_ptr<MemorySlot> slot = m_pair.Free();
    if (slot == nullptr)
        return {};
    if (slot->data == nullptr || slot->size != size || slot->format != format) {
        const uint64_t bytes = format == PF_NV12 ? 0 : PictureBytes(format, size.width, size.height);
        slot->data = nullptr;
        if (bytes == 0 || !slot->memory.Allocate(bytes))
            return {};
        slot->data = slot->memory.Data();
        slot->stride = RowBytes(format, size.width);
        slot->format = format;
        slot->size = size;
    }
    return LentBuffer(slot);
}

}    // namespace corvane
