#include "app/AboutBox.h"

#include <QScreen>
#include <QStyle>

#include "controller/HelpMenu.h"
#include "image/LibraryVersions.h"
#include "ui_AboutBox.h"

#ifndef PV_VERSION
#define PV_VERSION ""
#endif
#ifndef PV_BUILD_NUMBER
#define PV_BUILD_NUMBER ""
#endif

namespace pv::app {

AboutBox::AboutBox(QWidget* parent) : QDialog(parent), ui_(std::make_unique<Ui::AboutBox>()) {
    ui_->setupUi(this);
    QFont name = ui_->nameField->font();
    name.setBold(true);
    name.setPointSizeF(name.pointSizeF() * 1.6);
    ui_->nameField->setFont(name);
}

AboutBox::~AboutBox() = default;

void AboutBox::showPanel() {
    displayVersionInfo();
    adjustSize();
    if (const QScreen* s = screen()) {
        move(s->availableGeometry().center() - rect().center());
    }
    show();
    raise();
    activateWindow();
}

void AboutBox::displayVersionInfo() {
    // The secondary lines in the colour of disabled text, as the platform draws quiet text.
    for (QLabel* quiet : {ui_->versionField, ui_->copyrightField, ui_->librariesField}) {
        QPalette palette = quiet->palette();
        palette.setColor(QPalette::Active, QPalette::WindowText,
                         palette.color(QPalette::Disabled, QPalette::WindowText));
        palette.setColor(QPalette::Inactive, QPalette::WindowText,
                         palette.color(QPalette::Disabled, QPalette::WindowText));
        quiet->setPalette(palette);
    }
    if (const std::optional<std::string> version = versionText(PV_VERSION, PV_BUILD_NUMBER)) {
        ui_->versionField->setText(QString::fromStdString(*version));
    }
    QStringList libraries = {QStringLiteral("Qt %1").arg(QString::fromLatin1(qVersion()))};
    for (const LibraryVersion& library : imageLibraryVersions()) {
        libraries << QStringLiteral("%1 %2").arg(QString::fromStdString(library.name),
                                                 QString::fromStdString(library.version));
    }
    ui_->librariesField->setText(tr("Runs with %1.").arg(libraries.join(", ")));
}

}  // namespace pv::app
