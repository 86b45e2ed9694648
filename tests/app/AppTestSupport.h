#pragma once

// What the desktop program's tests share: the bundled sample and opening a file as a user does.

#include <QSignalSpy>
#include <QString>

#include "app/MainWindow.h"

namespace pv::app::testing {

inline const QString kSample = QStringLiteral(PV_SOURCE_DIR "/resources/sample-cells.tif");

// Opens a file as the user does and waits until the window has taken it.
inline bool open(MainWindow& w, const QString& path) {
    QSignalSpy finished(&w, &MainWindow::openFinished);
    w.openFile(path);
    return finished.wait(30000) && finished.at(0).at(0).toBool();
}

}  // namespace pv::app::testing
