#include "app/HelpWindow.h"

#include <QFileInfo>
#include <QKeySequence>
#include <QListWidget>
#include <QStyle>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>
#include <QToolButton>

#include "app/DataFiles.h"
#include "controller/HelpMenu.h"
#include "ui_HelpWindow.h"

namespace pv::app {

namespace {

const QString kStartPage =
    QString::fromUtf8(kHelpStartPage.data(), qsizetype(kHelpStartPage.size()));

QString readText(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

}  // namespace

HelpWindow::HelpWindow(QWidget* parent)
    : QWidget(parent, Qt::Window),
      ui_(std::make_unique<Ui::HelpWindow>()),
      book_(helpBookDirectory()) {
    ui_->setupUi(this);
    Ui::HelpWindow& u = *ui_;
    u.backButton->setIcon(style()->standardIcon(QStyle::SP_ArrowBack));
    u.forwardButton->setIcon(style()->standardIcon(QStyle::SP_ArrowForward));
    u.backButton->setShortcut(QKeySequence::Back);
    u.forwardButton->setShortcut(QKeySequence::Forward);
    u.backButton->setEnabled(false);
    u.forwardButton->setEnabled(false);
    connect(u.backButton, &QToolButton::clicked, u.browser, &QTextBrowser::backward);
    connect(u.forwardButton, &QToolButton::clicked, u.browser, &QTextBrowser::forward);
    connect(u.homeButton, &QToolButton::clicked, this, [this] { showPage(kStartPage); });
    connect(u.browser, &QTextBrowser::backwardAvailable, u.backButton, &QWidget::setEnabled);
    connect(u.browser, &QTextBrowser::forwardAvailable, u.forwardButton, &QWidget::setEnabled);
    // The browser's source() is not yet the new page while it tells of the change.
    connect(u.browser, &QTextBrowser::sourceChanged, this,
            [this](const QUrl& url) { selectInContents(pageOf(url)); });
    connect(u.contents, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (item != nullptr) {
            showPage(item->data(Qt::UserRole).toString());
        }
    });
    u.splitter->setStretchFactor(1, 1);
    u.splitter->setSizes({250, 650});
    fillContents();
}

HelpWindow::~HelpWindow() = default;

void HelpWindow::showPage(const QString& page) {
    const QString file = page.section('#', 0, 0);
    const QString anchor = page.section('#', 1);
    const QString path = book_.filePath(file);
    if (QFileInfo(path).isFile()) {
        QUrl url = QUrl::fromLocalFile(path);
        if (!anchor.isEmpty()) {
            url.setFragment(anchor);
        }
        ui_->browser->setSource(url);
    } else {
        ui_->browser->setHtml(
            tr("<h2>Help page not found</h2><p>The help page <b>%1</b> cannot be shown: the file "
               "%2 does not exist. The help book may be missing from this installation.</p>")
                .arg(page.toHtmlEscaped(), QDir::toNativeSeparators(path).toHtmlEscaped()));
        selectInContents(QString());
    }
    if (isMinimized()) {
        showNormal();
    }
    show();
    raise();
    activateWindow();
}

QString HelpWindow::currentPage() const {
    return pageOf(ui_->browser->source());
}

QString HelpWindow::pageOf(const QUrl& source) const {
    if (!source.isLocalFile()) {
        return {};
    }
    const QString page = book_.relativeFilePath(source.toLocalFile());
    return source.hasFragment() ? page + '#' + source.fragment() : page;
}

void HelpWindow::fillContents() {
    QTextDocument start;
    start.setHtml(readText(book_.filePath(kStartPage)));
    QStringList pages = {kStartPage};
    QStringList titles = {start.metaInformation(QTextDocument::DocumentTitle)};
    for (QTextBlock block = start.begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextCharFormat format = it.fragment().charFormat();
            const QString href = format.anchorHref();
            if (!format.isAnchor() || href.isEmpty() || href.contains(':') ||
                pages.contains(href)) {
                continue;
            }
            pages << href;
            titles << it.fragment().text().trimmed();
        }
    }
    QSignalBlocker quiet(ui_->contents);
    for (qsizetype i = 0; i < pages.size(); ++i) {
        auto* item = new QListWidgetItem(titles.at(i), ui_->contents);
        item->setData(Qt::UserRole, pages.at(i));
    }
}

void HelpWindow::selectInContents(const QString& shown) {
    const QString page = shown.section('#', 0, 0);
    QSignalBlocker quiet(ui_->contents);
    ui_->contents->setCurrentRow(-1);
    for (int row = 0; row < ui_->contents->count(); ++row) {
        if (ui_->contents->item(row)->data(Qt::UserRole).toString() == page) {
            ui_->contents->setCurrentRow(row);
            break;
        }
    }
}

}  // namespace pv::app
