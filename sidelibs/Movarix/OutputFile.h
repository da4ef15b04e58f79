// One file that is written from its start, by descriptor. What cannot be written is an error number once and for all,
// and never a signal.
#pragma once

#include <cstdint>
#include <string>

namespace movarix {

class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile() { Close(); }
    OutputFile(OutputFile&& other) noexcept { *this = static_cast<OutputFile&&>(other); }
    OutputFile& operator=(OutputFile&& other) noexcept;

    // Makes the file, or with `replace` opens the one that is there, which is emptied by the first Write. 0, or the
    // errno: EEXIST, EISDIR, ENOENT, EACCES, EROFS; EINVAL for what is no plain file, which is left as it is.
    int Open(const std::string& path, bool replace);

    // 0, or the errno, which stays: all later calls return it. ENOENT: the file was deleted meanwhile.
    int Write(const uint8_t* data, uint64_t size);
    int Seek(uint64_t place);

    // Removes a file that was made here and never written.
    void Close();

    bool IsOpen() const { return m_descriptor >= 0; }
    int Error() const { return m_error; }
    uint64_t Place() const { return m_place; }
    uint64_t Bytes() const { return m_bytes; }

private:
    int m_descriptor = -1;
    int m_error = 0;
    bool m_made = false;       // was not there before
    bool m_written = false;    // something was written, or a file that was there was emptied
    uint64_t m_place = 0;
    uint64_t m_bytes = 0;
    std::string m_path;
};

}    // namespace movarix
