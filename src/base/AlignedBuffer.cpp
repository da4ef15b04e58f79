#include "base/AlignedBuffer.h"

#include <cstring>
#include <new>

#include "base/Limits.h"

namespace corvane {

namespace {
constexpr std::align_val_t kAlignment{64};
}

bool AlignedBuffer::Allocate(size_t size) noexcept {
    Free();
    const size_t whole = size + limits::kPicturePadding;
    if (whole < size)
        return false;
    m_data = static_cast<uint8_t*>(::operator new(whole, kAlignment, std::nothrow));
    if (m_data == nullptr)
        return false;
    std::memset(m_data, 0, whole);
    m_size = size;
    return true;
}

void AlignedBuffer::Free() noexcept {
    ::operator delete(m_data, kAlignment);
    m_data = nullptr;
    m_size = 0;
}

}    // namespace corvane
