#include "app/ImagePrinter.h"

#include <QPageSetupDialog>
#include <QPainter>
#include <QPrintDialog>

#include "app/QtPictures.h"
#include "output/PrintLayout.h"

namespace pv::app {

bool printPicture(QPrinter& printer, const Picture& picture) {
    const QImage image = imageOf(picture);
    QPainter painter;
    if (!painter.begin(&printer)) {
        return false;
    }
    if (image.isNull()) {
        return true;
    }
    // The painter's origin is the printable area's corner, in device pixels; the placement
    // is worked out in points, the picture's own measure.
    const double perPoint = printer.resolution() / 72.0;
    const QRect area = printer.pageLayout().paintRectPixels(printer.resolution());
    const Rect placed = printPlacement(
        picture.size, Size{float(area.width() / perPoint), float(area.height() / perPoint)});
    const QRectF target(placed.origin.x * perPoint, placed.origin.y * perPoint,
                        placed.size.width * perPoint, placed.size.height * perPoint);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(target, image);
    return painter.end();
}

ImagePrinter::ImagePrinter(QObject* parent) : QObject(parent), printer_(QPrinter::HighResolution) {}

void ImagePrinter::pageSetup(QWidget* window) {
    auto* dialog = new QPageSetupDialog(&printer_, window);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->open();
}

void ImagePrinter::print(QWidget* window, const Picture& picture) {
    auto* dialog = new QPrintDialog(&printer_, window);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::WindowModal);
    // The picture as it is when Print is chosen, whatever happens while the dialog is open.
    connect(dialog, &QDialog::accepted, this, [this, picture] {
        if (printPicture(printer_, picture)) {
            emit printed();
        } else if (!printer_.outputFileName().isEmpty()) {
            emit failed(tr("%1: the file could not be written; check that its folder exists and "
                           "may be written to.")
                            .arg(printer_.outputFileName()));
        } else {
            emit failed(tr("%1: the printer did not take the job.").arg(printer_.printerName()));
        }
    });
    dialog->open();
}

}  // namespace pv::app
