// Callbacks and filters of a client that call a closure.
#pragma once

#include <functional>
#include <utility>

#include "base/ClientCallback.h"
#include "corvane/filter.h"

namespace corvane::test {

// Calls `closure`, which must outlive it.
template <typename... Arguments>
ClientCallback<void (*)(void*, Arguments...)> Calling(std::function<void(Arguments...)>& closure) {
    return {[](void* context, Arguments... arguments) {
                (*static_cast<std::function<void(Arguments...)>*>(context))(arguments...);
            },
            &closure};
}

class CallingFilter final : public QMRX::Filter::IFilter {
public:
    using Closure = std::function<int32_t(QMRX::Filter::FilterArgs*)>;
    explicit CallingFilter(Closure closure) : m_closure(std::move(closure)) {}
    int32_t Process(QMRX::Filter::FilterArgs* args) override { return m_closure(args); }

private:
    const Closure m_closure;
};

}    // namespace corvane::test
