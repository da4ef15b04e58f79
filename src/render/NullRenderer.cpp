#include "render/NullRenderer.h"

#include "filters/FilterChain.h"

namespace corvane {

int32_t CNullRenderer::GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride,
                                 uint32_t* format) {
    const uint64_t size = PictureBytes(*format, width, height);
    if (size == 0)
        return -1;
    if (m_memory.Size() != size && !m_memory.Allocate(size))
        return -1;
    *buffer = m_memory.Data();
    *stride = RowBytes(*format, width);
    return 0;
}

}    // namespace corvane
