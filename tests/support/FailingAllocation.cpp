#include "support/FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace corvane::test::allocation {

namespace {
thread_local uint64_t calls = 0;
thread_local uint64_t fail_at = 0;
}    // namespace

void FailAt(uint64_t n) {
    calls = 0;
    fail_at = n;
}

uint64_t Stop() {
    fail_at = 0;
    return calls;
}

}    // namespace corvane::test::allocation

// The thread sanitizer cannot be linked with another operator new: nothing is counted and nothing fails there.
#if defined(__SANITIZE_THREAD__)
#define CORVANE_TEST_KEEPS_NEW
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define CORVANE_TEST_KEEPS_NEW
#endif
#endif

#if defined(CORVANE_TEST_KEEPS_NEW)

bool corvane::test::allocation::Works() {
    return false;
}

#else

namespace corvane::test::allocation {

bool Works() {
    return true;
}

static void* Allocate(size_t size) noexcept {
    if (++calls == fail_at)
        return nullptr;
    return std::malloc(size == 0 ? 1 : size);
}

static void* AllocateAligned(size_t size, size_t alignment) noexcept {
    return ++calls == fail_at ? nullptr : std::aligned_alloc(alignment, size);
}

}    // namespace corvane::test::allocation

void* operator new(size_t size) {
    if (void* memory = corvane::test::allocation::Allocate(size))
        return memory;
    throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return corvane::test::allocation::Allocate(size);
}
void* operator new(size_t size, std::align_val_t alignment) {
    if (void* memory = operator new(size, alignment, std::nothrow))
        return memory;
    throw std::bad_alloc();
}
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    const auto align = static_cast<size_t>(alignment);
    return corvane::test::allocation::AllocateAligned((size + align - 1) / align * align, align);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
// The array forms forward by default, but not where a sanitizer brings its own.
void* operator new[](size_t size) {
    return operator new(size);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}

#endif
