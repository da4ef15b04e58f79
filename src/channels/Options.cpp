#include "channels/Options.h"

#include <algorithm>

#include "channels/ChannelDecoder.h"
#include "channels/StreamChannel.h"
#include "corvane/corvane.h"

namespace corvane {

namespace {

using Targets = OptionTargets;

// Calls `set` with what makes the pictures of the channel.
template <typename Set>
Status OnPictures(Targets& targets, Set set) {
    if (targets.stream != nullptr)
        set(targets.stream->Render());
    else
        set(*targets.decoder);
    return Status::Ok;
}

template <uint32_t Edges::*Edge>
Status SetMargin(Targets& targets, uint64_t value, uint64_t) {
    targets.stream->Render().SetMargin(Edge, static_cast<uint32_t>(value));
    return Status::Ok;
}

template <void (VideoDecoderHolder::*Setter)(uint32_t)>
Status SetDecoder(Targets& targets, uint64_t value, uint64_t) {
    (targets.video->*Setter)(static_cast<uint32_t>(value));
    return Status::Ok;
}

template <void (CRenderMgr::*Setter)(uint32_t)>
Status SetRender(Targets& targets, uint64_t value, uint64_t) {
    (targets.stream->Render().*Setter)(static_cast<uint32_t>(value));
    return Status::Ok;
}

template <uint32_t RawSettings::*Field>
Status SetRaw(Targets& targets, uint64_t value, uint64_t) {
    targets.raw->Set(Field, static_cast<uint32_t>(value));
    return Status::Ok;
}

// Here the context comes first.
template <ClientCallback<CorvaneRawCallback> RawSettings::*Which>
Status SetRawCallback(Targets& targets, uint64_t value, uint64_t extra) {
    targets.raw->SetCallback(Which, {reinterpret_cast<CorvaneRawCallback>(extra), reinterpret_cast<void*>(value)});
    return Status::Ok;
}

Status SetDisplayArea(Targets& targets, uint64_t value, uint64_t extra) {
    if (value == 0)
        return Status::InvalidArgument;
    return targets.stream->Render().SetDisplayArea(*reinterpret_cast<const DisplayArea*>(value),
                                                   static_cast<uint32_t>(extra));
}

constexpr OptionRow kRows[] = {
    {CORVANE_OPTION_BORDER, kStreamKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         targets.stream->Render().SetNoBorder(value == 0);
         return Status::Ok;
     },
     "zero: the fixed border is not used"},
    {CORVANE_OPTION_RAW_PREFIX, kDecodingKinds, SetRaw<&RawSettings::prefix>, "bytes of 0 before each raw picture"},
    {CORVANE_OPTION_MARGIN_LEFT, kStreamKinds, SetMargin<&Edges::left>, "left, right, top, bottom margin"},
    {CORVANE_OPTION_MARGIN_RIGHT, kStreamKinds, SetMargin<&Edges::right>, "left, right, top, bottom margin"},
    {CORVANE_OPTION_MARGIN_TOP, kStreamKinds, SetMargin<&Edges::top>, "left, right, top, bottom margin"},
    {CORVANE_OPTION_MARGIN_BOTTOM, kStreamKinds, SetMargin<&Edges::bottom>, "left, right, top, bottom margin"},
    {CORVANE_OPTION_DISPLAY_AREA, kStreamKinds, SetDisplayArea, "pointer to DisplayArea"},
    {CORVANE_OPTION_MEDIA_MODE, kStreamKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         targets.stream->SetMediaMode(static_cast<uint32_t>(value));
         return Status::Ok;
     },
     "media mode"},
    {CORVANE_OPTION_RAW_PICTURES, kDecodingKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         targets.raw->Set(&RawSettings::pictures, value != 0);
         return Status::Ok;
     },
     "zero: no raw pictures"},
    {CORVANE_OPTION_RAW_SOUND, kDecodingKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         targets.raw->Set(&RawSettings::sound, value != 0);
         return Status::Ok;
     },
     "zero: no raw sound"},
    {CORVANE_OPTION_RAW_FORMAT, kDecodingKinds, SetRaw<&RawSettings::format>, "format of raw pictures"},
    {CORVANE_OPTION_JPEG_QUALITY, kDecodingKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         const auto quality = static_cast<uint32_t>(value);
         if (targets.stream != nullptr)
             targets.stream->Stills().SetQuality(quality);
         else
             targets.decoder->SetQuality(quality);
         return Status::Ok;
     },
     "quality of JPEG stills"},
    {CORVANE_OPTION_RAW_CALLBACK, kDecodingKinds, SetRawCallback<&RawSettings::first>, "context of the raw callback"},
    {CORVANE_OPTION_RAW_CALLBACK_2, kDecodingKinds, SetRawCallback<&RawSettings::second>, "context of a raw callback"},
    {CORVANE_OPTION_LOGO_FILE, kStreamKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         return value != 0 ? targets.stream->Render().SetLogoFile(reinterpret_cast<const char*>(value))
                           : Status::Failed;
     },
     "path (const char*) of a BMP or PNG file"},
    {CORVANE_OPTION_LOGO, kStreamKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         return targets.stream->Render().SetLogoBitmap(reinterpret_cast<struct _cairo_surface*>(value));
     },
     "cairo_surface_t* of an image"},
    {CORVANE_OPTION_EMPTY_QUEUE, kStreamKinds,
     [](Targets& targets, uint64_t, uint64_t) {
         targets.stream->EmptyQueue();
         return Status::Ok;
     },
     "empties the queue"},
    {CORVANE_OPTION_SMOOTHING, kDecodingKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         return OnPictures(targets, [&](auto& pictures) { pictures.SetDeinterlace(value != 0); });
     },
     "non-zero: pictures marked interlaced are smoothed"},
    {CORVANE_OPTION_FULL_QUEUE, kStreamKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         targets.stream->SetBlockWhenFull(value == 0);
         return Status::Ok;
     },
     "zero: a full queue blocks"},
    {CORVANE_OPTION_TEXT_POLICY, kStreamKinds, SetRender<&CRenderMgr::SetOsdPolicy>,
     "when on-screen text is refreshed"},
    {CORVANE_OPTION_H264_DECODER, kDecodingKinds, SetDecoder<&VideoDecoderHolder::SetH264Kind>, "hardware kind"},
    {CORVANE_OPTION_NO_EFFECT, kDecodingKinds, [](Targets&, uint64_t, uint64_t) { return Status::Ok; },
     "accepted, no effect"},
    {CORVANE_OPTION_DECODER_THREADS, kDecodingKinds, SetDecoder<&VideoDecoderHolder::SetThreads>, "decoding threads"},
    {CORVANE_OPTION_MPEG4_DECODER, kDecodingKinds, SetDecoder<&VideoDecoderHolder::SetMpeg4Kind>, "hardware kind"},
    {CORVANE_OPTION_H265_DECODER, kDecodingKinds, SetDecoder<&VideoDecoderHolder::SetHevcKind>, "hardware kind"},
    {CORVANE_OPTION_BACKWARD_MEMORY, kStreamKinds, SetDecoder<&VideoDecoderHolder::SetBackwardMemoryMode>,
     "memory mode of backward play"},
    {CORVANE_OPTION_STILL_OVERLAY, kStreamKinds,
     [](Targets& targets, uint64_t value, uint64_t extra) {
         targets.stream->Stills().SetOverlay(
             {reinterpret_cast<CorvaneOsdCallback>(value), reinterpret_cast<void*>(extra)});
         return Status::Ok;
     },
     "still overlay, a CorvaneOsdCallback"},
    {CORVANE_OPTION_RESIZE_KIND, kDecodingKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         return OnPictures(targets, [&](auto& pictures) { pictures.SetResizeType(static_cast<uint32_t>(value)); });
     },
     "resize kind"},
    {CORVANE_OPTION_COLOURS, kDecodingKinds,
     [](Targets& targets, uint64_t value, uint64_t) {
         if (value > CORVANE_COLOURS_SIGNALLED)
             return Status::InvalidArgument;
         return OnPictures(targets,
                           [&](auto& pictures) { pictures.SetSignalledColours(value == CORVANE_COLOURS_SIGNALLED); });
     },
     "by which colours RGB is made"},
};

}    // namespace

std::span<const OptionRow> OptionTable() {
    return kRows;
}

Status ApplyOption(ChannelType type, OptionTargets& targets, int32_t id, uint64_t value, uint64_t extra) {
    const auto* const row = std::ranges::find(kRows, id, &OptionRow::id);
    if (row == std::ranges::end(kRows) || (row->kinds & KindBit(type)) == 0)
        return Status::NotSupported;
    return row->apply(targets, value, extra);
}

}    // namespace corvane
