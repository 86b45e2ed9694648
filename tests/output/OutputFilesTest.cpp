#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "output/Export.h"
#include "output/TempFolder.h"

namespace pv {
namespace {

using test::namesIn;
using test::TempFolder;

Bitmap picture(int wide, int high) {
    return *Bitmap::create(wide, high, 3, false, false, 0, true);
}

ResultFields someFields() {
    ResultFields f;
    f.yAxisPixelColorText = "Red:";
    f.coefficient_Rr = "0.1234";
    return f;
}

TEST(OutputPixelCoefficientData, WritesTheReportAndTheAskedPictures) {
    const Bitmap image = picture(4, 3);
    const Bitmap scatterGram = picture(256, 256);
    const Bitmap revealed = picture(4, 3);
    struct Case {
        const char* name;
        ReportFormat format;
        bool saveImages;
        const Bitmap* revealed;
        std::set<std::string> files;
    };
    const std::vector<Case> cases = {
        {"report only", ReportFormat::Spreadsheet, false, &revealed, {"run.xls"}},
        {"plain text", ReportFormat::PlainText, false, nullptr, {"run.txt"}},
        {"pictures without a reveal",
         ReportFormat::Spreadsheet,
         true,
         nullptr,
         {"run.xls", "run_Image.tif", "run_SGram.tif"}},
        {"pictures with a reveal",
         ReportFormat::PlainText,
         true,
         &revealed,
         {"run.txt", "run_Image.tif", "run_SGram.tif", "run_ImgReflect.tif"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempFolder folder;
        ExportRequest request;
        request.stem = folder / "run";
        request.format = c.format;
        request.saveImages = c.saveImages;
        request.currentDisplayedImage = &image;
        request.scatterGram = &scatterGram;
        request.revealedImage = c.revealed;
        const std::vector<Error> errors = outputPixelCoefficientData(someFields(), request);
        EXPECT_TRUE(errors.empty()) << errors.front().message;
        EXPECT_EQ(namesIn(folder.path()), c.files);
        EXPECT_EQ(test::readFile(reportPath(request.stem, c.format)), buildReport(someFields()));
    }
}

TEST(OutputPixelCoefficientData, AFailedPictureDoesNotStopTheOthers) {
    TempFolder folder;
    const Bitmap image = picture(4, 3);
    const Bitmap revealed = picture(4, 3);
    ExportRequest request;
    request.stem = folder / "run";
    request.saveImages = true;
    request.currentDisplayedImage = &image;
    request.scatterGram = nullptr;
    request.revealedImage = &revealed;
    const std::vector<Error> errors = outputPixelCoefficientData(someFields(), request);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].message,
              "cannot write " + request.stem + "_SGram.tif: the picture is empty");
    EXPECT_EQ(namesIn(folder.path()),
              (std::set<std::string>{"run.xls", "run_Image.tif", "run_ImgReflect.tif"}));
}

TEST(OutputPixelCoefficientData, EveryFailureIsReturned) {
    TempFolder folder;
    const Bitmap image = picture(4, 3);
    ExportRequest request;
    request.stem = folder / "missing/run";
    request.saveImages = true;
    request.currentDisplayedImage = &image;
    request.scatterGram = &image;
    request.revealedImage = &image;
    const std::vector<Error> errors = outputPixelCoefficientData(someFields(), request);
    ASSERT_EQ(errors.size(), 4u);
    const char* names[] = {".xls", "_Image.tif", "_SGram.tif", "_ImgReflect.tif"};
    for (std::size_t i = 0; i < errors.size(); ++i) {
        EXPECT_EQ(errors[i].message,
                  "cannot write " + request.stem + names[i] + ": No such file or directory");
    }
    EXPECT_TRUE(namesIn(folder.path()).empty());
}

}  // namespace
}  // namespace pv
