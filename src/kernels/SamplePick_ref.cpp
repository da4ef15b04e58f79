#include "kernels/SamplePick.h"

namespace corvane::kernels::ref {

void PickRow(const uint32_t* columns, size_t count, const uint8_t* source, uint8_t* out) {
    for (size_t i = 0; i < count; ++i)
        out[i] = source[columns[i]];
}

}    // namespace corvane::kernels::ref
