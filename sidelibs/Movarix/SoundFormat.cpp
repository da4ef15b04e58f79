#include "Unit.h"

namespace movarix {

namespace {

constexpr uint32_t kAacSamples = 1024;

// The syntax elements of a raw block of AAC (ISO/IEC 14496-3, 4.4.2.1) whose channels have no scale factor bands.
class SilentAac {
public:
    explicit SilentAac(uint32_t channels) {
        static constexpr const char* kElements[] = {"", "s", "p", "sp", "sps", "spp", "sppl", "", "spppl"};
        for (const char* element = kElements[channels <= 8 ? channels : 0]; *element != 0; ++element)
            Element(*element);
        Put(7, 3);    // ID_END
    }
    Bytes Packed() const { return m_bytes; }

private:
    void Put(uint32_t value, uint32_t bits) {
        while (bits-- > 0) {
            if (m_count++ % 8 == 0)
                m_bytes.push_back(0);
            m_bytes.back() = static_cast<uint8_t>(m_bytes.back() | (value >> bits & 1) << (7 - (m_count - 1) % 8));
        }
    }
    void Element(char kind) {
        Put(kind == 's' ? 0 : kind == 'p' ? 1 : 3, 3);
        uint32_t& tag = kind == 's' ? m_single : kind == 'p' ? m_pair : m_low;
        Put(tag++, 4);
        if (kind == 'p')
            Put(0, 1);    // no common window
        for (int channel = 0; channel < (kind == 'p' ? 2 : 1); ++channel)
            Put(0, 8 + 11 + 3);    // gain; a long window of no bands, no prediction; no pulses, no TNS, no gain control
    }

    Bytes m_bytes;
    uint32_t m_count = 0;
    uint32_t m_single = 0, m_pair = 0, m_low = 0;    // tags of the next elements
};

}    // namespace

uint32_t SoundFormat::BlockBytes() const {
    switch (type) {
    case CORVANE_STREAM_AAC:
        return 0;
    case CORVANE_STREAM_G726:
        return bits % 2 == 0 ? 1 : bits;
    case kPcm:
        return 2 * channels;
    default:
        return channels;
    }
}

uint32_t SoundFormat::BlockSamples() const {
    return type == CORVANE_STREAM_AAC ? kAacSamples : type == CORVANE_STREAM_G726 ? BlockBytes() * 8 / bits : 1;
}

Bytes SoundFormat::SilentBlock() const {
    switch (type) {
    case CORVANE_STREAM_AAC:
        return SilentAac(channels).Packed();
    case kPcm:
        return Bytes(BlockBytes(), 0);
    case CORVANE_STREAM_ALAW:
        return Bytes(BlockBytes(), 0xD5);
    default:    // mu-law; codes of G.726 whose bits are all set are its smallest differences
        return Bytes(BlockBytes(), 0xFF);
    }
}

}    // namespace movarix
