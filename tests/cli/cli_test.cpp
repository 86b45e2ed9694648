#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ReferenceReport.h"
#include "image/Bitmap.h"
#include "image/ImageFile.h"
#include "output/Export.h"

namespace fs = std::filesystem;

namespace {

struct CliRun {
    int status = -1;
    std::string out;
    std::string err;
};

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

class CliTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("pv-cli-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    CliRun run(const std::vector<std::string>& args) {
        std::string cmd = quote(PV_CLI_PATH);
        for (const std::string& a : args) {
            cmd += " " + quote(a);
        }
        const fs::path out = dir / "stdout", err = dir / "stderr";
        cmd += " >" + quote(out.string()) + " 2>" + quote(err.string());
        CliRun r;
        const int raw = std::system(cmd.c_str());
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = slurp(out);
        r.err = slurp(err);
        fs::remove(out);
        fs::remove(err);
        return r;
    }

    // Writes an RGB TIFF from pixels listed top row first.
    std::string tiff(const std::string& name, int w, int h,
                     const std::vector<std::array<std::uint8_t, 3>>& pixels) {
        auto b = pv::Bitmap::create(w, h, 3, false, false);
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            for (std::size_t k = 0; k < 3; ++k) {
                b->bitmapData()[i * 3 + k] = pixels[i][k];
            }
        }
        const std::string path = (dir / name).string();
        EXPECT_TRUE(pv::writeTiffAtomically(path, *b).ok());
        return path;
    }

    std::string example() {
        return tiff("example.tif", 2, 2, {{100, 0, 0}, {0, 50, 0}, {100, 50, 0}, {0, 0, 0}});
    }

    fs::path dir;
};

const std::string& kExampleReport = pv::test::kReferenceReport;

TEST_F(CliTest, OneImagePrintsItsReport) {
    const CliRun r = run({example()});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, kExampleReport);
    EXPECT_EQ(r.err, "");
}

TEST_F(CliTest, ReportFilesAndPictures) {
    const std::string image = example();
    const std::string stem = (dir / "result").string();
    struct Case {
        std::vector<std::string> extra;
        std::vector<std::string> files;
    };
    for (const Case& c :
         {Case{{}, {"result.xls"}}, Case{{"--txt"}, {"result.txt"}},
          Case{{"--images"}, {"result.xls", "result_Image.tif", "result_SGram.tif"}}}) {
        std::vector<std::string> args = {"--report", stem};
        args.insert(args.end(), c.extra.begin(), c.extra.end());
        args.push_back(image);
        const CliRun r = run(args);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, "");
        std::vector<std::string> written;
        for (const auto& e : fs::directory_iterator(dir)) {
            if (e.path().filename().string().rfind("result", 0) == 0) {
                written.push_back(e.path().filename().string());
            }
        }
        std::sort(written.begin(), written.end());
        EXPECT_EQ(written, c.files);
        EXPECT_EQ(slurp(dir / c.files[0]), kExampleReport);
        for (const std::string& f : written) {
            fs::remove(dir / f);
        }
    }
}

TEST_F(CliTest, CoefficientsAndPairOptions) {
    const std::string image = example();
    CliRun r = run({"--coefficients", "Rr,m", image});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Rr\t-0.5000\nR\tND\nk1\tND\nk2\tND\nm1\t0.5000\nm2\t0.5000\n"),
              std::string::npos)
        << r.out;

    r = run({"--pair", "blue-red", image});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Blue:\t0\t0.00\t--\t--\nRed:\t1\t25.00\t--\t--\nMagenta:\t0\t0.00"),
              std::string::npos)
        << r.out;
}

TEST_F(CliTest, UsageErrorsExitWithTwoAndAHint) {
    const std::string image = example();
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{},
                                               {"--frobnicate", image},
                                               {"--pair", "red-yellow", image},
                                               {"--coefficients", "Rr,q", image},
                                               {"--jobs", "0", image},
                                               {"--jobs", "many", image},
                                               {"--images", image},
                                               {"--report"}}) {
        const CliRun r = run(args);
        EXPECT_EQ(r.status, 2) << ::testing::PrintToString(args);
        EXPECT_NE(r.err.find("Try 'pixmera-veltro-cli --help'"), std::string::npos) << r.err;
        EXPECT_EQ(r.out, "");
    }
    EXPECT_EQ(run({"--help"}).status, 0);
    const CliRun v = run({"--version"});
    EXPECT_EQ(v.status, 0);
    EXPECT_EQ(v.out.rfind("pixmera-veltro-cli ", 0), 0u);
}

TEST_F(CliTest, BatchGoesOnPastABadFileAndKeepsInputOrder) {
    const std::string good1 = example();
    const std::string good2 = tiff("second.tif", 1, 2, {{0, 0, 0}, {7, 0, 0}});
    const std::string corrupt = (dir / "corrupt.tif").string();
    std::ofstream(corrupt) << "II*\0garbage that is not a TIFF directory";
    const std::string missing = (dir / "missing.png").string();

    for (const char* jobs : {"1", "3"}) {
        const CliRun r = run({"--jobs", jobs, good1, corrupt, missing, good2});
        EXPECT_EQ(r.status, 1);
        std::istringstream lines(r.out);
        std::string header, row1, row2, extra;
        std::getline(lines, header);
        std::getline(lines, row1);
        std::getline(lines, row2);
        EXPECT_FALSE(std::getline(lines, extra));
        EXPECT_EQ(header,
                  "File\tPair\tRed count\tRed %\tGreen count\tGreen %\tYellow count\tYellow %\t"
                  "Total count\tTotal %\tRr\tR\tk1\tk2\tm1\tm2\tRegion Red count\tRegion Red %\t"
                  "Region Green count\tRegion Green %\tRegion Yellow count\tRegion Yellow %\t"
                  "Region Total count\tRegion Total %\tM1\tM2");
        EXPECT_EQ(row1,
                  good1 +
                      "\tred-green\t1\t25.00\t1\t25.00\t1\t25.00\t3\t75.00\t-0.5000\t"
                      "0.5000\t0.2500\t1.0000\t0.5000\t0.5000\t--\t--\t--\t--\t--\t--\t--\t--\t\t");
        const std::string prefix2 = good2 + "\tred-green\t1\t50.00\t0\t0.00\t";
        EXPECT_EQ(row2.substr(0, prefix2.size()), prefix2);
        EXPECT_NE(r.err.find(corrupt + ": "), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(missing + ": "), std::string::npos) << r.err;
    }
}

TEST_F(CliTest, FailedWriteIsReportedAndLeavesNothing) {
    const CliRun r = run({"--report", (dir / "no-such-folder" / "out").string(), example()});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("out.xls"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(dir / "no-such-folder"));
}

}  // namespace

namespace {

// Red-green pairs (X green, Y red): A (20, 20), B (0, 200), C (200, 0), D (150, 150), E (0, 0).
const std::vector<std::array<std::uint8_t, 3>> kRegionPixels = {
    {20, 20, 0}, {200, 0, 0}, {0, 200, 0}, {150, 150, 0}, {0, 0, 0}};

// The region columns of one batch row: Y count, %, X count, %, XY count, %, total, %, M1, M2.
std::vector<std::string> regionCells(const std::string& row) {
    std::vector<std::string> cells;
    std::istringstream in(row);
    for (std::string cell; std::getline(in, cell, '\t');) {
        cells.push_back(cell);
    }
    return std::vector<std::string>(cells.end() - 10, cells.end());
}

TEST_F(CliTest, EachRegionToolSelectsThePixelsInsideItsOutline) {
    const std::string image = tiff("five.tif", 5, 1, kRegionPixels);
    struct Case {
        const char* roi;
        std::vector<std::string> cells;
    };
    const Case cases[] = {
        // A and E, the corner point included.
        {"rect:0,0,100,100",
         {"0", "0.00", "0", "0.00", "1", "50.00", "1", "50.00", "1.0000", "1.0000"}},
        // Only D lies within 128 of the centre.
        {"oval:0,0,256,256",
         {"0", "0.00", "0", "0.00", "1", "100.00", "1", "100.00", "1.0000", "1.0000"}},
        // Below the anti-diagonal: A, B, C, E.
        {"polygon:-1,-1,257,-1,-1,257",
         {"1", "25.00", "1", "25.00", "1", "25.00", "3", "75.00", "0.0909", "0.0909"}},
        // X from 100 up: C and D.
        {"lasso:100,-1,257,-1,257,257,100,257",
         {"0", "0.00", "1", "50.00", "1", "50.00", "2", "100.00", "1.0000", "0.4286"}},
    };
    for (const Case& c : cases) {
        const CliRun r = run({"--roi", c.roi, image, image});
        ASSERT_EQ(r.status, 0) << r.err;
        std::istringstream lines(r.out);
        std::string header, row;
        std::getline(lines, header);
        std::getline(lines, row);
        EXPECT_EQ(regionCells(row), c.cells) << c.roi;
    }
}

TEST_F(CliTest, BackgroundCorrectionRevealAndPictures) {
    const std::string image = tiff("five.tif", 5, 1, kRegionPixels);
    const std::string stem = (dir / "out").string();
    const CliRun r =
        run({"--background", "all:30", "--background", "red:10", "--roi", "rect:100,100,156,156",
             "--reveal", "--images", "--txt", "--report", stem, image});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string report = slurp(dir / "out.txt");
    // A is now black: one red, one green and one yellow pixel are left.
    EXPECT_NE(report.find("Red:\t1\t20.00\t0\t0.00\nGreen:\t1\t20.00\t0\t0.00\n"
                          "Yellow:\t1\t20.00\t1\t100.00\n"),
              std::string::npos)
        << report;
    EXPECT_NE(report.find("M1\t1.0000\nM2\t1.0000\n"), std::string::npos);
    for (const char* suffix : {"_Image.tif", "_SGram.tif", "_ImgReflect.tif"}) {
        EXPECT_TRUE(fs::exists(dir / ("out" + std::string(suffix)))) << suffix;
    }
    auto revealed = pv::readImageFile((dir / "out_ImgReflect.tif").string());
    ASSERT_TRUE(revealed.ok());
    const std::uint8_t* px = revealed->bitmap->bitmapData();
    const std::vector<int> bytes(px, px + 15);
    EXPECT_EQ(bytes, (std::vector<int>{0, 0, 0, 200, 0, 0, 0, 200, 0, 255, 255, 255, 0, 0, 0}));
}

TEST_F(CliTest, MalformedRegionAndBackgroundOptionsWriteNothing) {
    const std::string image = example();
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"--roi", "polygon:1,2,3,4,5", image},
                                               {"--roi", "polygon:1,2,3,4", image},
                                               {"--roi", "rect:1,2,3", image},
                                               {"--roi", "circle:1,2,3,4", image},
                                               {"--roi", "rect:1,x,3,4", image},
                                               {"--background", "purple:10", image},
                                               {"--background", "red:ten", image},
                                               {"--background", "red:256", image},
                                               {"--background", "red", image},
                                               {"--reveal", image}}) {
        const CliRun r = run(args);
        EXPECT_EQ(r.status, 2) << ::testing::PrintToString(args);
        EXPECT_NE(r.err.find("Try 'pixmera-veltro-cli --help'"), std::string::npos);
        EXPECT_EQ(r.out, "");
    }
}

}  // namespace
