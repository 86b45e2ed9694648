#include "app/DataFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#ifndef PV_SOURCE_DATA_DIR
#define PV_SOURCE_DATA_DIR ""
#endif

namespace pv::app {

QString dataDirectory() {
    const QString installed =
        QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../share/pixmera-veltro");
    if (QFileInfo(installed).isDir()) {
        return installed;
    }
    return QDir::cleanPath(QStringLiteral(PV_SOURCE_DATA_DIR));
}

QString helpBookDirectory() {
    return dataDirectory() + "/help";
}

}  // namespace pv::app
