#pragma once

#include <QDialog>
#include <memory>

#include "app/ProcessWide.h"

namespace Ui {
class AboutBox;
}

namespace pv::app {

// The about panel: the program's name, its version and build, the libraries it runs with and
// the copyright. One panel for the whole process, made when first asked for.
class AboutBox : public QDialog {
    Q_OBJECT

  public:
    static AboutBox& sharedInstance() { return processWideWindow<AboutBox>(); }
    ~AboutBox() override;

    // Fills in the versions, centres the panel on the screen and brings it to the front.
    void showPanel();
    // The version line from the build's numbers, and the libraries' versions.
    void displayVersionInfo();

    Ui::AboutBox& ui() { return *ui_; }

  private:
    friend AboutBox& processWideWindow<AboutBox>();
    explicit AboutBox(QWidget* parent = nullptr);

    std::unique_ptr<Ui::AboutBox> ui_;
};

}  // namespace pv::app
