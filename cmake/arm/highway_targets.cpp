// What the tests ask of Highway's library, which is not there for ARM: of one instruction set there is nothing to choose.
#include <hwy/highway.h>
#include <hwy/targets.h>

namespace hwy {

int64_t SupportedTargets() {
    return HWY_TARGETS;
}
void SetSupportedTargetsForTest(int64_t) {}

}    // namespace hwy
