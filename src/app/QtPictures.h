#pragma once

#include <QColor>
#include <QImage>

#include "core/Color.h"
#include "image/Picture.h"

namespace pv::app {

// The picture as a QImage. Meshed 8-bit RGB and RGBA are wrapped without copying (the image
// keeps the picture's bitmap alive until Qt lets go of it); other layouts are converted.
QImage imageOf(const Picture& picture);

// A picture handed over by the desktop (pasted or dropped from another program), as 8-bit RGB
// at one point per pixel. Empty for a null image.
Picture pictureOf(const QImage& image);

// Colours between the engine and Qt; Qt keeps 16 bits a component.
QColor qtColor(const Color& c);
Color colorOf(const QColor& c);

}  // namespace pv::app
