#pragma once

#include <QDialog>
#include <functional>

#include "core/Result.h"
#include "image/StackLayout.h"

class QComboBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace pv::app {

// File ▸ Open Channels…: the file for Y and the file for X, each with its channel when the
// file holds several. OK hands both to `open`; when that fails the dialog stays, showing why,
// and the window behind it keeps what it showed.
class OpenChannelsDialog : public QDialog {
    Q_OBJECT

  public:
    // The channels count from 0.
    using Opener = std::function<Status(const std::string& yPath, int yChannel,
                                        const std::string& xPath, int xChannel)>;
    OpenChannelsDialog(Opener open, QWidget* parent = nullptr);

    // One role's controls.
    struct Role {
        QLineEdit* path = nullptr;
        QPushButton* browse = nullptr;
        QComboBox* channel = nullptr;
        QLabel* channelTitle = nullptr;
    };
    const Role& y() const { return roles_[0]; }
    const Role& x() const { return roles_[1]; }
    QPushButton* okButton() const;
    QLabel* errorText() const { return error_; }

  private:
    // Reads the file's channels into its chooser.
    void describe(Role& role);
    void updateOk();
    void openChosen();

    Opener open_;
    Role roles_[2];
    QLabel* error_;
    QDialogButtonBox* buttons_;
};

}  // namespace pv::app
