#include "filters/FilterChain.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "base/PictureLayout.h"
#include "filters/FilterDeInterlace.h"
#include "filters/FilterPicture.h"
#include "filters/FilterPixelFormatChange.h"
#include "filters/FilterResize.h"
#include "filters/TessaroStage.h"

namespace corvane {

using QMRX::Filter::FilterArgs;
using QMRX::Filter::IFilter;
using QMRX::Filter::Picture;

namespace {

// The results of a step; a failure is negative.
constexpr int32_t kGoOn = 0;
constexpr int32_t kReachedDestination = 1;

// A picture with its own memory, which is kept while size and format stay the same.
class ScratchPicture {
public:
    // False when there is no memory or the size is beyond the limits.
    bool Ensure(uint32_t width, uint32_t height, uint32_t format) {
        const uint32_t stride = RowBytes(PF_I420, width);    // serves NV12 as well
        const bool fits = m_memory && m_stride == stride && m_picture.height == height;
        if (fits && m_picture.format == format)
            return true;
        if (!fits) {
            const uint64_t size = PictureBytes(PF_I420, width, height);
            // One more chroma row: YUVToRGB16 reads the chroma of an odd last row after the last V row.
            if (size == 0 || !m_memory.Allocate(size + stride)) {
                Free();
                return false;
            }
            m_stride = stride;
        }
        m_picture = RecordOf(LayOut(m_memory.Data(), stride, {width, height}, format));
        return true;
    }
    void Free() { m_memory.Free(); }
    Picture& Get() { return m_picture; }
    size_t Bytes() const { return m_memory.Size(); }

private:
    AlignedBuffer m_memory;
    uint32_t m_stride = 0;
    Picture m_picture{};
};

// An exception of a client's filter counts as -1.
int32_t RunClientFilter(IFilter& filter, Mutex* lock, FilterArgs& args) noexcept {
    try {
        std::optional<MutexLock> alone;
        if (lock != nullptr)
            alone.emplace(*lock);
        return filter.Process(&args);
    } catch (...) {
        return -1;
    }
}

bool NeedsSmoothing(const ChainSettings& settings, const MediaFrameImpl& frame) {
    return settings.deinterlaceEnabled && frame.Interlaced();
}

bool NeedsDeinterlace(const ChainSettings& settings, const MediaFrameImpl& frame) {
    return frame.FieldCoded() || NeedsSmoothing(settings, frame);
}

// Whether the steps can read the picture.
bool IsReadable(const ConstPictureView& picture) {
    return (picture.ThreePlanes() || picture.TwoPlanes()) && picture.Complete() &&
           PictureBytes(PF_I420, picture.size.width, picture.size.height) != 0 &&
           std::ranges::all_of(picture.stride, [](ptrdiff_t stride) { return std::in_range<int32_t>(stride); });
}

// The state of one run.
struct Passage {
    const ChainSettings& settings;
    const MediaFrameImpl& frame;
    Picture current{};    // what the next step reads, of (width, height)
    uint32_t width = 0;
    uint32_t height = 0;
    Picture destination{};    // of (targetWidth, targetHeight)
    uint32_t targetWidth = 0;
    uint32_t targetHeight = 0;
    uint32_t dewarpedWidth = 0;    // asked once, so that another answer cannot change the count of steps
    uint32_t dewarpedHeight = 0;
    size_t steps = 0;          // that are left; the last one writes into the destination
    uint32_t exchanges = 0;    // pictures written into D and E so far
    Smoothing smoothing = Smoothing::None;

    FilterArgs Args(Picture& to) const { return {&current, &to, width, height}; }
    void Advance(const Picture& to) {
        current = to;
        --steps;
    }
    bool NeedsResize() const { return width != targetWidth || height != targetHeight; }
};

}    // namespace

struct FilterChain::Parts {
    // The uses of the scratch pictures. A run frees the scratch pictures that it does not use.
    enum Purpose : size_t { A_Converted, B_Deinterlaced, C_Dewarped, D_Exchange, E_Exchange, kPurposes };

    int32_t CountSteps(Passage& run);
    int32_t ConvertInput(Passage& run);
    int32_t Deinterlace(Passage& run);
    int32_t Dewarp(Passage& run);
    int32_t Resize(Passage& run);
    int32_t ClientFilters(Passage& run);
    int32_t ChangeFormat(Passage& run);

    uint32_t PreferredFormat(const ChainSettings& settings, const MediaFrameImpl& frame, bool decodedIsI420) const;
    void FreeFrom(size_t first) {
        for (size_t i = first; i < kPurposes; ++i)
            scratch[i].Free();
        if (first < D_Exchange)    // the run does not resize
            resize.FreeScratch();
    }
    // D and E take turns. Frees those that this run did not use.
    void FreeUnusedExchanges(const Passage& run) { FreeFrom(D_Exchange + (run.exchanges < 2 ? run.exchanges : 2)); }
    ScratchPicture& NextExchange(const Passage& run) { return scratch[D_Exchange + run.exchanges % 2]; }

    QMRX::Filter::FilterDeInterlace deinterlace;
    QMRX::Filter::FilterPixelFormatChange convert;
    QMRX::Filter::FilterResize resize;
    std::unique_ptr<TessaroStage> dewarp;
    std::array<ScratchPicture, kPurposes> scratch;
};

uint32_t FilterChain::Parts::PreferredFormat(const ChainSettings& settings, const MediaFrameImpl& frame,
                                             bool decodedIsI420) const {
    const bool i420 =
        decodedIsI420 || NeedsDeinterlace(settings, frame) || dewarp != nullptr || !settings.clientFilters.empty();
    return i420 ? uint32_t{PF_I420} : uint32_t{PF_NV12};
}

int32_t FilterChain::Parts::CountSteps(Passage& run) {
    run.dewarpedWidth = run.width;
    run.dewarpedHeight = run.height;
    if (dewarp != nullptr) {
        const int32_t result = dewarp->Query(run.width, run.height, &run.dewarpedWidth, &run.dewarpedHeight);
        if (result < 0)
            return result;
        ++run.steps;
    }
    run.steps += NeedsDeinterlace(run.settings, run.frame) ? 1 : 0;
    run.steps += run.dewarpedWidth != run.targetWidth || run.dewarpedHeight != run.targetHeight ? 1 : 0;
    run.steps += run.settings.clientFilters.size();
    return kGoOn;
}

// Only a resize can be done in NV12; for other steps the picture is converted first.
int32_t FilterChain::Parts::ConvertInput(Passage& run) {
    const bool convertFirst =
        run.current.format == PF_NV12 && run.steps > 0 && PreferredFormat(run.settings, run.frame, false) == PF_I420;
    if (!convertFirst) {
        scratch[A_Converted].Free();
    } else {
        if (!scratch[A_Converted].Ensure(run.width, run.height, PF_I420))
            return -1;
        FilterArgs args = run.Args(scratch[A_Converted].Get());
        if (convert.Process(&args) < 0)
            return -1;
        run.current = scratch[A_Converted].Get();
    }
    run.steps += run.current.format != run.destination.format ? 1 : 0;
    return kGoOn;
}

int32_t FilterChain::Parts::Deinterlace(Passage& run) {
    const bool smooths = NeedsSmoothing(run.settings, run.frame);
    deinterlace.SetWeave(run.frame.FieldCoded());
    deinterlace.SetSmooth(smooths);
    if (!NeedsDeinterlace(run.settings, run.frame)) {
        scratch[B_Deinterlaced].Free();
        return kGoOn;
    }
    const bool last = run.steps == 1;
    if (last)
        FreeFrom(B_Deinterlaced);
    const bool room = last || scratch[B_Deinterlaced].Ensure(run.width, run.height, PF_I420);
    Picture& to = last ? run.destination : scratch[B_Deinterlaced].Get();
    FilterArgs args = run.Args(to);
    const bool failed = !room || deinterlace.Process(&args) < 0;
    if (smooths)
        run.smoothing = failed ? Smoothing::Refused : Smoothing::Done;
    if (failed)
        return -1;
    run.Advance(to);
    return last ? kReachedDestination : kGoOn;
}

int32_t FilterChain::Parts::Dewarp(Passage& run) {
    if (dewarp == nullptr) {
        scratch[C_Dewarped].Free();
        return kGoOn;
    }
    const bool last = run.steps == 1;
    if (last)
        FreeFrom(C_Dewarped);
    else if (!scratch[C_Dewarped].Ensure(run.dewarpedWidth, run.dewarpedHeight, run.current.format))
        return -1;
    Picture& to = last ? run.destination : scratch[C_Dewarped].Get();
    if (dewarp->Process(run.Args(to), run.dewarpedWidth, run.dewarpedHeight) < 0)
        return -1;
    run.Advance(to);
    run.width = run.dewarpedWidth;
    run.height = run.dewarpedHeight;
    return last ? kReachedDestination : kGoOn;
}

int32_t FilterChain::Parts::Resize(Passage& run) {
    if (!run.NeedsResize()) {
        resize.FreeScratch();
        return kGoOn;
    }
    const bool last = run.steps == 1;
    if (last)
        FreeFrom(D_Exchange);
    else if (!scratch[D_Exchange].Ensure(run.targetWidth, run.targetHeight, run.current.format))
        return -1;
    Picture& to = last ? run.destination : scratch[D_Exchange].Get();
    resize.SetType(run.settings.resizeType);
    resize.SetSize(run.targetWidth, run.targetHeight);
    FilterArgs args = run.Args(to);
    if (resize.Process(&args) < 0)
        return -1;
    run.Advance(to);
    run.width = run.targetWidth;
    run.height = run.targetHeight;
    ++run.exchanges;
    return last ? kReachedDestination : kGoOn;
}

int32_t FilterChain::Parts::ClientFilters(Passage& run) {
    for (IFilter* filter : run.settings.clientFilters) {
        const bool last = run.steps == 1;
        if (last)
            FreeUnusedExchanges(run);
        else if (!NextExchange(run).Ensure(run.width, run.height, PF_I420))
            return -1;
        Picture& to = last ? run.destination : NextExchange(run).Get();
        FilterArgs args = run.Args(to);
        if (RunClientFilter(*filter, run.settings.filterLock, args) < 0)
            return -1;
        run.Advance(to);
        ++run.exchanges;
        if (last)
            return kReachedDestination;
    }
    return kGoOn;
}

int32_t FilterChain::Parts::ChangeFormat(Passage& run) {
    FreeUnusedExchanges(run);
    FilterArgs args = run.Args(run.destination);
    return convert.Process(&args) < 0 ? -1 : kReachedDestination;
}

FilterChain::FilterChain() : m_parts(std::make_unique<Parts>()) {}

FilterChain::~FilterChain() = default;

uint32_t FilterChain::PreferredFormat(const ChainSettings& settings, const MediaFrameImpl& frame,
                                      const ConstPictureView& picture) const {
    return m_parts->PreferredFormat(settings, frame, picture.ThreePlanes());
}

void FilterChain::UpdateDewarp(const MediaFrameImpl& frame) {
    std::unique_ptr<TessaroStage>& dewarp = m_parts->dewarp;
    const LensRecord* record = frame.Lens();
    if (record == nullptr)
        dewarp.reset();
    else if (dewarp == nullptr)
        dewarp = TessaroStage::Make();
    if (dewarp != nullptr)
        dewarp->Update(*record);
}

int32_t FilterChain::OutputSize(PictureSize& size) {
    return m_parts->dewarp == nullptr ? 0 : m_parts->dewarp->Query(size.width, size.height, &size.width, &size.height);
}

bool FilterChain::PassesThrough(const ChainSettings& settings, const MediaFrameImpl& frame,
                                const ConstPictureView& picture, PictureSize size) {
    if (picture.size != size || m_parts->dewarp != nullptr || !settings.clientFilters.empty() ||
        NeedsDeinterlace(settings, frame) || !IsReadable(picture))
        return false;
    m_parts->FreeFrom(Parts::A_Converted);
    return true;
}

ChainResult FilterChain::Run(const ChainSettings& settings, const MediaFrameImpl& frame, const ConstPictureView& source,
                             const PictureView& destination) {
    Passage run{settings, frame};
    if (!IsReadable(source) || PictureBytes(PF_I420, destination.size.width, destination.size.height) == 0)
        return {-1};
    run.current = RecordOf(source);
    run.width = source.size.width;
    run.height = source.size.height;
    run.destination = RecordOf(destination);
    run.targetWidth = destination.size.width;
    run.targetHeight = destination.size.height;
    m_parts->convert.SetColours(source.colours);

    int32_t result = m_parts->CountSteps(run);
    if (result < 0)
        return {result};
    for (const auto step : {&Parts::ConvertInput, &Parts::Deinterlace, &Parts::Dewarp, &Parts::Resize,
                            &Parts::ClientFilters, &Parts::ChangeFormat}) {
        result = (m_parts.get()->*step)(run);
        if (result != kGoOn)
            break;
    }
    // Motion marks are drawn into the destination here.
    return {result < 0 ? -1 : 0, run.smoothing};
}

size_t FilterChain::ScratchBytes() const {
    size_t bytes = m_parts->deinterlace.ScratchBytes() + m_parts->resize.ScratchBytes();
    for (const ScratchPicture& picture : m_parts->scratch)
        bytes += picture.Bytes();
    return bytes;
}

}    // namespace corvane
