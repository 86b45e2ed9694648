#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Result.h"
#include "image/ImageRecords.h"
#include "image/Picture.h"

namespace pv {

// Makes the picture's size in points equal to its size in pixels, recording the file's
// resolution in info (horizontalDPI, verticalDPI) for every picture. Answers the same picture
// when it is already at 72 dpi, else an 8-bit RGB picture (meshed stays meshed, planar stays
// planar), which shares the pixels of plain unpadded RGB. A meshed grey picture is always
// rebuilt as RGB. Fails only when memory is short.
Result<Picture> convertNon72dpiImages(const Picture& picture, ImageFileInfo& info);

// A new meshed 8-bit RGB picture when the source is planar, nothing when it is meshed (or
// empty). Fails only when memory is short.
Result<std::optional<Picture>> convertPlanarImageToNonPlanar(const Picture& picture);

// Exact, case-sensitive match of an extension against the supported list.
bool fileIsValidImageType(const std::vector<std::string>& supportedImageFileTypes,
                          std::string_view extension);

}  // namespace pv
