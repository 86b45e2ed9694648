#include <gtest/gtest.h>

#include <vector>

#include "controller/PixmeraVeltroController.h"

namespace pv {
namespace {

// What the correction window shows before Apply is what Apply then does, for every way the
// controls can stand, and asking changes nothing.
TEST(BackgroundSettingsToApply, AreWhatApplyUses) {
    struct Case {
        int tab, row, slider, channelItem;
    };
    const Case cases[] = {{0, 0, 200, 3}, {0, 1, 0, 0}, {0, 2, 10, 1},  {0, -1, 99, 2},
                          {1, 0, 40, 3},  {1, 2, 0, 0}, {1, 1, 255, 1}, {2, 0, 130, -1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "tab " << c.tab << " row " << c.row << " slider "
                                        << c.slider << " channel " << c.channelItem);
        NullControllerPort port;
        PixmeraVeltroController controller(port);
        controller.awakeFromNib();
        auto bitmap = Bitmap::create(16, 16, 3, false, false);
        for (int i = 0; i < 16 * 16 * 3; ++i) {
            bitmap->bitmapData()[i] = std::uint8_t(i * 37 % 256);
        }
        controller.takePictureFromView(Picture::at72dpi(std::move(*bitmap)), std::nullopt);

        BackgroundControls controls{c.tab, c.row, 7, 7, c.channelItem, 1};
        controls.sliderValue = c.slider;
        getThresholdSlider(controls, controller.backgroundSettings());
        getRGBChannel(controls, controller.backgroundSettings());
        controls.typedValue = 7;  // the field may lag; Apply reads the slider
        const BackgroundControls asSet = controls;
        const BackgroundSettings preview = controller.backgroundSettingsToApply(controls);
        EXPECT_EQ(controller.backgroundSettings().redThreshold, c.slider);
        EXPECT_EQ(controls.typedValue, asSet.typedValue);

        // The preview's settings on a copy of the picture, against Apply on the picture.
        const Picture before = controller.currentDisplayedImage();
        auto expected = before.bitmap->copy();
        removeBackground(expected->writableChannels(), preview, 1);
        controller.removeBackgroundNow(controls);
        const Bitmap& got = *controller.currentDisplayedImage().bitmap;
        EXPECT_EQ(std::vector<std::uint8_t>(got.bitmapData(), got.bitmapData() + 16 * 16 * 3),
                  std::vector<std::uint8_t>(expected->bitmapData(),
                                            expected->bitmapData() + 16 * 16 * 3));
        EXPECT_EQ(controller.workingImage().imageFileInfo.backgroundCorrected, 1);
    }
}

}  // namespace
}  // namespace pv
