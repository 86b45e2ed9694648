#pragma once

#include "analysis/AnalysisState.h"
#include "analysis/RegionCensus.h"
#include "background/BackgroundCorrection.h"
#include "core/Geometry.h"
#include "image/ChannelView.h"
#include "image/ImageRecords.h"
#include "image/Picture.h"

namespace pv {

// The document: the picture under analysis, the picture it was loaded as, and the revealed
// picture, with the operations a user has on them. Pictures are immutable and shared, so a
// picture handed out stays valid however the document changes afterwards.
class WorkingImage {
  public:
    // A normalised picture (empty when nothing could be read) becomes both the restore target
    // and the picture under analysis; the view shows it. The reveal is kept, for saving.
    void load(Picture picture);
    // Thresholds the picture under analysis into a new picture, which then becomes it. False
    // when memory is short; nothing changes then.
    bool applyBackgroundCorrection(const BackgroundSettings& settings, unsigned threads);
    // Back to the picture as loaded.
    void restore();
    // Paints the selected pixels of the picture under analysis into the revealed picture and
    // shows it: over the last revealed picture's memory when nobody else holds that picture
    // and its layout fits, else into a new one. False when memory is short; nothing changes
    // then.
    // Pixels outside a mask are not revealed.
    bool reveal(const RegionSelection& selection, const AnalysisState& analysis, unsigned threads,
                const MaskView& mask = {});
    // Forgets the revealed picture (its memory with it) and shows the picture under analysis.
    void clearReveal();
    // Shows the picture under analysis; a revealed picture is kept for saving.
    void showAnalysedPicture() { revealShown_ = false; }

    // What the main image view shows.
    const Picture& viewPicture() const { return revealShown_ ? revealedImage_ : current_; }
    const Picture& originalImage() const { return original_; }
    const Picture& currentDisplayedImage() const { return current_; }
    // The last revealed picture, until the reveal is cleared; empty otherwise.
    const Picture& revealedImage() const { return revealedImage_; }
    bool reflectedImageValid() const { return revealValid_; }
    // The pixels every analysis reads.
    ChannelView channels() const;

    bool initialImageHasBeenSelected() const { return initialImageHasBeenSelected_; }
    const BitmapInfo& bitmapInfo() const { return bitmapInfo_; }
    // The area analysed: always the whole picture.
    Rect currentImageRect() const { return currentImageRect_; }

    // Facts of the file, set by whoever opens it before the picture is loaded.
    ImageFileInfo imageFileInfo;

  private:
    Picture original_;
    Picture current_;
    Picture revealedImage_;
    bool revealValid_ = false;
    bool revealShown_ = false;
    bool initialImageHasBeenSelected_ = false;
    BitmapInfo bitmapInfo_;
    Rect currentImageRect_;
};

}  // namespace pv
