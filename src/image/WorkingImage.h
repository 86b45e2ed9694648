#pragma once

#include <optional>
#include <string>

#include "core/Geometry.h"
#include "image/Bitmap.h"
#include "image/ImageRecords.h"
#include "image/Picture.h"

namespace pv {

// The picture under analysis and everything that hangs off it. One instance, owned by the main
// controller; readers must not keep plane pointers or geometry across a load or a restore.
struct WorkingImage {
    Picture viewPicture;  // what the main image view shows
    Picture originalImage;
    Picture currentDisplayedImage;
    Picture modifiedDisplayedImage;
    Picture revealedImage;

    Bitmap currentDisplayedBitmap;
    PlaneArray currentDisplayedBitmapArray{};
    Bitmap modifiedDisplayedBitmap;
    PlaneArray modifiedDisplayedBitmapArray{};

    Rect currentImageRect;
    BitmapInfo bitmapInfo;
    ImageFileInfo imageFileInfo;

    bool initialImageHasBeenSelected = false;
    bool restoreOriginalRequested = false;
    bool modifiedImageDisplayed = false;
    bool revealCleared = false;
};

}  // namespace pv
