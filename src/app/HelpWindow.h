#pragma once

#include <QDir>
#include <QWidget>
#include <memory>

#include "app/ProcessWide.h"

namespace Ui {
class HelpWindow;
}

namespace pv::app {

// The help browser: the pages of the help book beside a list of its contents, with back and
// forward. One window for the whole process, made when help is first asked for.
class HelpWindow : public QWidget {
    Q_OBJECT

  public:
    static HelpWindow& instance() { return processWideWindow<HelpWindow>(); }
    ~HelpWindow() override;

    // Shows a page of the book by its name in the book ("200/PixmeraVeltro213.html", with an
    // optional "#anchor"), and brings the window to the front.
    void showPage(const QString& page);
    // The page shown, by its name in the book; empty when none is.
    QString currentPage() const;

    Ui::HelpWindow& ui() { return *ui_; }

  private:
    friend HelpWindow& processWideWindow<HelpWindow>();
    explicit HelpWindow(QWidget* parent = nullptr);

    // The contents list: the links of the start page, in their order.
    void fillContents();
    // Marks the page (a name in the book) in the contents, or nothing when it is not there.
    void selectInContents(const QString& page);
    QString pageOf(const QUrl& source) const;

    std::unique_ptr<Ui::HelpWindow> ui_;
    QDir book_;
};

}  // namespace pv::app
