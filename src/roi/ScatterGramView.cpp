#include "roi/ScatterGramView.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace pv {

namespace {

// Empty (and so the zero rectangle) when the two do not overlap with some area.
Rect intersection(const Rect& a, const Rect& b) {
    const float x0 = std::max(a.minX(), b.minX()), x1 = std::min(a.maxX(), b.maxX());
    const float y0 = std::max(a.minY(), b.minY()), y1 = std::min(a.maxY(), b.maxY());
    if (!(x1 > x0) || !(y1 > y0)) {
        return {};
    }
    return makeRect(x0, y0, x1 - x0, y1 - y0);
}

// The pixel of a bitmap as RGBA, from any of its 8-bit layouts; (x, y) from the bottom left.
void readRGBA(const Bitmap& b, int x, int y, std::uint8_t out[4]) {
    const int spp = b.samplesPerPixel();
    const int row = b.pixelsHigh() - 1 - y;
    auto sample = [&](int k) {
        return b.isPlanar() ? b.row(k, row)[x] : b.row(0, row)[x * spp + k];
    };
    const int colour = b.hasAlpha() ? spp - 1 : spp;
    for (int k = 0; k < 3; ++k) {
        out[k] = sample(colour >= 3 ? k : 0);  // grey fills all three
    }
    out[3] = b.hasAlpha() ? sample(spp - 1) : 255;
}

}  // namespace

CROI_ScatterGramCroppingImageView::CROI_ScatterGramCroppingImageView(const UserPreferences& prefs)
    : prefs_(prefs) {}

void CROI_ScatterGramCroppingImageView::selectionMarkerStyle(SelectionTool tool) {
    selectionMarker_ = makeCropMarker(tool, prefs_, polygonState_);
    selectionChanged();
}

void CROI_ScatterGramCroppingImageView::drawRect(MarkerPainter& painter) {
    if (selectionMarker_) {
        selectionMarker_->drawCropMarker(painter, prefs_);
    }
}

void CROI_ScatterGramCroppingImageView::mouseDown(const MouseEvent& e) {
    if (selectionMarker_) {
        selectionMarker_->mouseDown(e);
    }
}

void CROI_ScatterGramCroppingImageView::mouseDragged(const MouseEvent& e) {
    if (!selectionMarker_) {
        return;
    }
    selectionMarker_->mouseDragged(e);
    if (continuous_) {
        postSelectionChangedNotification();
    }
    selectionChanged();
}

void CROI_ScatterGramCroppingImageView::mouseUp(const MouseEvent& e) {
    if (!selectionMarker_) {
        return;
    }
    selectionMarker_->mouseUp(e);
    selectionChanged();
    postSelectionChangedNotification();
}

void CROI_ScatterGramCroppingImageView::selectionChanged() {
    if (onNeedsDisplay) {
        onNeedsDisplay();
    }
}

void CROI_ScatterGramCroppingImageView::postSelectionChangedNotification() {
    if (onScatterGramROISelected) {
        onScatterGramROISelected();
    }
}

Rect CROI_ScatterGramCroppingImageView::selectedRectSize() const {
    return selectionMarker_ ? intersection(selectionMarker_->selectedRect(), imageRectSize())
                            : Rect{};
}

const Path& CROI_ScatterGramCroppingImageView::currentlySelectedPath() const {
    return selectionMarker_ ? selectionMarker_->selectedPath() : noPath_;
}

Picture CROI_ScatterGramCroppingImageView::croppedImage() const {
    const Rect r = selectedRectSize();
    if (r.isEmpty()) {
        return image_;
    }
    const int w = std::max(1, int(r.size.width)), h = std::max(1, int(r.size.height));
    auto out = Bitmap::create(w, h, 4, true, false, 0, true);
    if (!out) {
        return Picture{};
    }
    Path mask = currentlySelectedPath();
    mask.translate(-r.origin.x, -r.origin.y);
    // Picture pixels and view units coincide; the source pixel is the one under the centre.
    const std::shared_ptr<const Bitmap>& src = image_.bitmap;
    for (int j = 0; j < h; ++j) {
        std::uint8_t* row = out->row(0, h - 1 - j);
        for (int i = 0; i < w; ++i) {
            const Point centre{float(i) + 0.5f, float(j) + 0.5f};
            const int sx = int(std::floor(r.origin.x + centre.x));
            const int sy = int(std::floor(r.origin.y + centre.y));
            if (src && !src->isEmpty() && sx >= 0 && sy >= 0 && sx < src->pixelsWide() &&
                sy < src->pixelsHigh() && mask.containsPoint(centre)) {
                readRGBA(*src, sx, sy, row + 4 * i);
            }
        }
    }
    return Picture::at72dpi(std::move(*out));
}

void CROI_ScatterGramCroppingImageView::setROIColors(const Color& stroke, const Color& fill,
                                                     float fillOpacity) {
    if (selectionMarker_) {
        selectionMarker_->setROIColor(stroke, fill, fillOpacity);
    }
    selectionChanged();
}

}  // namespace pv
