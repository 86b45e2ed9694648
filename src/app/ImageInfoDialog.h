#pragma once

#include <QDialog>
#include <memory>

#include "image/ImageRecords.h"

namespace Ui {
class ImageInfoDialog;
}

namespace pv::app {

// The image information panel: the facts of the image loaded when it was opened. It does not
// follow later loads; it deletes itself when closed, so the next opening is built anew.
class ImageInfoDialog : public QDialog {
    Q_OBJECT

  public:
    ImageInfoDialog(const ImageFileInfo& info, QWidget* parent);
    ~ImageInfoDialog() override;

    Ui::ImageInfoDialog& ui() { return *ui_; }

  private:
    void displayImageInfo(const ImageFileInfo& info);

    std::unique_ptr<Ui::ImageInfoDialog> ui_;
};

}  // namespace pv::app
