#include "picture/BitmapPool.h"

#include <cstring>
#include <utility>
#include <vector>

#include "base/Limits.h"
#include "base/Mutex.h"
#include "picture/BmpFile.h"
#include "platform/WholeFile.h"
#include "platform/raster/Surface.h"

namespace corvane {

namespace {

constexpr uint32_t kColors = 0xFFFFFFu;

const uint32_t* RowOf(const ConstPictureView& picture, uint32_t y) {
    return reinterpret_cast<const uint32_t*>(picture.Row(y));
}

uint64_t HashOf(const ConstPictureView& picture) {
    uint64_t hash = uint64_t{picture.size.width} << 32 | picture.size.height;
    for (uint32_t y = 0; y < picture.size.height; ++y) {
        const uint32_t* const row = RowOf(picture, y);
        for (uint32_t x = 0; x < picture.size.width; ++x)
            hash = (hash ^ (row[x] & kColors)) * 0x9E3779B97F4A7C15u;
    }
    return hash;
}

bool Equal(const ConstPictureView& a, const ConstPictureView& b) {
    if (a.size != b.size)
        return false;
    for (uint32_t y = 0; y < a.size.height; ++y) {
        const uint32_t* const first = RowOf(a, y);
        const uint32_t* const second = RowOf(b, y);
        uint32_t difference = 0;
        for (uint32_t x = 0; x < a.size.width; ++x)
            difference |= first[x] ^ second[x];
        if ((difference & kColors) != 0)
            return false;
    }
    return true;
}

// The pool holds weak references; its users own the pictures.
class Pool {
public:
    static Pool& Instance() {
        static Pool pool;
        return pool;
    }

    BitmapPtr Add(Raster picture) {
        const uint64_t hash = HashOf(picture.View());
        const MutexLock lock(m_mutex);
        std::erase_if(m_entries, [](const Entry& entry) { return entry.picture.expired(); });
        for (const Entry& entry : m_entries) {
            if (entry.hash != hash)
                continue;
            if (BitmapPtr held = entry.picture.lock(); held != nullptr && Equal(held->View(), picture.View()))
                return held;
        }
        BitmapPtr added = std::make_shared<const Raster>(std::move(picture));
        m_entries.push_back({hash, added});
        return added;
    }

    size_t Count() {
        const MutexLock lock(m_mutex);
        size_t count = 0;
        for (const Entry& entry : m_entries)
            count += entry.picture.expired() ? 0 : 1;
        return count;
    }

private:
    struct Entry {
        uint64_t hash;
        std::weak_ptr<const Raster> picture;
    };
    Mutex m_mutex;
    std::vector<Entry> m_entries GUARDED_BY(m_mutex);
};

}    // namespace

BitmapPtr BitmapPool::Add(Raster picture) {
    return Pool::Instance().Add(std::move(picture));
}

size_t BitmapPool::Count() {
    return Pool::Instance().Count();
}

Status BitmapPool::Load(const char* path, BitmapPtr& out) {
    AlignedBuffer memory;
    std::span<const uint8_t> file;
    Status status = ReadWholeFile(path, limits::kMaxPictureFileBytes, memory, file);
    Raster picture;
    if (Ok(status)) {
        const bool bmp = file.size() >= 2 && file[0] == 'B' && file[1] == 'M';
        status = bmp ? ReadBmp(file, picture) : ReadPng(file, picture);
    }
    if (Ok(status))
        out = Add(std::move(picture));
    return status;
}

Status BitmapPool::Copy(struct _cairo_surface* surface, BitmapPtr& out) {
    Raster picture;
    const Status status = CopySurface(surface, picture);
    if (Ok(status))
        out = Add(std::move(picture));
    return status;
}

}    // namespace corvane
