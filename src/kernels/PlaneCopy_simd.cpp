#include "kernels/PlaneCopy.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/PlaneCopy_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#if HWY_ARCH_X86
#include <cpuid.h>
#endif

#include <cstring>

#include "base/Sanitized.h"
#include "kernels/KernelResult.h"
#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN || !HWY_ARCH_X86
void CopyRun(const uint8_t* source, uint8_t* destination, size_t bytes) {
    std::memcpy(destination, source, bytes);
}
#else

// For a run larger than the second-level cache the string copy of the processor takes a fifth less time than memcpy
// from memory to memory: it does not fetch the lines that it overwrites. It leaves them in the cache, so the next
// reader takes no longer. Not every processor has a fast string copy.
bool CopiesStrings() {
    constexpr unsigned kErms = 1u << 9;    // of leaf 7, EBX
    unsigned a = 0, b = 0, c = 0, d = 0;
    return !kSanitized && __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & kErms) != 0;
}

void CopyRun(const uint8_t* source, uint8_t* destination, size_t bytes) {
    constexpr size_t kLarge = size_t{1} << 20;
    static const bool kFast = CopiesStrings();
    if (kFast && bytes >= kLarge)
        asm volatile("rep movsb" : "+D"(destination), "+S"(source), "+c"(bytes) : : "memory");
    else
        std::memcpy(destination, source, bytes);
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(CopyRun);

int32_t PlaneCopy(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                  uint32_t width, uint32_t height, uint32_t /*mode*/) {
    const bool tight = sourceStride == destinationStride && sourceStride == static_cast<ptrdiff_t>(width);
    if (!tight || source == nullptr || destination == nullptr)
        return ref::PlaneCopy(source, sourceStride, destination, destinationStride, width, height);
    HWY_DYNAMIC_DISPATCH(CopyRun)(source, destination, size_t{width} * height);
    return kDone;
}

}    // namespace corvane::kernels
#endif
