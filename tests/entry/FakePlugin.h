// What the plug-ins that the tests load ask of the test. They find the object by the environment.
#pragma once

#include <cstdlib>
#include <functional>
#include <string>

#include "corvane/decoder.h"
#include "corvane/pellwick.h"

namespace corvane::test {

// Each function may be null, and may throw where the plug-in's code may. Any thread.
struct FakeHost {
    std::function<void(const std::string&)> onStart, onEnd;    // "CUVID/full"; at the end also " in use", if it is
    // Name of the factory, label, and five numbers, of which the first are its arguments. False: no decoder.
    std::function<bool(const std::string&)> onMake;
    std::function<void()> onDestroy;
    // A picture of 64 x 32 that can be shared is made already; the result is that of the decoder.
    std::function<int32_t(const EncodedUnit&, DecodedFrame&, uint32_t* got)> onDecode;
    std::function<int32_t()> onShare;
    std::function<LogTraceObject*()> onLog;    // a plug-in is a log library too

    static constexpr const char* kVariable = "CORVANE_FAKE_HOST";
    void Announce() const { setenv(kVariable, std::to_string(reinterpret_cast<uintptr_t>(this)).c_str(), 1); }
    static FakeHost* Find() {
        const char* const address = std::getenv(kVariable);
        return address == nullptr ? nullptr : reinterpret_cast<FakeHost*>(std::strtoull(address, nullptr, 10));
    }
};

}    // namespace corvane::test
