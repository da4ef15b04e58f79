// The reports to the stream-info callback for each picture.
#pragma once

#include <cstdint>

#include "base/ClientCallback.h"
#include "base/PictureSize.h"
#include "corvane/corvane.h"
#include "frame/MediaFrameImpl.h"

namespace corvane {

// Sends the codes of one frame, in the order 10, 11, 12, 3, 6, 7, 8, on the calling thread with no lock held.
// `previous`: the last frame, or null. `resized`: there is a last frame, and its picture had another size.
// `dirty`: size and state must be reported. `shown`: the size that the picture is shown at.
void ReportStreamInfo(const ClientCallback<CorvaneStreamInfoCallback>& callback, const MediaFrameImpl& frame,
                      const MediaFrameImpl* previous, bool resized, bool dirty, PictureSize shown);

}    // namespace corvane
