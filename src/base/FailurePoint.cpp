#include "base/FailurePoint.h"

namespace corvane::failure {

namespace {
std::atomic<uint64_t> hits{0};
std::atomic<uint64_t> fail_at{0};
std::atomic<bool> fail_for_good{false};
}    // namespace

namespace detail {
std::atomic<uint32_t> armed_mask{0};

bool HitArmed() noexcept {
    const uint64_t hit = hits.fetch_add(1) + 1;
    const uint64_t at = fail_at.load();
    return hit == at || (hit > at && fail_for_good.load());
}
}    // namespace detail

void Arm(uint32_t mask, uint64_t n, bool for_good) {
    hits.store(0);
    fail_at.store(n);
    fail_for_good.store(for_good);
    detail::armed_mask.store(mask);
}

void Disarm() {
    detail::armed_mask.store(0);
}

uint64_t Hits() {
    return hits.load();
}

}    // namespace corvane::failure
