#include "base/AlignedBuffer.h"

#include <sys/mman.h>

#include <cstring>
#include <new>

#include "base/FailurePoint.h"
#include "base/Limits.h"
#include "base/Sanitized.h"

namespace corvane {

namespace {

constexpr size_t kAlignment = 64;
constexpr size_t kLargePage = size_t{2} << 20;
constexpr size_t kPage = 4096;

// Whole pictures of high definition are walked through from end to end for each frame: large pages spare most of the
// address look-ups (a hint, which the system may ignore). A page that nobody writes takes no memory.
uint8_t* Map(size_t whole) {
    const size_t room = whole + kLargePage;
    if (failure::MustFail(failure::Site::PlatformCall))
        return nullptr;
    void* const mapped = mmap(nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED)
        return nullptr;
    // The pages around the aligned part are released.
    auto* const start = static_cast<uint8_t*>(mapped);
    const size_t before = (kLargePage - reinterpret_cast<uintptr_t>(start) % kLargePage) % kLargePage;
    const size_t used = before + ((whole + kPage - 1) & ~(kPage - 1));
    if (before != 0)
        munmap(start, before);
    if (used < room)
        munmap(start + used, room - used);
    madvise(start + before, whole, MADV_HUGEPAGE);
    return start + before;
}

}    // namespace

bool AlignedBuffer::Allocate(size_t size, Use use) noexcept {
    Free();
    const size_t whole = size + limits::kPicturePadding;
    if (whole < size)
        return false;
    m_mapped = use == Use::Kept && !kSanitized && whole >= 2 * kLargePage;
    if (m_mapped) {
        m_data = Map(whole);
    } else {
        m_data = static_cast<uint8_t*>(::operator new (whole, std::align_val_t{kAlignment}, std::nothrow));
        if (m_data != nullptr)
            std::memset(m_data, 0, whole);
    }
    m_size = m_data != nullptr ? size : 0;
    return m_data != nullptr;
}

void AlignedBuffer::Free() noexcept {
    if (m_data != nullptr && m_mapped)
        munmap(m_data, m_size + limits::kPicturePadding);
    else if (m_data != nullptr)
        ::operator delete (m_data, std::align_val_t{kAlignment});
    m_data = nullptr;
    m_size = 0;
}

}    // namespace corvane
