#include "image/Normalization.h"

#include <algorithm>

#include "core/Localization.h"

namespace pv {

namespace {

Error outOfMemory(const Bitmap& source, const std::optional<std::string>& fileName) {
    return Error{
        fileName.value_or(""),
        tr("there is not enough memory to convert the picture (%1 pixels)",
           {std::to_string(source.pixelsWide()) + " x " + std::to_string(source.pixelsHigh())})};
}

// Rows are copied one at a time through the source's channel view, so padded rows, alpha, grey
// and wider pixels never lead past either bitmap.
void copyToMeshedRGB(const Bitmap& s, Bitmap& d) {
    const ChannelView from = s.channels();
    for (std::int64_t r = 0; r < from.height; ++r) {
        copyRGBRow(from, r, d.row(0, int(r)));
    }
}

void copyToPlanarRGB(const Bitmap& s, Bitmap& d) {
    const ChannelView from = s.channels();
    for (int k = 0; k < 3; ++k) {
        for (std::int64_t r = 0; r < from.height; ++r) {
            copyChannelRow(from, k, r, d.row(k, int(r)));
        }
    }
}

}  // namespace

Result<Picture> convertNon72dpiImages(const Picture& picture, ImageFileInfo& info) {
    if (picture.isEmpty()) {
        // 0 / 0 would show as "nan"; an empty picture has no resolution to speak of.
        info.horizontalDPI = 0.0f;
        info.verticalDPI = 0.0f;
        return picture;
    }
    const Bitmap& s = *picture.bitmap;
    const float w = float(s.pixelsWide());
    const float h = float(s.pixelsHigh());
    info.horizontalDPI = w / picture.size.width * 72.0f;
    info.verticalDPI = h / picture.size.height * 72.0f;
    // A meshed picture with fewer than three samples (grey handed over by the desktop) is
    // rebuilt as RGB even at 72 dpi: every reader takes red, green and blue from each pixel.
    const bool readable = s.isPlanar() || s.samplesPerPixel() >= 3;
    if (w == picture.size.width && h == picture.size.height && readable) {
        return picture;
    }
    // Redrawn at 72 dpi, plain unpadded RGB would come out as the very same bytes: only the size
    // in points changes, and the pixels are shared.
    const std::size_t plainRow = std::size_t(s.pixelsWide()) * (s.isPlanar() ? 1 : 3);
    if (s.samplesPerPixel() == 3 && !s.hasAlpha() && std::size_t(s.bytesPerRow()) == plainRow) {
        Picture shared = picture;
        shared.size = Size{w, h};
        return shared;
    }
    auto target = Bitmap::create(s.pixelsWide(), s.pixelsHigh(), 3, false, s.isPlanar());
    if (!target) {
        return outOfMemory(s, info.fileName);
    }
    if (s.isPlanar()) {
        copyToPlanarRGB(s, *target);
    } else {
        copyToMeshedRGB(s, *target);
    }
    return Picture::at72dpi(std::move(*target));
}

Result<std::optional<Picture>> convertPlanarImageToNonPlanar(const Picture& picture) {
    if (picture.isEmpty() || !picture.bitmap->isPlanar()) {
        return std::optional<Picture>();
    }
    const Bitmap& s = *picture.bitmap;
    auto target = Bitmap::create(s.pixelsWide(), s.pixelsHigh(), 3, false, false);
    if (!target) {
        return outOfMemory(s, std::nullopt);
    }
    copyToMeshedRGB(s, *target);
    return std::optional<Picture>(Picture::at72dpi(std::move(*target)));
}

bool fileIsValidImageType(const std::vector<std::string>& supportedImageFileTypes,
                          std::string_view extension) {
    return std::find(supportedImageFileTypes.begin(), supportedImageFileTypes.end(), extension) !=
           supportedImageFileTypes.end();
}

}  // namespace pv
