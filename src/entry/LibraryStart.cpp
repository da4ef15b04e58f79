// What happens when the library is loaded. Programs that link the rooms as an archive do not get this file.
#include "entry/Logger.h"

namespace {

// Runs inside the host's start or its dlopen, before the host can call anything.
__attribute__((constructor)) void OnLoad() {
    corvane::Logger::Start("Pellwick.so");
}

}    // namespace
