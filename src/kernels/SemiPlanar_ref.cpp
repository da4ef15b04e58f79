#include "kernels/SemiPlanar.h"

namespace corvane::kernels {

namespace ref {

void MergeRow(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t pairs) {
    for (size_t i = 0; i < pairs; ++i) {
        uv[2 * i] = u[i];
        uv[2 * i + 1] = v[i];
    }
}

void SplitRow(const uint8_t* uv, uint8_t* u, uint8_t* v, size_t pairs) {
    for (size_t i = 0; i < pairs; ++i) {
        u[i] = uv[2 * i];
        v[i] = uv[2 * i + 1];
    }
}

}    // namespace ref

}    // namespace corvane::kernels
