#include "platform/Library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "base/FailurePoint.h"

namespace corvane::test {
namespace {

bool Loaded() {
    void* const library = dlopen(PLAIN_C_DECODER, RTLD_NOW | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
}

TEST(Library, OpensFindsAndClosesAndEachMayFail) {
    const struct {
        const char *file, *symbol;
        uint64_t failAt;    // of the calls; 0: none
        bool opens, finds, stays;
    } rows[] = {
        {PLAIN_C_DECODER, "liveDecoders", 0, true, true, false},
        {PLAIN_C_DECODER, "deadDecoders", 0, true, false, false},
        {"none.so", "liveDecoders", 0, false, false, false},
        {PLAIN_C_DECODER, "liveDecoders", 1, false, false, false},
        {PLAIN_C_DECODER, "liveDecoders", 2, true, false, false},
        {PLAIN_C_DECODER, "liveDecoders", 3, true, true, true},    // last: nobody closes it any more
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), row.failAt, false);
        Library library;
        EXPECT_EQ(library.Open(row.file), row.opens);
        Library moved = std::move(library);
        EXPECT_EQ(library.Find<int32_t>(row.symbol), nullptr);
        EXPECT_EQ(moved.Find<int32_t>(row.symbol) != nullptr, row.finds);
        EXPECT_EQ(Loaded(), row.opens);
        EXPECT_EQ(dlsym(RTLD_DEFAULT, "liveDecoders"), nullptr) << "lent to others";
        moved.Close();
        failure::Disarm();
        EXPECT_EQ(Loaded(), row.stays);
    }
}

}    // namespace
}    // namespace corvane::test
