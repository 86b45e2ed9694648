#include "controller/WorkingImage.h"

#include <memory>
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

// The bitmap of a revealed picture, to be painted over, when it has source's layout and nobody
// but the document holds it: that saves allocating (and the system zeroing) a new one on every
// reveal. Reveals make their bitmaps mutable and hand them out only as const, so the cast is
// sound, and with the only handle here nobody can see the pixels change.
std::shared_ptr<Bitmap> reusableBitmap(const Picture& revealed, const Bitmap& source) {
    if (revealed.bitmap.use_count() != 1 || !revealed.bitmap->hasLayoutOf(source)) {
        return nullptr;
    }
    return std::const_pointer_cast<Bitmap>(revealed.bitmap);
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
        std::optional<Bitmap> corrected = correctedCopy(*current_.bitmap, settings, threads);
        if (!corrected) {
            return false;
        }
        current_ = Picture::at72dpi(std::move(*corrected));
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
                          unsigned threads, const MaskView& mask) {
    Picture revealed;
    if (!current_.isEmpty()) {
        const Bitmap& source = *current_.bitmap;
        std::shared_ptr<Bitmap> target = reusableBitmap(revealedImage_, source);
        if (!target) {
            std::optional<Bitmap> fresh = Bitmap::createLike(source);
            if (!fresh) {
                return false;
            }
            target = std::make_shared<Bitmap>(std::move(*fresh));
        }
        if (!paintReveal(source, *target, analysis.rgbCombo, analysis.levels, selection,
                         analysis.revealColour, threads, {}, mask)) {
            return false;
        }
        revealed = Picture::at72dpi(std::move(target));
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
