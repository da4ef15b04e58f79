// What the raw callback of a channel delivers, in files: the pictures one after the other, the sound as WAV.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "Options.h"
#include "corvane/corvane.h"

class RawFiles {
public:
    // Creates the files that the options name; null with the reason in `error`, or without one where they name none.
    static std::unique_ptr<RawFiles> Open(const Options& options, std::string& error);
    ~RawFiles() = default;

    // From now on the channel delivers into the files, until it is deleted.
    void Attach(void* channel);
    // What a raw callback got.
    void Take(uint32_t code, void* record);
    // After the channel is gone. False with the reason in `error`.
    bool Close(std::string& error);

private:
    struct Closer {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    struct File {
        std::string name;
        std::unique_ptr<FILE, Closer> file{};
        bool failed = false;

        bool Create(std::string& error);
        void Write(const void* bytes, size_t size);
        bool Finish(std::string& error);
    };

    explicit RawFiles(const Options& options)
        : m_format(options.rawFormat), m_pictures{options.rawFile}, m_sound{options.rawSoundFile} {}
    void OnSound(const RawAudioInfo& sound);
    void WriteWavHeader();

    // Written by one thread at a time: raw callbacks of a channel do not overlap.
    const uint32_t m_format;    // CORVANE_PICTURE_*
    File m_pictures;
    File m_sound;
    uint32_t m_rate = 0;    // of the sound file; 0: no sound came
    uint16_t m_channels = 0;
    uint64_t m_soundBytes = 0;
    bool m_formatChanged = false;    // the rest of the sound is left out
};
