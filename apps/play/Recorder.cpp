#include "Recorder.h"

#include "corvane/movarix.h"

namespace {

bool Failed(uint32_t status) {
    return static_cast<int32_t>(status) < 0;
}

}    // namespace

std::unique_ptr<Recorder> Recorder::Open(void* instance, const Options& options, std::string& error) {
    if (options.recordFile.empty())
        return nullptr;
    std::unique_ptr<Recorder> recorder(new Recorder(instance, options.recordFile));
    if (Failed(Corvane_CreateAVIChannel(instance, &recorder->m_channel))) {
        error = "nothing can be recorded: Movarix.so is not beside the library, or MovarixWriter.so not beside it";
        return nullptr;
    }
    if (options.compression != 0 &&
        Failed(Corvane_ChooseChannelVideoCompressor(recorder->m_channel, options.compression, 0, 0))) {
        error = "pictures cannot be compressed to that type here";
        return nullptr;
    }
    MovarixStart start{};
    start.recordSize = sizeof start;
    start.flags = MOVARIX_START_REPLACE;
    start.path = recorder->m_name.c_str();
    if (Failed(Corvane_StartAVIChannel(recorder->m_channel, reinterpret_cast<uintptr_t>(&start)))) {
        error = recorder->m_name + ": cannot be written";
        return nullptr;
    }
    return recorder;
}

Recorder::~Recorder() {
    if (m_channel != nullptr)
        Corvane_DeleteAVIChannel(m_instance, &m_channel);
}

// A frame of a type that AVI files do not have is left out.
void Recorder::Input(const MediaFrameHeader& frame) {
    if (m_failed)
        return;
    const uint32_t status = Corvane_InputAVIMedia(m_channel, reinterpret_cast<uintptr_t>(&frame));
    m_failed = Failed(status) && status != Status_UnsupportedMedia;
}

bool Recorder::Close(std::string& error) {
    if (m_channel == nullptr)
        return true;
    m_failed = Failed(Corvane_StopAVIChannel(m_channel)) || m_failed;
    Corvane_DeleteAVIChannel(m_instance, &m_channel);
    if (m_failed)
        error = m_name + ": cannot be written";
    return !m_failed;
}
