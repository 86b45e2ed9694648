#include "app/OpenChannelsDialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "controller/StackBrowser.h"

namespace pv::app {

OpenChannelsDialog::OpenChannelsDialog(Opener open, QWidget* parent)
    : QDialog(parent),
      open_(std::move(open)),
      error_(new QLabel(this)),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this)) {
    setObjectName("openChannelsDialog");
    setWindowTitle(tr("Open Channels"));
    auto* grid = new QGridLayout;
    const QString titles[2] = {tr("&Y file:"), tr("&X file:")};
    const QString names[2] = {tr("Y"), tr("X")};
    for (int i = 0; i < 2; ++i) {
        Role& r = roles_[i];
        auto* title = new QLabel(titles[i], this);
        r.path = new QLineEdit(this);
        r.browse = new QPushButton(tr("Browse…"), this);
        r.channel = new QComboBox(this);
        r.channelTitle = new QLabel(tr("Channel:"), this);
        r.path->setObjectName(names[i].toLower() + "Path");
        r.browse->setObjectName(names[i].toLower() + "Browse");
        r.channel->setObjectName(names[i].toLower() + "Channel");
        r.path->setAccessibleName(tr("%1 file").arg(names[i]));
        r.browse->setAccessibleName(tr("Browse for the %1 file").arg(names[i]));
        r.channel->setAccessibleName(tr("%1 channel").arg(names[i]));
        r.path->setMinimumWidth(r.path->fontMetrics().horizontalAdvance('x') * 48);
        title->setBuddy(r.path);
        r.channelTitle->setBuddy(r.channel);
        grid->addWidget(title, i, 0);
        grid->addWidget(r.path, i, 1);
        grid->addWidget(r.browse, i, 2);
        grid->addWidget(r.channelTitle, i, 3);
        grid->addWidget(r.channel, i, 4);
        r.channel->hide();
        r.channelTitle->hide();
        connect(r.path, &QLineEdit::textChanged, this, [this] { updateOk(); });
        connect(r.path, &QLineEdit::editingFinished, this, [this, i] { describe(roles_[i]); });
        connect(r.browse, &QPushButton::clicked, this, [this, i, names] {
            Role& role = roles_[i];
            const QString chosen = QFileDialog::getOpenFileName(
                this, tr("Choose the %1 File").arg(names[i]), QFileInfo(role.path->text()).path(),
                tr("TIFF files (*.tif *.tiff);;All files (*)"));
            if (!chosen.isEmpty()) {
                role.path->setText(chosen);
                describe(role);
            }
        });
    }
    error_->setObjectName("openChannelsError");
    error_->setWordWrap(true);
    error_->setStyleSheet("color: #b00000;");
    error_->hide();
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(grid);
    layout->addWidget(error_);
    layout->addWidget(buttons_);
    connect(buttons_, &QDialogButtonBox::accepted, this, &OpenChannelsDialog::openChosen);
    connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
    updateOk();
}

QPushButton* OpenChannelsDialog::okButton() const {
    return buttons_->button(QDialogButtonBox::Ok);
}

void OpenChannelsDialog::describe(Role& role) {
    // A file that cannot be described has no chooser; OK says what is wrong with it.
    const Result<StackLayout> layout = readStackLayout(role.path->text().trimmed().toStdString());
    QStringList names;
    if (layout && layout->channels > 1) {
        for (const std::string& name : channelChoices(*layout)) {
            names << QString::fromStdString(name);
        }
    }
    const int was = role.channel->currentIndex();
    role.channel->clear();
    role.channel->addItems(names);
    // The X role takes the second channel of a file that the Y role takes the first of.
    const bool second =
        &role == &roles_[1] && roles_[0].path->text().trimmed() == role.path->text().trimmed();
    role.channel->setCurrentIndex(was >= 0 && was < names.size() ? was
                                  : second && names.size() > 1   ? 1
                                                                 : 0);
    role.channel->setVisible(!names.isEmpty());
    role.channelTitle->setVisible(!names.isEmpty());
}

void OpenChannelsDialog::updateOk() {
    okButton()->setEnabled(!roles_[0].path->text().trimmed().isEmpty() &&
                           !roles_[1].path->text().trimmed().isEmpty());
}

void OpenChannelsDialog::openChosen() {
    for (Role& role : roles_) {
        describe(role);
    }
    const auto channel = [](const Role& r) { return std::max(0, r.channel->currentIndex()); };
    const Status opened = open_(roles_[0].path->text().trimmed().toStdString(), channel(roles_[0]),
                                roles_[1].path->text().trimmed().toStdString(), channel(roles_[1]));
    if (!opened) {
        error_->setText(QString::fromStdString(opened.error().message()));
        error_->show();
        return;
    }
    error_->hide();
    accept();
}

}  // namespace pv::app
