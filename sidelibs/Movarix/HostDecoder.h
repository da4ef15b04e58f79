// A decoder channel of the host, for transcoding. Made with the first frame.
#pragma once

#include "Writer.h"

namespace movarix {

class HostDecoder {
public:
    // `callback` gets each result, with `context`, inside Decode.
    HostDecoder(const Host& host, CorvaneRawCallback callback, void* context)
        : m_host(host), m_callback(callback), m_context(context) {}
    ~HostDecoder() { Delete(); }
    HostDecoder(const HostDecoder&) = delete;
    HostDecoder& operator=(const HostDecoder&) = delete;

    uint32_t Decode(const MediaFrameHeader& frame) {
        if (m_channel == nullptr) {
            if (m_host.callbacks.createDecoderChannel == nullptr ||
                m_host.callbacks.inputToBeDecodedMediaFrame == nullptr)
                return Status_NotSupported;
            const DecoderChannelSettings settings{m_callback, m_context, CORVANE_PICTURE_I420, 0};
            const uint32_t status = m_host.callbacks.createDecoderChannel(m_host.instance, &m_channel, &settings);
            if (Failed(status) || m_channel == nullptr)
                return Failed(status) ? status : Status_Failed;
        }
        return m_host.callbacks.inputToBeDecodedMediaFrame(m_channel, &frame);
    }
    void Delete() {
        if (m_channel != nullptr && m_host.callbacks.deleteDecoderChannel != nullptr)
            m_host.callbacks.deleteDecoderChannel(m_host.instance, &m_channel);
        m_channel = nullptr;
    }

private:
    const Host m_host;
    const CorvaneRawCallback m_callback;
    void* const m_context;
    void* m_channel = nullptr;
};

}    // namespace movarix
