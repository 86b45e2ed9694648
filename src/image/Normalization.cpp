#include "image/Normalization.h"

#include <algorithm>
#include <cstring>

#include "image/DecoderSupport.h"

namespace pv {

namespace {

Error outOfMemory(const Bitmap& source, const std::optional<std::string>& fileName) {
    const std::string text = decode::reason(
        "there is not enough memory to convert the picture (%1 pixels)",
        {std::to_string(source.pixelsWide()) + " x " + std::to_string(source.pixelsHigh())});
    return Error{fileName ? *fileName + ": " + text : text};
}

// Source sample that supplies colour channel k: grey data gives all three from its first.
int sourceChannel(const Bitmap& b, int k) {
    return b.samplesPerPixel() >= 3 ? k : 0;
}

// Rows are walked one by one at the source's own bytesPerRow, taking the first three samples of
// each pixel, so padded rows, alpha and wider pixels never lead past either plane.
void copyToMeshedRGB(const Bitmap& s, Bitmap& d) {
    const int w = s.pixelsWide();
    const int spp = s.samplesPerPixel();
    const int c0 = sourceChannel(s, 0), c1 = sourceChannel(s, 1), c2 = sourceChannel(s, 2);
    for (int r = 0; r < s.pixelsHigh(); ++r) {
        std::uint8_t* out = d.row(0, r);
        if (s.isPlanar()) {
            const std::uint8_t* p0 = s.row(c0, r);
            const std::uint8_t* p1 = s.row(c1, r);
            const std::uint8_t* p2 = s.row(c2, r);
            for (int x = 0; x < w; ++x, out += 3) {
                out[0] = p0[x];
                out[1] = p1[x];
                out[2] = p2[x];
            }
        } else if (spp == 3) {
            std::memcpy(out, s.row(0, r), std::size_t(w) * 3);
        } else {
            const std::uint8_t* in = s.row(0, r);
            for (int x = 0; x < w; ++x, out += 3, in += spp) {
                out[0] = in[c0];
                out[1] = in[c1];
                out[2] = in[c2];
            }
        }
    }
}

void copyToPlanarRGB(const Bitmap& s, Bitmap& d) {
    const std::size_t w = std::size_t(s.pixelsWide());
    for (int k = 0; k < 3; ++k) {
        for (int r = 0; r < s.pixelsHigh(); ++r) {
            std::memcpy(d.row(k, r), s.row(sourceChannel(s, k), r), w);
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
