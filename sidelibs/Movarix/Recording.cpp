#include "Recording.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Writer.h"

namespace movarix {

namespace {

constexpr int64_t kHoldMs = 1000;
constexpr uint64_t kMaxHeldBytes = 16 << 20;
constexpr size_t kMaxHeld = 512;
constexpr double kFlushMs = 1000;    // of the file, that are lost at most when the process ends
constexpr uint32_t kMaxNumber = 1'000'000;

// NAME.avi for 1, NAME-2.avi for 2.
std::string PathOf(const std::string& path, uint32_t number) {
    if (number == 1)
        return path;
    const size_t name = path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1;
    const size_t dot = path.rfind('.');
    const size_t end = dot == std::string::npos || dot <= name ? path.size() : dot;
    return path.substr(0, end) + "-" + std::to_string(number) + path.substr(end);
}

Bytes Copied(const View& first, const View& second) {
    Bytes bytes;
    bytes.reserve(first.size + second.size);
    bytes.insert(bytes.end(), first.data, first.data + first.size);
    bytes.insert(bytes.end(), second.data, second.data + second.size);
    return bytes;
}

}    // namespace

// Of files after the first, names that are taken are passed over.
bool Recording::OpenNext() {
    int error = EEXIST;
    do
        error = m_next.Open(PathOf(m_settings.path, ++m_number), m_settings.replace);
    while (error == EEXIST && m_number > 1 && m_number < kMaxNumber);
    if (error != 0)
        m_status = MOVARIX_SYSTEM_ERROR(error);
    return error == 0;
}

uint32_t Recording::Open() {
    OpenNext();
    return m_status;
}

const Picture* Recording::FirstHeld() const {
    for (const Held& held : m_held)
        if (held.picture)
            return &*held.picture;
    return nullptr;
}

void Recording::Hold(const Picture& picture) {
    Held held;
    held.bytes = Copied(FirstHeld() == nullptr ? picture.sets : View{}, picture.bytes);
    held.picture = picture;
    m_heldBytes += held.bytes.size();
    m_held.push_back(std::move(held));
}

void Recording::Hold(const Sound& sound) {
    Held held;
    held.bytes = Copied({}, sound.bytes);
    held.sound = sound;
    m_heldBytes += held.bytes.size();
    m_held.push_back(std::move(held));
}

bool Recording::IsHoldOver() const {
    if (m_held.empty())
        return false;
    const Picture* const first = FirstHeld();
    const std::optional<Picture>& last = m_held.back().picture;
    return (first == nullptr && !(m_expectsPictures && m_pictureComes)) || m_heldBytes >= kMaxHeldBytes ||
           m_held.size() >= kMaxHeld || (first != nullptr && last && last->timeMs - first->timeMs >= kHoldMs);
}

uint32_t Recording::Add(const Picture& picture) {
    if (Failed(m_status))
        return m_status;
    if (picture.format.width == 0 || picture.format.height == 0)
        return picture.begins ? Status_InvalidArgument : Status_Ok;
    const Picture* const held = FirstHeld();
    const PictureFormat* const format = m_picture ? &*m_picture : held != nullptr ? &held->format : nullptr;
    const bool changes = format == nullptr || picture.format != *format;
    const bool full = m_file != nullptr
                          ? IsFull() || m_soundWaits || m_clock.IsTooSlow()
                          : held != nullptr && IsFull(m_heldBytes, static_cast<double>(picture.timeMs - held->timeMs));
    const bool wasAwaited =
        picture.begins && m_file == nullptr && held == nullptr && std::exchange(m_pictureComes, false);
    if (wasAwaited) {
        // What is held is sound that belongs to it.
    } else if (picture.begins && (changes || full)) {
        WriteHeld();
        EndFile();
    } else if (changes) {
        return m_status;    // no key frame has come since the change, or the start
    }
    if (m_file == nullptr) {
        if (!Failed(m_status))
            Hold(picture);
        if (IsHoldOver())
            WriteHeld();
        return m_status;
    }
    m_file->WritePicture(picture.bytes, picture.key, m_clock.Place(picture.timeMs));
    Written();
    return m_status;
}

uint32_t Recording::Add(const Sound& sound) {
    if (Failed(m_status))
        return m_status;
    m_lastSound = sound.format;
    if (m_file == nullptr && m_held.empty() && m_expectsPictures && !m_pictureComes)
        return m_status;
    if (m_file != nullptr && (m_sound != sound.format || (!m_picture && IsFull()))) {
        if (m_picture) {
            m_soundWaits = true;
            return m_status;
        }
        EndFile();
    }
    if (m_file == nullptr) {
        if (!Failed(m_status))
            Hold(sound);
        if (IsHoldOver())
            WriteHeld();
        return m_status;
    }
    WriteSound(sound);
    Written();
    return m_status;
}

// Writes the header for what is held back, and that.
void Recording::WriteHeld() {
    if (m_held.empty() || Failed(m_status))
        return;
    const std::vector<Held> heldBack = std::exchange(m_held, {});
    m_heldBytes = 0;
    std::vector<int64_t> times;
    m_picture.reset();
    m_sound.reset();
    for (const Held& held : heldBack) {
        if (held.picture) {
            m_picture = m_picture ? m_picture : held.picture->format;
            times.push_back(held.picture->timeMs);
        } else {
            m_sound = m_sound ? m_sound : held.sound.format;
        }
    }
    if (!m_sound)
        m_sound = m_lastSound;    // it comes again
    if (!m_next.IsOpen() && !OpenNext())
        return;
    m_origin = m_picture ? times.front() : heldBack.front().sound.timeMs;
    const Period period = PeriodOf(std::move(times));
    m_file = std::make_unique<AviFile>(std::move(m_next), m_picture, period, m_sound);
    m_clock = PictureClock(period, m_settings.live);
    m_soundClock.reset();
    m_flushedMs = 0;
    for (const Held& held : heldBack) {
        const View bytes{held.bytes.data(), held.bytes.size()};
        if (held.picture) {
            m_file->WritePicture(bytes, held.picture->key, m_clock.Place(held.picture->timeMs));
        } else {
            Sound sound = held.sound;
            sound.bytes = bytes;
            WriteSound(sound);
        }
    }
    Written();
}

void Recording::WriteSound(const Sound& sound) {
    if (m_sound != sound.format) {
        m_soundWaits = true;
        return;
    }
    if (!m_soundClock)
        m_soundClock.emplace(sound.format.rate, m_settings.live, m_origin, std::max(m_clock.LastMs(), 0.0));
    const int64_t silence = m_soundClock->Silence(sound.timeMs, sound.samples);
    if (silence < 0)
        return;
    WriteSilence(static_cast<uint64_t>(silence));
    m_file->WriteSound(sound.bytes, sound.samples);
    m_soundClock->Advance(sound.samples);
}

// In chunks of a second, or of a block where a chunk is a block.
void Recording::WriteSilence(uint64_t samples) {
    const uint32_t blockSamples = m_sound->BlockSamples();
    uint64_t blocks = samples / blockSamples;
    if (blocks == 0)
        return;
    const Bytes block = m_sound->SilentBlock();
    const uint64_t most = m_sound->BlockBytes() == 0 ? 1 : std::max(m_sound->rate / blockSamples, 1u);
    Bytes chunk;
    for (uint64_t count = 0; blocks > 0 && !Failed(m_file->Status()); blocks -= count) {
        count = std::min(blocks, most);
        while (chunk.size() < count * block.size())
            chunk.insert(chunk.end(), block.begin(), block.end());
        m_file->WriteSound({chunk.data(), static_cast<size_t>(count) * block.size()}, count * blockSamples);
        m_soundClock->Advance(count * blockSamples);
    }
}

void Recording::Written() {
    const double end = m_picture ? m_clock.LastMs() : m_soundClock ? m_soundClock->EndMs() : 0;
    if (end - m_flushedMs >= kFlushMs) {
        m_file->Flush();
        m_flushedMs = end;
    }
    m_bytes = m_file->FileBytes();
    m_status = m_file->Status();
    if (Failed(m_status))
        m_file.reset();
}

bool Recording::IsFull(uint64_t bytes, double ms) const {
    constexpr double kSlackMs = 0.5;
    return (m_settings.maxBytes != 0 && bytes >= m_settings.maxBytes) ||
           (m_settings.maxSeconds != 0 && ms + kSlackMs >= 1000.0 * m_settings.maxSeconds);
}

bool Recording::IsFull() const {
    return m_file != nullptr && IsFull(m_file->FileBytes(), m_picture      ? m_clock.EndMs()
                                                            : m_soundClock ? m_soundClock->EndMs()
                                                                           : 0);
}

bool Recording::WantsKey(int64_t timeMs) const {
    if (m_file != nullptr)
        return !m_picture || IsFull();
    const Picture* const held = FirstHeld();
    return held == nullptr || IsFull(m_heldBytes, static_cast<double>(timeMs - held->timeMs));
}

void Recording::EndFile() {
    if (m_file == nullptr)
        return;
    m_file->Finish();
    m_bytes = m_file->FileBytes();
    m_status = m_file->Status();
    m_file.reset();
    m_picture.reset();
    m_soundWaits = false;
}

uint32_t Recording::Finish() {
    WriteHeld();
    EndFile();
    m_next.Close();
    return m_status;
}

}    // namespace movarix
