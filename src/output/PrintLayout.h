#pragma once

#include "core/Geometry.h"

namespace pv {

// Where a picture of size `picture` goes on a printable area of size `area` (both in points, one
// point per pixel of a normalised picture): at its own size when it fits, otherwise scaled down
// proportionally until it does, never enlarged; centred on the area. The rectangle is measured
// from the area's corner. A picture or an area without size gives an empty rectangle at the
// area's centre.
Rect printPlacement(Size picture, Size area);

}  // namespace pv
