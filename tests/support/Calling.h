// Callbacks of a client, with a closure for their context.
#pragma once

#include <functional>

#include "base/ClientCallback.h"

namespace corvane::test {

// Calls `closure`, which must outlive it.
template <typename... Arguments>
ClientCallback<void (*)(void*, Arguments...)> Calling(std::function<void(Arguments...)>& closure) {
    return {[](void* context, Arguments... arguments) {
                (*static_cast<std::function<void(Arguments...)>*>(context))(arguments...);
            },
            &closure};
}

}    // namespace corvane::test
