#include "manager/DisplaySettings.h"

#include <algorithm>

namespace corvane {

namespace {

bool Usable(uint32_t isWindow, const DisplayPlace& place) {
    if (isWindow != 0)
        return place.window != 0;
    return place.rectangle[0] < place.rectangle[2] && place.rectangle[1] < place.rectangle[3];
}

}    // namespace

Status ApplyDisplayArea(DisplayArea& into, const DisplayArea& from, uint32_t mask) {
    if ((mask & CORVANE_AREA_OVERVIEW) != 0) {
        if (!Usable(from.overviewIsWindow, from.overview))
            return Status::InvalidArgument;
        into.overviewIsWindow = from.overviewIsWindow;
        into.overview = from.overview;
    }
    if ((mask & CORVANE_AREA_OVERVIEW_MARGIN) != 0)
        std::ranges::copy(from.overviewMargin, into.overviewMargin);
    if ((mask & CORVANE_AREA_ZOOM) != 0) {
        if (!Usable(from.zoomIsWindow, from.zoom))
            return Status::InvalidArgument;
        into.zoomIsWindow = from.zoomIsWindow;
        into.zoom = from.zoom;
    }
    if ((mask & CORVANE_AREA_ZOOM_MARGIN) != 0)
        std::ranges::copy(from.zoomMargin, into.zoomMargin);
    if ((mask & CORVANE_AREA_ZOOM_ENABLED) != 0)
        into.zoomEnabled = from.zoomEnabled;
    if ((mask & CORVANE_AREA_OVERVIEW_ENABLED) != 0)
        into.overviewEnabled = from.overviewEnabled;
    return Status::Ok;
}

}    // namespace corvane
