#pragma once

#include "cli/CliOptions.h"
#include "controller/PixmeraVeltroController.h"

namespace pv::cli {

// Draws the region with the tool a user would pick, through the same mouse events, so that the
// outline is exactly the one the desktop program builds: press, drag and release for a
// rectangle, an oval or a lasso; for a polygon a dragged first edge, a click per further vertex
// and a double-click on the last.
void drawRegion(PixmeraVeltroController& controller, const RegionOption& region);

}  // namespace pv::cli
