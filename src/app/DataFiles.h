#pragma once

#include <QString>

namespace pv::app {

// The folder of the program's data: <prefix>/share/pixmera-veltro beside the bin folder of an
// installed program, else (a program run from the build tree) the source tree's resources.
QString dataDirectory();
// The help book, <data folder>/help.
QString helpBookDirectory();

}  // namespace pv::app
