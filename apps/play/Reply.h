// Owns memory that xcb allocated.
#pragma once

#include <cstdlib>
#include <memory>

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using Reply = std::unique_ptr<T, FreeMemory>;
