// The files of one recording, from a start to its stop: which pictures and sounds go into which file, and where they
// lie in it.
//
// What comes is held back for the first second of each file, since its header says what streams it has and at which
// rate, which only the frames themselves show.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AviFile.h"
#include "FileClock.h"
#include "Unit.h"

namespace movarix {

struct RecordingSettings {
    std::string path;    // absolute
    bool replace = false;
    bool live = false;
    uint64_t maxBytes = 0;    // 0: no limit
    uint32_t maxSeconds = 0;
};

class Recording {
public:
    explicit Recording(RecordingSettings settings) : m_settings(std::move(settings)) {}

    // Makes the first file. As all below, returns Status(); they raise std::bad_alloc, and then the picture or sound is
    // lost.
    uint32_t Open();

    // While `expected` sound waits for the first picture of a file; else it begins files.
    void ExpectPictures(bool expected) { m_expectsPictures = expected; }
    // A picture is being compressed: sound waits for it from here on, and is not passed over.
    void PictureComes() { m_pictureComes = m_file == nullptr && FirstHeld() == nullptr; }
    // No more sound is to come: later files have no stream for it.
    void ForgetSound() { m_lastSound.reset(); }
    uint32_t Add(const Picture& picture);
    uint32_t Add(const Sound& sound);

    // Whether a picture of this time should be a key frame, where an encoder can choose.
    bool WantsKey(int64_t timeMs) const;

    // Writes what is held back, and the index.
    uint32_t Finish();

    // Negative once something could not be written.
    uint32_t Status() const { return m_status; }
    // Of the current file; before its header 0, after its end what it has.
    uint64_t FileBytes() const { return m_bytes; }

private:
    // A picture or sound that waits for the header.
    struct Held {
        Bytes bytes;
        std::optional<Picture> picture;
        Sound sound;
    };

    bool OpenNext();
    void Hold(const Picture& picture);
    void Hold(const Sound& sound);
    bool IsHoldOver() const;
    void WriteHeld();
    void WriteSound(const Sound& sound);
    void WriteSilence(uint64_t samples);
    void Written();
    void EndFile();
    bool IsFull() const;
    bool IsFull(uint64_t bytes, double ms) const;
    const Picture* FirstHeld() const;

    const RecordingSettings m_settings;
    uint32_t m_status = Status_Ok;
    uint64_t m_bytes = 0;
    bool m_expectsPictures = true;
    bool m_pictureComes = false;    // the first of a file

    std::optional<SoundFormat> m_lastSound;    // of the last sound that came

    uint32_t m_number = 0;    // of the last file that was made
    OutputFile m_next;        // made, without a header
    std::vector<Held> m_held;
    uint64_t m_heldBytes = 0;

    // Of the file that is being written.
    std::unique_ptr<AviFile> m_file;
    std::optional<PictureFormat> m_picture;
    std::optional<SoundFormat> m_sound;
    int64_t m_origin = 0;    // time of its first frame
    PictureClock m_clock;
    std::optional<SoundClock> m_soundClock;
    bool m_soundWaits = false;    // there is sound that it has no stream for
    double m_flushedMs = 0;       // written to the system up to here
};

}    // namespace movarix
