// What a render manager tells its client, counted.
#pragma once

#include <atomic>

#include "manager/RenderMgr.h"

namespace corvane::test {

// Lives longer than the manager.
struct Told {
    std::atomic<int> presents{0}, replaced{0};

    void By(CRenderMgr& manager) {
        manager.SetAfterDisplay([](void* told, const AfterDisplayRecord*) { ++static_cast<Told*>(told)->presents; },
                                this);
        manager.SetStreamInfo([](void* told, uint32_t code, uint64_t,
                                 uint64_t) { static_cast<Told*>(told)->replaced += code == 9 ? 1 : 0; },
                              this);
    }
};

}    // namespace corvane::test
