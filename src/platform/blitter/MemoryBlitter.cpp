// The processor's backing of the blitter: all surfaces are memory of this process. The composite is the image of the
// window's sink itself, so that a picture is written once. Devices do not depend on their monitors.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "base/AlignedBuffer.h"
#include "base/Limits.h"
#include "base/PictureLayout.h"
#include "platform/blitter/Blitter.h"
#include "platform/blitter/TextSpans.h"
#include "platform/blitter/VideoBlit.h"
#include "platform/x11/WindowSink.h"

namespace corvane {

namespace {

constexpr uint32_t kPitchAlignment = 64;    // bytes: whole vectors, and whole rows of half the length

std::atomic<uint64_t> conversions{0};

class MemorySurface : public BlitSurface {
public:
    // Draws `source` into `destination`, as far as that lies on `to`.
    virtual BlitResult DrawOn(const PictureView& to, const Rect& destination, const Rect& source, VideoBlit& blit) = 0;
};

class MemoryVideo : public MemorySurface {
public:
    BlitResult DrawOn(const PictureView& to, const Rect& destination, const Rect& source, VideoBlit& blit) final {
        conversions.fetch_add(1, std::memory_order_relaxed);
        // An odd last column or row has no colour.
        const PictureSize size = m_picture.size;
        const ConstPictureView even = m_picture.Part({0, 0, size.width & ~1u, size.height & ~1u});
        return blit.Draw(to, destination, even, source) ? BlitResult::Ok : BlitResult::Failed;
    }
    void SetColours(const std::optional<ColourSignal>& colours) final { m_picture.colours = colours; }

protected:
    MemoryVideo() = default;
    explicit MemoryVideo(const ConstPictureView& picture) : m_picture(picture) {}

    ConstPictureView m_picture;
};

class OwnVideo final : public MemoryVideo {
public:
    bool Make(PictureSize size, uint32_t format) {
        m_pitch = (size.width + kPitchAlignment - 1) & ~(kPitchAlignment - 1);
        const size_t luma = size_t{m_pitch} * size.height;
        if (!m_memory.Allocate(luma + luma / 2))
            return false;
        std::memset(m_memory.Data() + luma, 128, luma / 2);    // no colour, in samples that are never written
        m_picture = LayOut(m_memory.Data(), m_pitch, size, format);
        return true;
    }

    BlitResult Lock(bool, uint8_t** data, uint32_t* pitch) override {
        *data = m_memory.Data();
        *pitch = m_pitch;
        return BlitResult::Ok;
    }
    BlitResult Unlock() override { return BlitResult::Ok; }
    BlitResult Restore() override { return BlitResult::Ok; }

private:
    uint32_t m_pitch = 0;
    AlignedBuffer m_memory;
};

// A decoder's picture, in the decoder's memory.
class WrappedVideo final : public MemoryVideo {
public:
    explicit WrappedVideo(const ConstPictureView& picture) : MemoryVideo(picture) {}
};

class MemoryTextSystem final : public MemorySurface {
public:
    bool Make(uint32_t width, uint32_t height) { return m_raster.Resize(width, height); }
    // Clears the rows that were drawn on; other rows are not written, so that they take no memory.
    BlitResult Fill(const Rect&, uint32_t) override {
        const PictureView& view = m_raster.View();
        for (uint32_t y = 0; y < view.size.height; ++y) {
            uint8_t* const row = view.Row(y);
            const auto* const pairs = reinterpret_cast<const uint64_t*>(row);
            uint64_t any = 0;    // without an early exit, so that the loop is vectorised
            for (ptrdiff_t i = 0; i < view.stride[0] / 8; ++i)
                any |= pairs[i];
            if (any != 0)
                std::memset(row, 0, static_cast<size_t>(view.stride[0]));
        }
        return BlitResult::Ok;
    }
    PictureView Drawing() override { return m_raster.View(); }
    BlitResult DrawOn(const PictureView& to, const Rect& destination, const Rect& source, VideoBlit&) override {
        corvane::Blit(to, destination.left, destination.top, m_raster.View(), source);
        return BlitResult::Ok;
    }

private:
    Raster m_raster;
};

class MemoryText final : public MemorySurface {
public:
    BlitResult Fill(const Rect&, uint32_t) override {
        m_spans.Clear();
        return BlitResult::Ok;
    }
    BlitResult Blit(const Rect&, BlitSurface& from, const Rect&) override {
        m_spans.Take(from.Drawing());
        return BlitResult::Ok;
    }
    BlitResult DrawOn(const PictureView& to, const Rect& destination, const Rect& source, VideoBlit&) override {
        m_spans.Lay(to, source, destination.left, destination.top);
        return BlitResult::Ok;
    }

private:
    TextSpans m_spans;
};

class MemoryComposite final : public BlitComposite {
public:
    BlitResult Begin(const BlitTarget& target) override {
        m_target = target;
        m_target.overview = nullptr;
        if (target.hidden) {
            m_target.sink = nullptr;
        } else {
            const WindowSink::State state = target.sink != nullptr ? target.sink->Prepare() : WindowSink::State::Absent;
            if (state == WindowSink::State::Absent)
                return target.window->ServerLost() ? BlitResult::SurfaceLost : BlitResult::Failed;
            if (state == WindowSink::State::Busy || state == WindowSink::State::Hidden)
                return BlitResult::StillDrawing;
            if (target.sink->Size() != target.size)
                return BlitResult::InvalidArgument;    // also where the window is too large
        }
        if (target.overview != nullptr && target.overview->Prepare() == WindowSink::State::Ready)
            m_target.overview = target.overview;
        return BlitResult::Ok;
    }

    bool Resize(uint32_t width, uint32_t height) override { return limits::FitsPicture(width, height); }

    BlitResult Fill(const Rect& rect, uint32_t color) override {
        const WindowSink::Writing writing = m_target.sink->Write();
        corvane::Fill(writing.Image(), rect, color);
        return BlitResult::Ok;
    }

    BlitResult Blit(const Rect& to, BlitSurface& from, const Rect& source) override {
        auto& surface = static_cast<MemorySurface&>(from);
        const bool aside = IsAside(to);
        WindowSink* const sink = aside ? m_target.overview : m_target.sink;
        if (sink == nullptr)
            return BlitResult::Ok;    // the window is not viewable now
        const WindowSink::Writing writing = sink->Write();
        return surface.DrawOn(writing.Image(), aside ? to.Moved(-m_target.room.left, -m_target.room.top) : to, source,
                              aside ? m_overviewBlit : m_blit);
    }

    bool Show(const Rect& part) {
        const bool aside = IsAside(part);
        const Rect place = aside ? part.Moved(-m_target.room.left, -m_target.room.top) : part;
        WindowSink* const sink = aside ? m_target.overview : m_target.sink;
        return sink != nullptr && sink->Put({&place, 1});
    }

private:
    bool IsAside(const Rect& rect) const {
        return !m_target.room.Empty() && rect.left >= m_target.room.left && rect.top >= m_target.room.top;
    }

    BlitTarget m_target;
    VideoBlit m_blit;
    VideoBlit m_overviewBlit;
};

class MemoryDevice final : public BlitDevice {
public:
    std::unique_ptr<BlitSurface> CreateVideo(uint32_t width, uint32_t height, uint32_t fourCC) override {
        if (!limits::FitsPicture(width, height) || (fourCC != kFourCCNV12 && fourCC != kFourCCYV12))
            return nullptr;
        auto made = std::make_unique<OwnVideo>();
        const uint32_t format = fourCC == kFourCCNV12 ? uint32_t{PF_NV12} : uint32_t{PF_YV12};
        return made->Make({width, height}, format) ? std::move(made) : nullptr;
    }
    bool WrapsVideo() const override { return true; }
    std::unique_ptr<BlitSurface> WrapVideo(const ConstPictureView& picture) override {
        return std::make_unique<WrappedVideo>(picture);
    }
    std::unique_ptr<BlitComposite> CreateComposite(uint32_t width, uint32_t height) override {
        return limits::FitsPicture(width, height) ? std::make_unique<MemoryComposite>() : nullptr;
    }
    std::unique_ptr<BlitSurface> CreateTextSystem(uint32_t width, uint32_t height) override {
        auto made = std::make_unique<MemoryTextSystem>();
        return made->Make(width, height) ? std::move(made) : nullptr;
    }
    std::unique_ptr<BlitSurface> CreateText(uint32_t, uint32_t) override { return std::make_unique<MemoryText>(); }

    BlitResult GetScanLine(const WindowWatch& window, int64_t now, uint32_t* line) override {
        const std::optional<Beam> beam = window.GetBeam();
        if (!beam)
            return BlitResult::Failed;
        const int64_t at = beam->LineAt(now);
        if (at == Beam::kBlank)
            return BlitResult::InBlank;
        *line = static_cast<uint32_t>(at);
        return BlitResult::Ok;
    }

    BlitResult IsLost(const WindowWatch& window) override { return Lost(window); }
    BlitResult RestorePrimary(const WindowWatch& window) override { return Lost(window); }
    BlitResult Recreate() override { return BlitResult::Ok; }
    BlitResult Copy(const WindowWatch& window, const Rect&, BlitComposite& from, const Rect& source) override {
        const bool shown = static_cast<MemoryComposite&>(from).Show(source);
        const BlitResult result = Lost(window);
        return shown || Failed(result) ? result : BlitResult::StillDrawing;
    }

private:
    static BlitResult Lost(const WindowWatch& window) {
        return window.ServerLost() ? BlitResult::SurfaceLost : BlitResult::Ok;
    }
};

class MemoryBlitter final : public Blitter {
public:
    std::vector<Monitor> Enumerate() override { return {}; }    // each is added with the first window on it
    Monitor Desktop() override { return {}; }
    std::optional<Monitor> FindMonitor(const WindowWatchPtr& window) override {
        return window != nullptr ? window->GetMonitor() : Monitor{};
    }
    std::unique_ptr<BlitDevice> CreateDevice(const Monitor&) override { return std::make_unique<MemoryDevice>(); }
};

}    // namespace

Blitter& Blitter::Processor() {
    static auto& blitter = *new MemoryBlitter;    // never destroyed: renderers may die late
    return blitter;
}

uint64_t Blitter::Conversions() {
    return conversions.load(std::memory_order_relaxed);
}

}    // namespace corvane
