// Failure injection: every thread start and every fallible platform call of the library asks here whether it must fail.
// Tests arm it; unarmed it costs one relaxed load.
#pragma once

#include <atomic>
#include <cstdint>

namespace corvane::failure {

enum class Site : uint32_t { ThreadStart = 1, PlatformCall = 2 };

// Arms: the n-th hit (from 1) of any site in `mask` fails, and all after it when `forGood`.
void Arm(uint32_t mask, uint64_t n, bool forGood);
void Disarm();
// Hits counted since Arm.
uint64_t Hits();

namespace detail {
extern std::atomic<uint32_t> armedMask;
bool HitArmed() noexcept;
}    // namespace detail

// True: the caller must behave as if its call had failed.
inline bool MustFail(Site site) noexcept {
    return (detail::armedMask.load(std::memory_order_relaxed) & static_cast<uint32_t>(site)) != 0 && detail::HitArmed();
}

}    // namespace corvane::failure
