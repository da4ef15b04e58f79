// Counts the calls of the calling thread to operator new, and makes the n-th of them fail. A program that uses this has
// its global operator new and delete replaced, of the aligned ones those that do not raise.
#pragma once

#include <cstdint>

namespace corvane::test::allocation {

// Counts from here; the n-th call (from 1) raises std::bad_alloc, none when n is 0.
void FailAt(uint64_t n);
// Calls since FailAt; stops the failing.
uint64_t Stop();

}    // namespace corvane::test::allocation
