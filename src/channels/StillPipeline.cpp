#include "channels/StillPipeline.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/PictureLayout.h"
#include "base/Thread.h"
#include "frame/StreamType.h"
#include "picture/BmpFile.h"
#include "picture/OverlayBlend.h"
#include "platform/raster/DisplayTarget.h"
#include "present/Layout.h"
#include "present/MakerTarget.h"
#include "present/OnScreenText.h"
#include "present/PictureRun.h"

namespace corvane {

namespace {

constexpr uint32_t kPlaceholderFlag = 0x80;
constexpr uint32_t kBmp24HeaderBytes = 54;

static_assert(sizeof(PictureBuffer) == 24 && offsetof(PictureBuffer, data) == 16);
static_assert(sizeof(DisplayFrameInfo) == 48 && offsetof(DisplayFrameInfo, flags) == 12 &&
              offsetof(DisplayFrameInfo, baseTime) == 28 && offsetof(DisplayFrameInfo, viewerWindow) == 40);

// Copies the logo into the maker's buffer, with rows and bytes in the order of its format. Failed: a format that does
// not have 32 bits a pixel.
Status CopyLogo(const ConstPictureView& logo, IPictureMaker& maker) {
    PictureView picture;
    CORVANE_RETURN_IF_FAILED(maker.GetBuffer(logo.size, picture));
    if (picture.PixelBytes() != 4)
        return Status::Failed;
    for (uint32_t row = 0; row < logo.size.height; ++row) {
        uint8_t* const to = picture.Row(row);
        std::memcpy(to, logo.Row(row), size_t{4} * logo.size.width);
        for (size_t x = 0; picture.format == PF_RGBA32 && x < logo.size.width; ++x)
            std::swap(to[4 * x], to[4 * x + 2]);
    }
    return Status::Ok;
}

// A still of the logo has no frame. This is the frame that its record is filled from.
FramePtr LogoFrame() {
    static constexpr uint8_t kHeaderBytes[20] = {0, 0, 0, 0x10};
    MediaFrameHeader header{};
    header.recordSize = sizeof header;
    header.headerSize = sizeof kHeaderBytes;
    header.data = kHeaderBytes;
    return std::make_shared<MediaFrameImpl>(header);
}

Status Finish(IPictureMaker& maker) {
    CORVANE_RETURN_IF_FAILED(maker.Make());
    return maker.GetSize() != 0 ? Status::Ok : Status::Failed;
}

WindowWatch::Size EvenSize(WindowWatch::Size size) {
    return {(size.width + 1) & ~1u, (size.height + 1) & ~1u};
}

}    // namespace

Status ReservePicture(PictureBuffer& picture, uint64_t size) {
    if (size > UINT32_MAX)
        return Status::OutOfMemory;
    if (picture.data == nullptr)
        picture.data = static_cast<uint8_t*>(std::malloc(size > 0 ? size : 1));
    else if (picture.size < size)
        return Status::BufferTooSmall;
    if (picture.data == nullptr)
        return Status::OutOfMemory;
    picture.size = static_cast<uint32_t>(size);
    return Status::Ok;
}

void StillPipeline::SetQuality(uint32_t quality) {
    MutexLock lock(m_mutex);
    m_stillQuality = quality;
}

// ---- The picture ----

// Fills the maker's buffer from the current picture, or from the logo of a stopped channel.
Status StillPipeline::Take(Still& still) {
    {
        MutexLock lock(m_mutex);
        still.maker->SetQuality(m_stillQuality);
    }
    // A renderer that composes the pictures of several sensors will be asked first, once there is one.
    BitmapPtr logo;
    Status status;
    switch (m_render.GetLogoPicture(logo)) {
    case 0:
        still.frame = LogoFrame();
        status = CopyLogo(logo->View(), *still.maker);
        break;
    case 1:
        status = m_video.UseCurrent([&](const FramePtr& frame, const SharedPicture& picture) {
            still.frame = frame;
            return Convert(still, picture);
        });
        if (Ok(status))
            DrawOverlay(still);
        break;
    default:
        return Status::Failed;
    }
    return status;
}

Status StillPipeline::Convert(Still& still, const SharedPicture& picture) {
    const PresentSettingsPtr settings = m_render.Settings();
    const ConstPictureView decoded = ViewUnder(*settings, picture);
    PictureRun run;    // of this still alone: no client filters, no rotation, no smoothing
    MakerTarget target(*still.maker);
    PictureRequest request{
        .frame = *still.frame,
        .picture = decoded,
        .size = {still.frame->DecodedWidth(), still.frame->DecodedHeight()},
        .crop = still.zoomed ? ZoomCrop(*settings, decoded.size.width, decoded.size.height) : std::nullopt,
    };
    if (request.size.Empty())
        request.size = decoded.size;
    run.Follow(*still.frame);
    if (run.OutputSize(request.size) < 0)
        return Status::Failed;
    const WindowWatch::Size client = EvenSize(still.client);
    if (client.width != 0 && client.height != 0 && client.width <= request.size.width / 2 &&
        client.height <= request.size.height / 2)
        request.size = {client.width, client.height};
    // Motion marks, once there are any, will be drawn by Display only.
    if (run.Carry(request, ChainSettings(), target).Lost())
        return target.Result();
    if (decoded.colours)
        still.maker->NormaliseColours(*decoded.colours);    // before the overlay is drawn over the picture
    return Status::Ok;
}

// Without memory for the drawing the still is made without an overlay.
void StillPipeline::DrawOverlay(const Still& still) {
    const GatedCallback<CorvaneOsdCallback>::Use overlay(m_overlay);
    const PictureSize size{still.maker->GetWidth(), still.maker->GetHeight()};
    PictureView picture;
    Raster drawing;
    if (!overlay.Callback() || !Ok(still.maker->GetBuffer(size, picture)) || !drawing.Resize(size.width, size.height))
        return;
    OsdRecord record(still.frame.get(), int64_t{still.frame->Header().timeSeconds}, false);
    record.info.width = size.width;
    record.info.height = size.height;
    {
        const Thread::ScopedOwner scoped(m_owner);
        record.Call(overlay.Callback(), drawing.View());
    }
    if (still.maker->TakesOverlay())
        BlendOverlay(drawing.View(), picture);
}

// ---- Delivery ----

Status StillPipeline::Snapshot(uint32_t format, bool zoomed, PictureBuffer& out) {
    Still still{MakePicture(format, AlignedBuffer::Use::Brief), zoomed};
    if (still.maker == nullptr)
        return Status::InvalidArgument;
    CORVANE_RETURN_IF_FAILED(Take(still));
    IPictureMaker& maker = *still.maker;
    const uint32_t fixed = maker.FixedSize({maker.GetWidth(), maker.GetHeight()});
    if (fixed == 0)
        CORVANE_RETURN_IF_FAILED(Finish(maker));
    CORVANE_RETURN_IF_FAILED(ReservePicture(out, fixed != 0 ? fixed : maker.GetSize()));
    out.width = maker.GetWidth();
    out.height = maker.GetHeight();
    if (fixed != 0)
        maker.MakeInto(out.data);
    else
        std::memcpy(out.data, maker.GetData(), maker.GetSize());
    return Status::Ok;
}

Status StillPipeline::Display(struct _cairo* to, bool zoomed, DisplayFrameInfo& out) {
    const DisplayTarget target(to);
    const DisplayTarget::Size own = target.OwnSize();
    CRenderMgr::PresentRects rects = m_render.GetPresentRects({own.width, own.height});
    Still still{MakePicture(CORVANE_PICTURE_BMP_BGR24, AlignedBuffer::Use::Brief), zoomed, rects.client};
    CORVANE_RETURN_IF_FAILED(Take(still));
    CORVANE_RETURN_IF_FAILED(Finish(*still.maker));
    const IPictureMaker& maker = *still.maker;
    if (rects.client == WindowWatch::Size{})    // no window, and a surface without bounds: the size of the picture
        rects = m_render.GetPresentRects({maker.GetWidth(), maker.GetHeight()});
    out.clientWidth = rects.client.width;
    out.clientHeight = rects.client.height;
    const MediaFrameHeader& header = still.frame->Header();
    out.timeSeconds = header.timeSeconds;
    if (ClassOf(header.streamType) == StreamClass::Placeholder)
        out.flags |= kPlaceholderFlag;
    out.presentTime = still.frame->PresentTime();
    out.baseTime = still.frame->BaseTime();
    return target.Draw(LayOut(maker.GetData() + kBmp24HeaderBytes, RowBytes(PF_BGR24_FLIP, maker.GetWidth()),
                              {maker.GetWidth(), maker.GetHeight()}, PF_BGR24_FLIP),
                       rects.area);
}

Status StillPipeline::CopyEncodedFrame(PictureBuffer& out) {
    FramePtr current;
    CORVANE_RETURN_IF_FAILED(m_video.UseCurrent([&](const FramePtr& frame, const SharedPicture&) {
        current = frame;
        return Status::Ok;
    }));
    CORVANE_RETURN_IF_FAILED(ReservePicture(out, current->PayloadSize()));
    out.width = current->DecodedWidth();
    out.height = current->DecodedHeight();
    std::memcpy(out.data, current->Payload(), current->PayloadSize());
    return Status::Ok;
}

Status StillPipeline::GrabWindow(PictureBuffer& out) {
    Raster shown;
    CORVANE_RETURN_IF_FAILED(m_render.GrabWindow(shown));
    const PictureView& view = shown.View();
    CORVANE_RETURN_IF_FAILED(ReservePicture(out, BmpBytes(view.size.width, view.size.height)));
    WriteBmp(view, out.data);
    out.width = view.size.width;
    out.height = view.size.height;
    return Status::Ok;
}

}    // namespace corvane
