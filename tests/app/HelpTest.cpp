#include <QAction>
#include <QDesktopServices>
#include <QDirIterator>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRegularExpression>
#include <QTextBrowser>
#include <QToolButton>
#include <QtTest>

#include "app/AboutBox.h"
#include "app/DataFiles.h"
#include "app/HelpWindow.h"
#include "app/MainWindow.h"
#include "controller/HelpMenu.h"
#include "ui_AboutBox.h"
#include "ui_HelpWindow.h"
#include "ui_MainWindow.h"

using pv::app::AboutBox;
using pv::app::HelpWindow;
using pv::app::MainWindow;

namespace {

QString readText(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QStringList matches(const QString& text, const QString& pattern) {
    QStringList found;
    QRegularExpressionMatchIterator it = QRegularExpression(pattern).globalMatch(text);
    while (it.hasNext()) {
        found << it.next().captured(1);
    }
    return found;
}

QString pageTitle(const QString& html) {
    const QStringList titles = matches(html, "<title>([^<]*)</title>");
    return titles.isEmpty() ? QString() : titles.first();
}

int topLevelCount(const char* className) {
    int n = 0;
    for (QWidget* w : QApplication::topLevelWidgets()) {
        n += w->inherits(className) ? 1 : 0;
    }
    return n;
}

}  // namespace

class HelpTest : public QObject {
    Q_OBJECT

  public slots:
    // Stands in for the system's browser and mail program.
    void openUrl(const QUrl& url) { openedUrls_ << QString::fromLatin1(url.toEncoded()); }

  private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void namedPagesShowTheirTitles_data() {
        QTest::addColumn<QString>("page");
        QTest::addColumn<QString>("title");
        QTest::newRow("start") << "index.html"
                               << "Pixmera Veltro Help";
        QTest::newRow("shortcuts") << "200/PixmeraVeltro213.html"
                                   << "Keyboard shortcuts";
        QTest::newRow("hot tips") << "200/PixmeraVeltro214.html"
                                  << "Hot tips";
        QTest::newRow("background question") << "src/PixmeraVeltro206.html"
                                             << "Why correct the background before calculating";
        QTest::newRow("anchor") << "coefficients.html#mm"
                                << "The colocalization coefficients";
    }
    // Each page the program opens by name is shown, with its title, and marked in the
    // contents.
    void namedPagesShowTheirTitles() {
        QFETCH(QString, page);
        QFETCH(QString, title);
        HelpWindow& help = HelpWindow::instance();
        help.showPage(page);
        QVERIFY(help.isVisible());
        QCOMPARE(help.currentPage(), page);
        QCOMPARE(help.ui().browser->documentTitle(), title);
        QVERIFY(help.ui().browser->toPlainText().startsWith(title));
        QVERIFY(help.ui().contents->currentItem() != nullptr);
        QCOMPARE(help.ui().contents->currentItem()->text(), title);
    }

    // Every href and src of every page leads to a file of the book, and every #anchor to a
    // name in that file; every page can be reached from the start page.
    void everyLinkResolves() {
        const QDir book(pv::app::helpBookDirectory());
        QStringList pages;
        QDirIterator it(book.path(), {"*.html"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            pages << book.relativeFilePath(it.next());
        }
        QVERIFY2(pages.size() >= 9, qPrintable(book.path()));
        QSet<QString> reached = {"index.html"};
        QStringList queue = {"index.html"};
        int links = 0;
        while (!queue.isEmpty()) {
            const QString page = queue.takeFirst();
            const QString html = readText(book.filePath(page));
            QVERIFY2(!pageTitle(html).isEmpty(), qPrintable(page + ": no title"));
            const QDir here = QFileInfo(book.filePath(page)).dir();
            for (const QString& link : matches(html, "(?:href|src)=\"([^\"]*)\"")) {
                ++links;
                const QString where = page + " -> " + link;
                QVERIFY2(!link.contains(':'), qPrintable(where + ": leaves the book"));
                const QString file = link.section('#', 0, 0);
                const QString anchor = link.section('#', 1);
                const QString target =
                    file.isEmpty() ? book.filePath(page) : QDir::cleanPath(here.filePath(file));
                QVERIFY2(QFileInfo(target).isFile(), qPrintable(where + ": no such file"));
                QVERIFY2(target.startsWith(book.path() + '/'),
                         qPrintable(where + ": outside the book"));
                if (!anchor.isEmpty()) {
                    QVERIFY2(matches(readText(target), "(?:name|id)=\"([^\"]*)\"").contains(anchor),
                             qPrintable(where + ": no such anchor"));
                }
                const QString linked = book.relativeFilePath(target);
                if (linked.endsWith(".html") && !reached.contains(linked)) {
                    reached.insert(linked);
                    queue << linked;
                }
            }
        }
        QVERIFY(links > 40);
        for (const QString& page : pages) {
            QVERIFY2(reached.contains(page), qPrintable(page + " is reached by no link"));
        }
    }

    // The contents list the start page's chapters; choosing one shows it, and back and
    // forward retrace the way.
    void contentsBackAndForward() {
        HelpWindow& help = HelpWindow::instance();
        help.showPage("index.html");
        QListWidget* contents = help.ui().contents;
        QCOMPARE(contents->count(), 10);
        QCOMPARE(contents->item(0)->text(), QString("Pixmera Veltro Help"));
        const QList<QListWidgetItem*> found =
            contents->findItems("The colocalization coefficients", Qt::MatchExactly);
        QCOMPARE(found.size(), 1);
        const QRect at = contents->visualItemRect(found.first());
        QTest::mouseClick(contents->viewport(), Qt::LeftButton, {}, at.center());
        QCOMPARE(help.currentPage(), QString("coefficients.html"));
        QVERIFY(help.ui().backButton->isEnabled());
        QVERIFY(!help.ui().forwardButton->isEnabled());
        QTest::mouseClick(help.ui().backButton, Qt::LeftButton);
        QCOMPARE(help.currentPage(), QString("index.html"));
        QCOMPARE(contents->currentRow(), 0);
        QVERIFY(help.ui().forwardButton->isEnabled());
        QTest::mouseClick(help.ui().forwardButton, Qt::LeftButton);
        QCOMPARE(help.currentPage(), QString("coefficients.html"));
        QCOMPARE(contents->currentItem()->text(), QString("The colocalization coefficients"));
    }

    void missingPageSaysWhich() {
        HelpWindow& help = HelpWindow::instance();
        help.showPage("200/PixmeraVeltro999.html");
        const QString shown = help.ui().browser->toPlainText();
        QVERIFY2(shown.contains("200/PixmeraVeltro999.html"), qPrintable(shown));
        QVERIFY2(shown.contains("does not exist"), qPrintable(shown));
        QCOMPARE(help.ui().contents->currentItem(), nullptr);
    }

    // The Help menu's items and F1, from the main window; all share one help window.
    void menuItemsOpenTheirPages() {
        MainWindow w;
        w.ui().actionKeyboardShortcuts->trigger();
        QCOMPARE(HelpWindow::instance().currentPage(), QString("200/PixmeraVeltro213.html"));
        w.ui().actionHotTips->trigger();
        QCOMPARE(HelpWindow::instance().currentPage(), QString("200/PixmeraVeltro214.html"));
        // F1 from the main window, once it is the active one again.
        w.show();
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        QTest::keyClick(&w, Qt::Key_F1);
        QCOMPARE(HelpWindow::instance().currentPage(), QString("index.html"));
        QCOMPARE(topLevelCount("pv::app::HelpWindow"), 1);
    }

    // The addresses themselves are checked with the controller; here each item reaches the
    // system's handler.
    void webAndMailItemsOpenTheirAddresses() {
        QDesktopServices::setUrlHandler("https", this, "openUrl");
        QDesktopServices::setUrlHandler("mailto", this, "openUrl");
        MainWindow w;
        w.ui().actionHotTipsWebSite->trigger();
        w.ui().actionVisitWebSite->trigger();
        w.ui().actionFeedback->trigger();
        QDesktopServices::unsetUrlHandler("https");
        QDesktopServices::unsetUrlHandler("mailto");
        QCOMPARE(openedUrls_, QStringList({QString::fromStdString(pv::hotTipsWebSiteUrl()),
                                           QString::fromStdString(pv::webSiteUrl()),
                                           QString::fromStdString(pv::feedbackMailUrl())}));
    }

    // About shows the version with its build number, the libraries it runs with and the
    // copyright, in one panel however often it is asked for.
    void aboutBoxShowsVersions() {
        MainWindow w;
        w.ui().actionAbout->trigger();
        w.ui().actionAbout->trigger();
        QCOMPARE(topLevelCount("pv::app::AboutBox"), 1);
        AboutBox& about = AboutBox::sharedInstance();
        QVERIFY(about.isVisible());
        const QString version = about.ui().versionField->text();
        QVERIFY2(
            QRegularExpression("^Version \\d+(\\.\\d+)+( \\(\\w+\\))?$").match(version).hasMatch(),
            qPrintable(version));
        const QString libraries = about.ui().librariesField->text();
        for (const QString& library : {QString("Qt ") + qVersion(), QString("libtiff 4."),
                                       QString("libpng 1."), QString("libjpeg")}) {
            QVERIFY2(libraries.contains(library), qPrintable(libraries));
        }
        QVERIFY(about.ui().copyrightField->text().startsWith("Copyright ©"));
        QTest::keyClick(&about, Qt::Key_Escape);
        QVERIFY(!about.isVisible());
    }

  private:
    QStringList openedUrls_;
};

QTEST_MAIN(HelpTest)
#include "HelpTest.moc"
