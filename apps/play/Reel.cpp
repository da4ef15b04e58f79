#include "Reel.h"

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
    m_pictures.push_back({{picture.data, picture.data + picture.size}, picture.key, picture.timeMs});
    return true;
}
