#include "app/StackBar.h"

#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>

#include "controller/StackBrowser.h"

namespace pv::app {

StackBar::StackBar(QWidget* parent)
    : QWidget(parent),
      y_(new QComboBox(this)),
      x_(new QComboBox(this)),
      slice_(new QSlider(Qt::Horizontal, this)),
      frame_(new QSlider(Qt::Horizontal, this)),
      sliceText_(new QLabel(this)),
      frameText_(new QLabel(this)),
      frameTitle_(new QLabel(tr("&Frame:"), this)) {
    setObjectName("stackBar");
    y_->setObjectName("yChannelChooser");
    x_->setObjectName("xChannelChooser");
    slice_->setObjectName("sliceSlider");
    frame_->setObjectName("frameSlider");
    sliceText_->setObjectName("sliceNumber");
    frameText_->setObjectName("frameNumber");
    y_->setAccessibleName(tr("Y channel of the stack"));
    x_->setAccessibleName(tr("X channel of the stack"));
    slice_->setAccessibleName(tr("Slice"));
    frame_->setAccessibleName(tr("Frame"));
    for (QSlider* s : {slice_, frame_}) {
        s->setPageStep(1);
        s->setTickPosition(QSlider::NoTicks);
    }
    auto* yTitle = new QLabel(tr("&Y channel:"), this);
    auto* xTitle = new QLabel(tr("&X channel:"), this);
    auto* sliceTitle = new QLabel(tr("&Slice:"), this);
    yTitle->setBuddy(y_);
    xTitle->setBuddy(x_);
    sliceTitle->setBuddy(slice_);
    frameTitle_->setBuddy(frame_);
    // The numbers keep the width of the longest they will show, so the sliders stay still.
    for (QLabel* number : {sliceText_, frameText_}) {
        number->setMinimumWidth(number->fontMetrics().horizontalAdvance(tr("Slice 9999 / 9999")));
    }

    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(4, 4, 4, 0);
    grid->addWidget(yTitle, 0, 0);
    grid->addWidget(y_, 0, 1);
    grid->addWidget(xTitle, 0, 2);
    grid->addWidget(x_, 0, 3);
    grid->addWidget(sliceTitle, 1, 0);
    grid->addWidget(slice_, 1, 1, 1, 3);
    grid->addWidget(sliceText_, 1, 4);
    grid->addWidget(frameTitle_, 2, 0);
    grid->addWidget(frame_, 2, 1, 1, 3);
    grid->addWidget(frameText_, 2, 4);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(3, 1);

    for (QComboBox* box : {y_, x_}) {
        connect(box, &QComboBox::activated, this,
                [this] { emit channelsChosen(y_->currentIndex(), x_->currentIndex()); });
    }
    connect(slice_, &QSlider::valueChanged, this, [this](int v) { emit sliceChosen(v - 1); });
    connect(frame_, &QSlider::valueChanged, this, [this](int v) { emit frameChosen(v - 1); });
    hide();
}

void StackBar::showState(const StackBrowser& stack) {
    if (!stack.active()) {
        hide();
        return;
    }
    const StackLayout& layout = stack.layout();
    QStringList names;
    for (const std::string& name : channelChoices(layout)) {
        names << QString::fromStdString(name);
    }
    for (const auto& [box, channel] : {std::pair{y_, stack.yChannel()}, {x_, stack.xChannel()}}) {
        const QSignalBlocker quiet(box);
        QStringList shown;
        for (int i = 0; i < box->count(); ++i) {
            shown << box->itemText(i);
        }
        if (shown != names) {
            box->clear();
            box->addItems(names);
        }
        box->setCurrentIndex(channel);
        box->setEnabled(layout.channels > 1);
    }
    for (const auto& [slider, at, count] : {std::tuple{slice_, stack.slice(), layout.slices},
                                            {frame_, stack.frame(), layout.frames}}) {
        const QSignalBlocker quiet(slider);
        slider->setRange(1, count);
        slider->setValue(at + 1);
    }
    slice_->setEnabled(layout.slices > 1);
    sliceText_->setText(QString::fromStdString(stack.sliceText()));
    frameText_->setText(QString::fromStdString(stack.frameText()));
    for (QWidget* w : {static_cast<QWidget*>(frame_), static_cast<QWidget*>(frameText_),
                       static_cast<QWidget*>(frameTitle_)}) {
        w->setVisible(layout.frames > 1);
    }
    show();
}

}  // namespace pv::app
