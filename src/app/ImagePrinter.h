#pragma once

#include <QObject>
#include <QPrinter>

#include "image/Picture.h"

class QWidget;

namespace pv::app {

// Prints `picture` alone on one page of `printer`: one point per pixel, scaled down
// proportionally (never up) to the printable area and centred on it. False when the printer
// could not start (a file that cannot be written, say); an empty picture prints nothing.
bool printPicture(QPrinter& printer, const Picture& picture);

// The print settings that Page Setup edits and Print uses, one set for the whole session, and
// the two commands' dialogs. The dialogs are window-modal and answer through their signals.
class ImagePrinter : public QObject {
    Q_OBJECT

  public:
    explicit ImagePrinter(QObject* parent = nullptr);

    QPrinter& printer() { return printer_; }
    void pageSetup(QWidget* window);
    // Asks for the printer (or a PDF file) and prints the picture if the user accepts.
    void print(QWidget* window, const Picture& picture);

  signals:
    void printed();
    // The printout could not be made; the message names where it was going and why.
    void failed(const QString& message);

  private:
    QPrinter printer_;
};

}  // namespace pv::app
