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
    // The secondary lines in a quieter grey than the text, but darker than disabled text,
    // which is too faint to read in some styles.
    for (QLabel* quiet : {ui_->versionField, ui_->copyrightField, ui_->librariesField}) {
        QPalette palette = quiet->palette();
        const QColor text = palette.color(QPalette::WindowText);
        const QColor window = palette.color(QPalette::Window);
        const auto mix = [](int a, int b) { return (a * 3 + b * 2) / 5; };
        palette.setColor(QPalette::WindowText,
                         QColor(mix(text.red(), window.red()), mix(text.green(), window.green()),
                                mix(text.blue(), window.blue())));
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
