#pragma once

#include <QColor>
#include <QPushButton>

namespace pv::app {

// A button that shows its colour (over a chequerboard, so the alpha shows) and lets the user
// choose another in Qt's colour dialog, with alpha.
class ColorButton : public QPushButton {
    Q_OBJECT

  public:
    explicit ColorButton(QWidget* parent = nullptr);

    QColor color() const { return color_; }
    // Shows the colour; announces nothing.
    void setColor(const QColor& color);

  signals:
    // The user chose a colour in the dialog.
    void colorChosen(const QColor& color);

  private:
    void chooseColor();
    void updateSwatch();

    QColor color_ = Qt::white;
};

}  // namespace pv::app
