#include "support/FailingAllocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace corvane::test::allocation {

namespace {
thread_local uint64_t calls = 0;
thread_local uint64_t failAt = 0;
}    // namespace

void FailAt(uint64_t n) {
    calls = 0;
    failAt = n;
}

uint64_t Stop() {
    failAt = 0;
    return calls;
}

}    // namespace corvane::test::allocation

// The thread sanitizer cannot be linked with another operator new: nothing is counted and nothing fails there.
#if defined(__has_feature)
#define CORVANE_TEST_HAS(feature) __has_feature(feature)
#else
#define CORVANE_TEST_HAS(feature) 0
#endif
#if defined(__SANITIZE_THREAD__) || CORVANE_TEST_HAS(thread_sanitizer)
#define CORVANE_TEST_KEEPS_NEW
#endif

#if defined(CORVANE_TEST_KEEPS_NEW)

bool corvane::test::allocation::Works() {
    return false;
}

#else

bool corvane::test::allocation::Works() {
    return true;
}

namespace {

constexpr size_t kAlignment = alignof(std::max_align_t);

void* OrNull(size_t size, size_t alignment = kAlignment) noexcept {
    using namespace corvane::test::allocation;
    return ++calls == failAt ? nullptr : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* OrThrow(size_t size, size_t alignment = kAlignment) {
    if (void* memory = OrNull(size, alignment))
        return memory;
    throw std::bad_alloc();
}

}    // namespace

// The array forms, too, since a sanitizer brings its own.
void* operator new(size_t size) {
    return OrThrow(size);
}
void* operator new[](size_t size) {
    return OrThrow(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return OrNull(size);
}
void* operator new(size_t size, std::align_val_t alignment) {
    return OrThrow(size, static_cast<size_t>(alignment));
}
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return OrNull(size, static_cast<size_t>(alignment));
}

#define CORVANE_TEST_DELETE(form, ...)                      \
    void operator form(void* memory __VA_ARGS__) noexcept { \
        std::free(memory);                                  \
    }
CORVANE_TEST_DELETE(delete)
CORVANE_TEST_DELETE(delete, , size_t)
CORVANE_TEST_DELETE(delete, , const std::nothrow_t&)
CORVANE_TEST_DELETE(delete, , std::align_val_t)
CORVANE_TEST_DELETE(delete[])
CORVANE_TEST_DELETE(delete[], , size_t)

#endif
