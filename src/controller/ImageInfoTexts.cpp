#include "controller/ImageInfoTexts.h"

#include "controller/ResultTexts.h"
#include "core/Localization.h"

namespace pv {

namespace {

std::string orNotAvailable(const std::optional<std::string>& fact) {
    return fact ? *fact : tr("Not available");
}

}  // namespace

ImageInfoTexts imageInfoTexts(const ImageFileInfo& info) {
    ImageInfoTexts t;
    t.filePath = orNotAvailable(info.filePath);
    t.fileName = orNotAvailable(info.fileName);
    t.fileType = orNotAvailable(info.fileType);
    t.fileSize = printfText("%d KB", info.fileSizeKB);
    t.size = printfText("%d x %d pixels", int(info.width), int(info.height));
    t.bitDepth = std::to_string(info.bitDepth);
    t.resolution =
        printfText("%.1f x %.1f dpi", double(info.horizontalDPI), double(info.verticalDPI));
    t.backgroundCorrected = info.backgroundCorrected == 1 ? tr("Yes") : tr("No");
    return t;
}

}  // namespace pv
