// Decodes a stream as fast as it goes, without a channel that presents: pictures for the contact sheet, raw pictures
// and sound for their files. One thread.
#pragma once

#include "ContactSheet.h"
#include "FrameRecord.h"
#include "Options.h"
#include "RawFiles.h"
#include "Reel.h"
#include "Statistics.h"
#include "corvane/corvane.h"

class DecoderFeed {
public:
    // `sheet` and `raw` may be null, and outlive the object.
    DecoderFeed(const Options& options, ContactSheet* sheet, RawFiles* raw)
        : m_options(options), m_sheet(sheet), m_raw(raw) {}
    ~DecoderFeed() { Delete(); }
    DecoderFeed(const DecoderFeed&) = delete;
    DecoderFeed& operator=(const DecoderFeed&) = delete;

    // False where the channel cannot be made.
    bool Open(void* instance);
    // A frame that cannot be decoded is counted.
    void Decode(const MediaFrameHeader& frame);
    int64_t FedMs() const { return m_timeMs; }
    Figures Now() const;
    void Delete();

private:
    static void OnDecoded(void* context, uint32_t code, void* record);
    void OnPicture(RawPictureInfo& picture);

    const Options& m_options;
    ContactSheet* const m_sheet;
    RawFiles* const m_raw;
    void* m_instance = nullptr;
    void* m_channel = nullptr;
    uint64_t m_fed = 0;
    uint64_t m_pictureCount = 0;
    int64_t m_timeMs = 0;    // of the frame that is being decoded
    ShownPictures m_pictures;
    ChannelStatistics m_atEnd{};
};
