#pragma once

#include <QCoreApplication>
#include <QPointer>

namespace pv::app {

// The one window of type W for the whole process: made on first use, and deleted while the
// application object shuts down, before the window system goes.
template <class W>
W& processWideWindow() {
    static QPointer<W> window;
    if (window.isNull()) {
        window = new W;
        qAddPostRoutine([] { delete window.data(); });
    }
    return *window;
}

}  // namespace pv::app
