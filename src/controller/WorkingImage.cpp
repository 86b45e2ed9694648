#include "controller/WorkingImage.h"

#include <utility>

#include "analysis/Reveal.h"

namespace pv {

namespace {

BitmapInfo describe(const Picture& picture) {
    BitmapInfo info;
    if (picture.isEmpty()) {
        return info;
    }
    const Bitmap& b = *picture.bitmap;
    info.bytesPerRow = b.bytesPerRow();
    info.samplesPerPixel = b.samplesPerPixel();
    info.bitsPerPixel = b.bitsPerPixel();
    info.bytesPerPlane = std::int32_t(b.bytesPerPlane());
    info.numberOfPlanes = b.numberOfPlanes();
    info.isPlanar = b.isPlanar() ? 1 : 0;
    info.height = picture.size.height;
    info.width = picture.size.width;
    return info;
}

}  // namespace

void WorkingImage::load(Picture picture) {
    original_ = std::move(picture);
    current_ = original_;
    revealShown_ = false;
    initialImageHasBeenSelected_ = true;
    bitmapInfo_ = describe(current_);
    imageFileInfo.width = current_.size.width;
    imageFileInfo.height = current_.size.height;
    imageFileInfo.bitDepth = bitmapInfo_.bitsPerPixel * bitmapInfo_.numberOfPlanes;
    imageFileInfo.backgroundCorrected = 0;
    currentImageRect_ = makeRect(0.0f, 0.0f, imageFileInfo.width, imageFileInfo.height);
}

bool WorkingImage::applyBackgroundCorrection(const BackgroundSettings& settings, unsigned threads) {
    if (!current_.isEmpty()) {
        std::optional<Bitmap> copy = current_.bitmap->copy();
        if (!copy) {
            return false;
        }
        removeBackground(copy->writableChannels(), settings, threads);
        current_ = Picture::at72dpi(std::move(*copy));
    }
    imageFileInfo.backgroundCorrected = 1;
    revealShown_ = false;
    return true;
}

void WorkingImage::restore() {
    current_ = original_;
    imageFileInfo.backgroundCorrected = 0;
    revealShown_ = false;
}

bool WorkingImage::reveal(const RegionSelection& selection, const AnalysisState& analysis,
                          unsigned threads) {
    Picture revealed;
    if (!current_.isEmpty()) {
        std::optional<Bitmap> painted =
            revealedCopy(*current_.bitmap, analysis.rgbCombo, analysis.levels, selection,
                         analysis.revealColour, threads);
        if (!painted) {
            return false;
        }
        revealed = Picture::at72dpi(std::move(*painted));
    }
    revealedImage_ = std::move(revealed);
    revealValid_ = true;
    revealShown_ = true;
    return true;
}

void WorkingImage::clearReveal() {
    revealedImage_ = Picture();
    revealValid_ = false;
    revealShown_ = false;
}

ChannelView WorkingImage::channels() const {
    return current_.isEmpty() ? ChannelView{} : current_.bitmap->channels();
}

}  // namespace pv
