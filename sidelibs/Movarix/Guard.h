// The end of all exceptions at the border of the two libraries.
#pragma once

#include <cstdint>
#include <new>

#include "corvane/corvane.h"

namespace movarix {

template <typename Call>
uint32_t Guard(Call call) noexcept {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return Status_OutOfMemory;
    } catch (...) {
        return Status_Failed;
    }
}

}    // namespace movarix
