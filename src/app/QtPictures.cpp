#include "app/QtPictures.h"

#include <cstring>
#include <memory>
#include <vector>

namespace pv::app {

namespace {

void releaseBitmap(void* info) {
    delete static_cast<std::shared_ptr<const Bitmap>*>(info);
}

}  // namespace

QImage imageOf(const Picture& picture) {
    if (picture.isEmpty()) {
        return QImage();
    }
    const Bitmap& b = *picture.bitmap;
    if (!b.isPlanar() && (b.samplesPerPixel() == 3 || b.samplesPerPixel() == 4)) {
        const QImage::Format format =
            b.samplesPerPixel() == 3 ? QImage::Format_RGB888 : QImage::Format_RGBA8888;
        return QImage(b.bitmapData(), b.pixelsWide(), b.pixelsHigh(), b.bytesPerRow(), format,
                      releaseBitmap, new std::shared_ptr<const Bitmap>(picture.bitmap));
    }
    QImage image(b.pixelsWide(), b.pixelsHigh(), QImage::Format_RGB888);
    if (image.isNull()) {
        return image;
    }
    const ChannelView rgb = b.channels();
    for (int r = 0; r < b.pixelsHigh(); ++r) {
        copyRGBRow(rgb, r, image.scanLine(r));
    }
    return image;
}

Picture pictureOf(const QImage& image) {
    if (image.isNull()) {
        return Picture();
    }
    const QImage rgb = image.convertToFormat(QImage::Format_RGB888);
    std::optional<Bitmap> b = Bitmap::create(rgb.width(), rgb.height(), 3, false, false);
    if (!b) {
        return Picture();
    }
    const std::size_t rowBytes = std::size_t(rgb.width()) * 3;
    for (int r = 0; r < rgb.height(); ++r) {
        std::memcpy(b->row(0, r), rgb.constScanLine(r), rowBytes);
    }
    return Picture::at72dpi(std::move(*b));
}

QColor qtColor(const Color& c) {
    return QColor::fromRgbF(c.red, c.green, c.blue, c.alpha);
}

Color colorOf(const QColor& c) {
    return Color{c.redF(), c.greenF(), c.blueF(), c.alphaF()};
}

}  // namespace pv::app
