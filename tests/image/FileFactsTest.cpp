#include <gtest/gtest.h>

#include <tuple>

#include "core/Localization.h"
#include "image/FileFacts.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

std::vector<std::string> supported() {
    return loadSupportedFileTypes(declaredDocumentTypes(), {});
}

TEST(FileFacts, SupportedTypesAreExtensionsThenQuotedCodes) {
    const std::vector<std::string> expected = {
        "jpg",  "jpeg", "JPG",    "JPEG",   "tif",    "tiff",   "TIF",
        "TIFF", "pct",  "pict",   "PCT",    "PICT",   "bmp",    "BMP",
        "png",  "PNG",  "'JPEG'", "'TIFF'", "'PICT'", "'BMPf'", "'PNGf'"};
    EXPECT_EQ(supported(), expected);
    const std::vector<std::string> previous = {"x"};
    EXPECT_EQ(loadSupportedFileTypes({}, previous), previous);
    const std::vector<DocumentType> notImages = {{{"txt"}, {"TEXT"}, false}};
    EXPECT_EQ(loadSupportedFileTypes(notImages, previous), previous);
}

TEST(FileFacts, NamePathAndSize) {
    testing::TempDir dir;
    const std::string path = dir.file("cells.tif");
    for (const auto& [bytes, kb] : {std::pair{0, 0}, {1023, 0}, {1024, 1}, {204799, 199}}) {
        testing::writeBytes(path, std::vector<std::uint8_t>(std::size_t(bytes), 1));
        ImageFileInfo info;
        setImageInfoNamePath(info, path);
        EXPECT_EQ(std::tuple(info.fileName, info.filePath, info.fileSizeKB),
                  std::tuple("cells.tif", std::filesystem::path(path).parent_path().string(), kb));
    }
    ImageFileInfo info;
    info.fileName = "old";
    info.fileSizeKB = 9;
    setImageInfoNamePath(info, std::nullopt);
    EXPECT_EQ(std::tuple(info.fileName, info.filePath, info.fileSizeKB),
              std::tuple(std::nullopt, std::nullopt, 0));
    info.fileSizeKB = 9;
    setImageFileSizeInKB(info, dir.file("gone.tif"));
    EXPECT_EQ(info.fileSizeKB, 0);
}

TEST(FileFacts, TypeNamesFromExtensionOrContent) {
    testing::TempDir dir;
    testing::writeTiff(dir.file("tiffdata"), {}, testing::pattern(4 * 3 * 3, 256));
    testing::writeBytes(dir.file("bitmap"), {'B', 'M', 0, 0});
    testing::writeBytes(dir.file("pngdata"), {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'});
    testing::writeBytes(dir.file("notes"), {'h', 'i'});
    const std::pair<std::string, const char*> table[] = {
        {"/x/x.JPG", "JPEG Image"},           {"/x/x.Jpg", "Unknown"},
        {"/x/x.PICT", "PICT Image"},          {"/x/x.png", "Unknown"},
        {dir.file("tiffdata"), "TIFF Image"}, {dir.file("bitmap"), "BMPf Image"},
        {dir.file("pngdata"), "PNGf Image"},  {dir.file("notes"), "Unknown"},
        {dir.file("missing"), "Unknown"}};
    const auto types = supported();
    for (const auto& [path, type] : table) {
        ImageFileInfo info;
        setImageFileType(info, types, path);
        EXPECT_EQ(info.fileType, type) << path;
    }
    ImageFileInfo info;
    info.fileType = "old";
    setImageFileType(info, types, std::nullopt);
    EXPECT_FALSE(info.fileType.has_value());
    // Without the codes in the list, content alone names nothing.
    setImageFileType(info, {"tif"}, dir.file("tiffdata"));
    EXPECT_EQ(info.fileType, "Unknown");
}

TEST(FileFacts, TypeCodesAndNamesPassThroughTheTranslator) {
    const auto types = supported();
    EXPECT_EQ(getHFSFileType(types, "'TIFF'"), "TIFF Image");
    EXPECT_EQ(getHFSFileType(types, "'tiff'"), "Unknown");
    EXPECT_EQ(getHFSFileType(types, ""), "Unknown");
    EXPECT_EQ(getHFSFileType({""}, ""), "Unknown");
    installTranslator([](std::string_view s) { return "<" + std::string(s) + ">"; });
    EXPECT_EQ(getImageType("tif"), "<TIFF Image>");
    EXPECT_EQ(getImageType("gif"), "<Unknown>");
    EXPECT_EQ(getHFSFileType(types, "'JPEG'"), "<JPEG Image>");
    installTranslator(nullptr);
}

}  // namespace
}  // namespace pv
