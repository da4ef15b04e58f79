#include "base/AlignedBuffer.h"

#include <sys/mman.h>

#include <cstring>
#include <new>

#include "base/Limits.h"

namespace corvane {

namespace {

constexpr size_t kAlignment = 64;
constexpr size_t kLargePage = size_t{2} << 20;

// Whole pictures of high definition are walked through from end to end for each frame: large pages spare most of the
// address look-ups. A hint, which the system may ignore.
std::align_val_t AlignmentFor(size_t size) {
    return std::align_val_t{size >= 2 * kLargePage ? kLargePage : kAlignment};
}

}    // namespace

bool AlignedBuffer::Allocate(size_t size) noexcept {
    Free();
    const size_t whole = size + limits::kPicturePadding;
    if (whole < size)
        return false;
    m_data = static_cast<uint8_t*>(::operator new(whole, AlignmentFor(whole), std::nothrow));
    if (m_data == nullptr)
        return false;
    if (AlignmentFor(whole) == std::align_val_t{kLargePage})
        madvise(m_data, whole, MADV_HUGEPAGE);
    std::memset(m_data, 0, whole);
    m_size = size;
    return true;
}

void AlignedBuffer::Free() noexcept {
    const size_t whole = m_size + limits::kPicturePadding;
    // Given back at once: the allocator would keep what it has seen come and go.
    if (m_data != nullptr && AlignmentFor(whole) == std::align_val_t{kLargePage})
        madvise(m_data, whole & ~(kLargePage - 1), MADV_DONTNEED);
    if (m_data != nullptr)
        ::operator delete(m_data, AlignmentFor(whole));
    m_data = nullptr;
    m_size = 0;
}

}    // namespace corvane
