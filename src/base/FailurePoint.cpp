#include "base/FailurePoint.h"

namespace corvane::failure {

namespace {
std::atomic<uint64_t> hits{0};
std::atomic<uint64_t> failAt{0};
std::atomic<bool> failForGood{false};
}    // namespace

namespace detail {
std::atomic<uint32_t> armedMask{0};

bool HitArmed() noexcept {
    const uint64_t hit = hits.fetch_add(1) + 1;
    const uint64_t at = failAt.load();
    return hit == at || (hit > at && failForGood.load());
}
}    // namespace detail

void Arm(uint32_t mask, uint64_t n, bool forGood) {
    hits.store(0);
    failAt.store(n);
    failForGood.store(forGood);
    detail::armedMask.store(mask);
}

void Disarm() {
    detail::armedMask.store(0);
}

uint64_t Hits() {
    return hits.load();
}

}    // namespace corvane::failure
