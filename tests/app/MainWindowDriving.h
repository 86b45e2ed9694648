#pragma once

// What the window tests do as a user would: open a file (the bundled sample, say), answer a
// question and drag a rectangle on the scatter gram.
#include <QAbstractButton>
#include <QAccessible>
#include <QMessageBox>
#include <QSignalSpy>
#include <QtTest>
#include <array>

#include "app/MainWindow.h"
#include "app/ScatterGramWidget.h"
#include "ui_MainWindow.h"

namespace pv::test {

inline const QString kSample = QStringLiteral(PV_SOURCE_DIR "/resources/sample-cells.tif");

// Opens a file as the user does and waits until the window has taken it.
inline bool open(app::MainWindow& w, const QString& path) {
    QSignalSpy finished(&w, &app::MainWindow::openFinished);
    w.openFile(path);
    return finished.wait(30000) && finished.at(0).at(0).toBool();
}

// Presses the button of the open question whose text is `text`.
inline void answer(app::MainWindow& w, const QString& text) {
    QMessageBox* box = w.openQuestion();
    QVERIFY(box != nullptr);
    for (QAbstractButton* b : box->buttons()) {
        if (b->text() == text) {
            QTest::mouseClick(b, Qt::LeftButton);
            return;
        }
    }
    QFAIL(qPrintable("no button " + text));
}

// A rectangle dragged on the scatter gram between two intensity pairs.
inline void drag(app::ScatterGramWidget* sg, QPointF from, QPointF to) {
    QTest::mousePress(sg, Qt::LeftButton, Qt::NoModifier, sg->toWidget(from).toPoint());
    QTest::mouseMove(sg, sg->toWidget(to).toPoint());
    QTest::mouseRelease(sg, Qt::LeftButton, Qt::NoModifier, sg->toWidget(to).toPoint());
}

// The census as the window shows it: Y only, X only, both.
inline std::array<QString, 3> shownCensus(app::MainWindow& w) {
    return {w.ui().yAxisPixelCountText->text(), w.ui().xAxisPixelCountText->text(),
            w.ui().xyAxisPixelCountText->text()};
}

// The first control under `top` that takes the keyboard focus but has no name a screen reader
// could say; empty when every one has.
inline QString unnamedControl(QWidget& top) {
    for (QWidget* c : top.findChildren<QWidget*>()) {
        if (c->isVisible() && (c->focusPolicy() & Qt::TabFocus)) {
            QAccessibleInterface* a = QAccessible::queryAccessibleInterface(c);
            if (a == nullptr || a->text(QAccessible::Name).isEmpty()) {
                return c->objectName();
            }
        }
    }
    return QString();
}

}  // namespace pv::test
