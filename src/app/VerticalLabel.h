#pragma once

#include <QLabel>

namespace pv::app {

// A label turned by -90 degrees, so that the vertical axis's name reads bottom to top.
class VerticalLabel : public QLabel {
    Q_OBJECT

  public:
    explicit VerticalLabel(QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

  protected:
    void paintEvent(QPaintEvent* event) override;
};

}  // namespace pv::app
