#pragma once

#include <QImage>
#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <tuple>

#include "controller/CellLabels.h"
#include "controller/StackBrowser.h"

class QAction;
class QMenu;

namespace Ui {
class MainWindow;
}

namespace pv::app {

class CellPanel;
class StackBar;

// The inputs beyond one picture file, in the main window: two channel files, stacks, a mask
// and a label image. Owns their menu items, the stack bar and the cell panel under the image
// view, and the outlines over it; the state is the controller's (StackBrowser, CellLabels).
class Inputs : public QObject {
    Q_OBJECT

  public:
    Inputs(PixmeraVeltroController& controller, Ui::MainWindow& ui, QWidget* window);
    ~Inputs() override;

    // A file the window has just opened as one picture: browsed instead when it is a stack.
    void fileOpened(const QString& path);
    // The controller's state changed (once an action): the bars, the outlines, the menu items.
    void refresh();
    // What Image ▸ Mask… and Image ▸ Labels… do with the file chosen; a refusal changes nothing.
    Status setMask(const std::string& path);
    Status loadLabels(const std::string& path);

    StackBrowser& stack() { return stack_; }
    CellLabels& labels() { return labels_; }
    StackBar* stackBar() const { return stackBar_; }
    CellPanel* cellPanel() const { return cellPanel_; }
    QAction* openChannelsAction() const { return openChannels_; }
    QAction* maskAction() const { return mask_; }
    QAction* clearMaskAction() const { return clearMask_; }
    QAction* labelsAction() const { return labelsItem_; }
    QAction* clearLabelsAction() const { return clearLabels_; }
    QAction* nextSliceAction() const { return nextSlice_; }
    QAction* previousSliceAction() const { return previousSlice_; }
    // The mask and label edges as the image view draws them, the picture's size.
    const QImage& outline() const { return outline_; }

  signals:
    // Something failed; the message names the file.
    void failed(const QString& title, const QString& message);

  private:
    void addMenuItems();
    void chooseMask();
    void chooseLabels();
    void showCell(int x, int y);
    // The chosen cell's rows, its own significance test started when it is due.
    void showCellRows();
    void cellTestEnded(const std::optional<SignificanceResult>& result, bool cancelled);
    void updateOutline();
    // Redraws the edges of one cell in the outline with the colour of `index`.
    void markCell(std::uint32_t label, uchar index);
    void updateMenus();
    // Runs a step of the stack or the files, then refreshes once, knowing what it showed.
    Status step(const std::function<Status()>& act);
    // Asks for a file and hands it to `take`; what it refuses is said, titled `what`.
    void chooseFile(const QString& title, const QString& filter, const QString& what,
                    const std::function<Status(const std::string&)>& take);

    PixmeraVeltroController& controller_;
    Ui::MainWindow& ui_;
    QWidget* window_;
    StackBrowser stack_;
    CellLabels labels_;
    StackBar* stackBar_ = nullptr;
    CellPanel* cellPanel_ = nullptr;
    QAction* openChannels_ = nullptr;
    QAction* mask_ = nullptr;
    QAction* clearMask_ = nullptr;
    QAction* labelsItem_ = nullptr;
    QAction* clearLabels_ = nullptr;
    QAction* nextSlice_ = nullptr;
    QAction* previousSlice_ = nullptr;
    QImage outline_;
    std::vector<std::uint8_t> maskEdges_;  // of the mask, made once for it
    // The cells' edge pixels in the outline by label, so that choosing a cell redraws its own.
    std::vector<std::pair<std::uint32_t, std::size_t>> cellEdges_;
    // What outline_ was made of: mask edges, cell edges, width, height. Made again only when
    // that changes or a new mask or label image comes.
    std::tuple<bool, bool, int, int> outlined_{false, false, 0, 0};
    bool outlineStale_ = false;
    std::uint32_t cellShown_ = 0;   // the label of the cell in the panel
    std::uint32_t cellTested_ = 0;  // the label of the cell whose test runs
    std::uint64_t cellTestStamp_ = 0;
    bool stepping_ = false;  // within a step of our own, refreshed at its end
};

}  // namespace pv::app
