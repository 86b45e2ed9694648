#pragma once

#include <QWidget>

class QComboBox;
class QLabel;
class QSlider;

namespace pv {
class StackBrowser;
}

namespace pv::app {

// Under the image view while a stack is browsed: the channel of each role, the slice slider
// and, when the stack has frames, the frame slider, each with its number. Hidden otherwise, so
// that a plain picture looks as it always has.
class StackBar : public QWidget {
    Q_OBJECT

  public:
    explicit StackBar(QWidget* parent = nullptr);

    // Shows the browser's state (hidden when it browses nothing); emits nothing.
    void showState(const StackBrowser& stack);

    QComboBox* yChannel() const { return y_; }
    QComboBox* xChannel() const { return x_; }
    QSlider* slice() const { return slice_; }
    QSlider* frame() const { return frame_; }
    QLabel* sliceNumber() const { return sliceText_; }
    QLabel* frameNumber() const { return frameText_; }

  signals:
    // Counted from 0.
    void channelsChosen(int y, int x);
    void sliceChosen(int slice);
    void frameChosen(int frame);

  private:
    QComboBox* y_;
    QComboBox* x_;
    QSlider* slice_;
    QSlider* frame_;
    QLabel* sliceText_;
    QLabel* frameText_;
    QLabel* frameTitle_;
};

}  // namespace pv::app
