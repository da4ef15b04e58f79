// One AVI file, through libavformat: OpenDML where it grows beyond 1 GiB. After a failure, and where the process ends
// before Finish, the file has all chunks up to the last write and no index, which players rebuild.
#pragma once

#include <cstdint>
#include <optional>

#include "FFmpeg.h"
#include "FileClock.h"
#include "OutputFile.h"
#include "Unit.h"

namespace movarix {

class AviFile {
public:
    // Writes the header. At least one of both formats is given. Status() says whether that worked. Raises
    // std::bad_alloc.
    AviFile(OutputFile&& file, const std::optional<PictureFormat>& picture, Period period,
            const std::optional<SoundFormat>& sound);
    AviFile(const AviFile&) = delete;
    AviFile& operator=(const AviFile&) = delete;

    // At a place of PictureClock; places in between that have none get chunks without bytes. `bytes` begin with a start
    // code where their type has them.
    void WritePicture(const View& bytes, bool key, int64_t place);
    // Whole blocks.
    void WriteSound(const View& bytes, uint64_t samples);
    // Brings what was written to the system, so that it survives the process.
    void Flush() { avio_flush(m_io.get()); }
    // Writes the index and completes the header. Without it the file is as after the end of the process.
    void Finish();

    // Of all calls so far: Status_Ok, MOVARIX_SYSTEM_ERROR, or another negative status.
    uint32_t Status() const { return m_status; }
    // Of the file, with what waits in memory.
    uint64_t FileBytes() const { return static_cast<uint64_t>(m_end); }

private:
    void AddPictures(const PictureFormat& picture, Period period);
    void AddSound(const SoundFormat& sound);
    void Write(int stream, const View& bytes, bool key, int64_t place);
    void Keep(int result);

    OutputFile m_file;
    IoPtr m_io;
    FormatPtr m_format;
    PacketPtr m_packet;
    int m_pictures = -1;    // index of the stream, or -1
    int m_sound = -1;
    int64_t m_lastPlace = -1;
    int64_t m_blocks = 0;    // of sound, written
    uint32_t m_blockSamples = 1;
    int64_t m_end = 0;
    uint32_t m_status;
};

}    // namespace movarix
