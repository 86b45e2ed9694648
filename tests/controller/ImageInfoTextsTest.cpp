#include <gtest/gtest.h>

#include <fstream>

#include "TestFiles.h"
#include "controller/ImageInfoTexts.h"
#include "controller/PixmeraVeltroController.h"

namespace pv {
namespace {

struct ImageInfoTest : ::testing::Test {
    ImageInfoTest() {
        controller.awakeFromNib();
        controller.applicationDidFinishLaunching();
    }
    ImageInfoTexts texts() const { return imageInfoTexts(controller.workingImage().imageFileInfo); }

    testing::TempDir dir;
    NullControllerPort port;
    PixmeraVeltroController controller{port};
};

// The facts that come from the file itself, whether or not it holds a readable picture.
TEST_F(ImageInfoTest, FileFactsOfEachKindOfName) {
    struct Row {
        std::string name;
        std::size_t bytes;
        std::string type;
        std::string size;
    };
    const Row rows[] = {
        {"cells.tif", 204800, "TIFF Image", "200 KB"},
        {"x.JPG", 1023, "JPEG Image", "0 KB"},
        {"x.Jpg", 1024, "Unknown", "1 KB"},
        {"no-extension", 3000, "Unknown", "2 KB"},
    };
    for (const Row& row : rows) {
        const std::string path = dir.file(row.name);
        std::ofstream(path) << std::string(row.bytes, 'x');
        controller.openImageFile(path);
        const ImageInfoTexts t = texts();
        EXPECT_EQ(t.filePath, dir.root) << row.name;
        EXPECT_EQ(t.fileName, row.name);
        EXPECT_EQ(t.fileType, row.type) << row.name;
        EXPECT_EQ(t.fileSize, row.size) << row.name;
    }
}

TEST_F(ImageInfoTest, APictureAndItsCorrection) {
    const std::string path = dir.file("scan.tif");
    testing::TiffLayout layout;  // 4 x 3 RGB
    layout.xres = layout.yres = 300;
    testing::writeTiff(path, layout, std::vector<std::uint32_t>(36, 10));
    ASSERT_TRUE(controller.openImageFile(path));
    ImageInfoTexts t = texts();
    EXPECT_EQ(t.size, "4 x 3 pixels");
    EXPECT_EQ(t.bitDepth, "24");
    EXPECT_EQ(t.resolution, "300.0 x 300.0 dpi");  // the file's, not the 72 dpi it is shown at
    EXPECT_EQ(t.backgroundCorrected, "No");

    BackgroundControls controls;
    controller.removeBackgroundNow(controls);
    EXPECT_EQ(texts().backgroundCorrected, "Yes");
    controller.restoreImageToOriginal();
    EXPECT_EQ(texts().backgroundCorrected, "No");
}

TEST_F(ImageInfoTest, APastedPictureHasNoFile) {
    auto bitmap = Bitmap::create(5, 2, 3, false, false);
    controller.takePictureFromView(Picture::at72dpi(std::move(*bitmap)), std::nullopt);
    const ImageInfoTexts t = texts();
    EXPECT_EQ(t.filePath, "Not available");
    EXPECT_EQ(t.fileName, "Not available");
    EXPECT_EQ(t.fileType, "Not available");
    EXPECT_EQ(t.fileSize, "0 KB");
    EXPECT_EQ(t.size, "5 x 2 pixels");
    EXPECT_EQ(t.resolution, "72.0 x 72.0 dpi");
}

}  // namespace
}  // namespace pv
