// Counts the calls of the calling thread to operator new, and makes the n-th of them fail. A program that uses this has
// its global operator new and delete replaced.
#pragma once

#include <cstdint>

namespace corvane::test::allocation {

// False where a sanitizer's own operator new cannot be replaced: nothing is counted and nothing fails.
bool Works();

// Counts from here; the n-th call (from 1) raises std::bad_alloc, none when n is 0.
void FailAt(uint64_t n);
// Calls since FailAt; stops the failing.
uint64_t Stop();

}    // namespace corvane::test::allocation
