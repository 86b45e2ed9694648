#include "app/ImageInfoDialog.h"

#include "controller/ImageInfoTexts.h"
#include "ui_ImageInfoDialog.h"

namespace pv::app {

ImageInfoDialog::ImageInfoDialog(const ImageFileInfo& info, QWidget* parent)
    : QDialog(parent), ui_(std::make_unique<Ui::ImageInfoDialog>()) {
    ui_->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    displayImageInfo(info);
}

ImageInfoDialog::~ImageInfoDialog() = default;

void ImageInfoDialog::displayImageInfo(const ImageFileInfo& info) {
    const ImageInfoTexts t = imageInfoTexts(info);
    Ui::ImageInfoDialog& u = *ui_;
    const std::pair<QLabel*, const std::string*> fields[] = {
        {u.filePath, &t.filePath},
        {u.fileName, &t.fileName},
        {u.fileType, &t.fileType},
        {u.fileSize, &t.fileSize},
        {u.size, &t.size},
        {u.bitDepth, &t.bitDepth},
        {u.resolution, &t.resolution},
        {u.backgroundCorrected, &t.backgroundCorrected},
    };
    for (const auto& [label, text] : fields) {
        label->setText(QString::fromStdString(*text));
    }
}

}  // namespace pv::app
