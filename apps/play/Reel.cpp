#include "Reel.h"

#include <span>
#include <utility>

const Reel::Picture* Reel::At(uint64_t number) {
    while (number >= m_first + m_pictures.size())
        if (m_ended || !Read())
            return nullptr;
    return &m_pictures[number - m_first];
}

void Reel::Forget(uint64_t number) {
    for (; m_first < number && !m_pictures.empty(); ++m_first)
        m_pictures.pop_front();
}

bool Reel::Read() {
    EncodedPicture picture{};
    const bool read = m_source.Next(picture) || (--m_turns > 0 && m_source.Rewind() && m_source.Next(picture));
    m_ended = !read || (m_seconds > 0 && static_cast<double>(picture.timeMs) >= m_seconds * 1000);
    if (m_ended)
        return false;
    const std::span<const uint8_t> header = m_source.FrameHeader();
    std::vector<uint8_t> bytes;
    if (picture.sound.type == 0)
        bytes.assign(header.begin(), header.end());
    bytes.insert(bytes.end(), picture.data, picture.data + picture.size);
    m_pictures.push_back({std::move(bytes), picture.key, picture.timeMs, picture.sound});
    return true;
}
