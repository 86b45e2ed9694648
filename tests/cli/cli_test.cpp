#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "ReferenceReport.h"
#include "TestFiles.h"
#include "cli/CliRun.h"

namespace fs = std::filesystem;

namespace {

using pv::test::CliRun;
using pv::test::split;
using Args = std::vector<std::string>;

class CliTest : public ::testing::Test {
  protected:
    pv::testing::TempDir temp;
    const fs::path dir = temp.root;

    CliRun run(const Args& args) { return pv::test::runCli(PV_CLI_PATH, args, dir); }

    // An RGB TIFF from samples listed pixel by pixel, top row first.
    std::string tiff(const std::string& name, int w, int h,
                     const std::vector<std::uint32_t>& samples) {
        const std::string path = (dir / name).string();
        pv::testing::writeTiff(path, {w, h}, samples);
        return path;
    }

    std::string example() {
        return tiff("example.tif", 2, 2, {100, 0, 0, 0, 50, 0, 100, 50, 0, 0, 0, 0});
    }

    std::vector<std::string> filesInDir() const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(dir)) {
            names.push_back(e.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(CliTest, WorkedExampleGoesToStandardOutputOrTheReportFiles) {
    const std::string image = example(), stem = (dir / "result").string();
    const std::pair<Args, std::vector<std::string>> cases[] = {
        {{}, {}},
        {{"--report", stem}, {"result.xls"}},
        {{"--report", stem, "--txt"}, {"result.txt"}},
        {{"--report", stem, "--images"}, {"result.xls", "result_Image.tif", "result_SGram.tif"}},
    };
    for (auto [args, files] : cases) {
        args.push_back(image);
        const CliRun r = run(args);
        EXPECT_EQ(std::tuple(r.status, r.err), std::tuple(0, "")) << r.err;
        EXPECT_EQ(files.empty() ? r.out : pv::test::slurp(dir / files[0]),
                  pv::test::kReferenceReport);
        files.insert(files.begin(), "example.tif");
        EXPECT_EQ(filesInDir(), files);
        for (std::size_t i = 1; i < files.size(); ++i) {
            fs::remove(dir / files[i]);
        }
    }
}

TEST_F(CliTest, UsageErrorsExitWithTwoAndAHintAndWriteNothing) {
    const std::string image = example(), out = (dir / "out").string();
    // Most name a report, so that anything written before the refusal would show.
    const Args cases[] = {
        {},
        {"--report"},
        {"--images", image},
        {"--report", out, "--frobnicate", image},
        {"--report", out, "--pair", "red-yellow", image},
        {"--report", out, "--coefficients", "Rr,q", image},
        {"--report", out, "--jobs", "0", image},
        {"--report", out, "--jobs", "many", image},
        {"--report", out, "--reveal", image},
        {"--report", out, "--roi", "polygon:1,2,3,4,5", image},
        {"--report", out, "--roi", "polygon:1,2,3,4", image},
        {"--report", out, "--roi", "rect:1,2,3", image},
        {"--report", out, "--roi", "circle:1,2,3,4", image},
        {"--report", out, "--roi", "rect:1,x,3,4", image},
        {"--report", out, "--background", "purple:10", image},
        {"--report", out, "--background", "red:ten", image},
        {"--report", out, "--background", "red:256", image},
        {"--report", out, "--background", "red", image},
        // GNU forms and the rules between options.
        {"--report", out, "--images=yes", image},
        {"--report", out, "--pair", "red-blue", "--pair=green-red", image},
        {"--report", out, "-j2", "--jobs", "2", image},
        {"--report", out, "--txt", "--xls", image},
        {"--txt", image},
        {"--report", out, "--coefficients", "", image},
        {"--report", out, "--coefficients=,", image},
        // Regions without area or reaching past the scatter gram.
        {"--report", out, "--roi", "rect:10,10,0,5", image},
        {"--report", out, "--roi", "oval:10,10,5,0", image},
        {"--report", out, "--roi", "polygon:1,1,2,2,3,3", image},
        {"--report", out, "--roi", "rect:-1,0,10,10", image},
        {"--report", out, "--roi", "rect:250,0,10,10", image},
        {"--report", out, "--roi", "lasso:0,0,100,0,100,257", image},
        // Channel files go in pairs, instead of images.
        {"--report", out, "--y-file", image},
        {"--report", out, "--y-file", image, "--x-file", image, image},
        {"--report", out, "--y-channel", "1", image},
        {"--report", out, "--y-file", image, "--x-file", image, "--x-channel", "4"},
        {"--report", out, "--slice", "2", image},
        {"--y-channel", "1", "--x-channel", "2", "--slices", "some", image},
        {"--report", out, "--y-channel", "1", "--x-channel", "2", "--slices", "all", image},
        {"--report", out, "--y-channel", "1", "--x-channel", "2", "--slice", "0", image},
        // A folder is no report name.
        {"--report", dir.string() + "/", image},
        {"--report", dir.string(), image}};
    for (const Args& args : cases) {
        const CliRun r = run(args);
        EXPECT_EQ(std::tuple(r.status, r.out), std::tuple(2, "")) << testing::PrintToString(args);
        EXPECT_NE(r.err.find("Try 'pixmera-veltro-cli --help'"), std::string::npos) << r.err;
    }
    EXPECT_EQ(filesInDir(), Args{"example.tif"});
    EXPECT_EQ(run({"--help"}).status, 0);
    const CliRun v = run({"--version"});
    EXPECT_EQ(v.status, 0);
    EXPECT_EQ(v.out.rfind("pixmera-veltro-cli ", 0), 0u);
}

// The GNU forms do what the separate words do, and a report named with its suffix gets it once.
TEST_F(CliTest, GnuFormsAndANamedSuffix) {
    const std::string image = example();
    const CliRun words = run({"--pair", "green-red", "--jobs", "2", "--report",
                              (dir / "words").string(), "--txt", image});
    const CliRun gnu =
        run({"--pair=green-red", "-j2", "--report=" + (dir / "gnu.txt").string(), "--txt", image});
    ASSERT_EQ(std::tuple(words.status, gnu.status), std::tuple(0, 0)) << words.err << gnu.err;
    EXPECT_EQ(pv::test::slurp(dir / "gnu.txt"), pv::test::slurp(dir / "words.txt"));
    EXPECT_EQ(run({"--report", (dir / "r.xls").string(), image}).status, 0);
    EXPECT_EQ(filesInDir(), (Args{"example.tif", "gnu.txt", "r.xls", "words.txt"}));
}

TEST_F(CliTest, BatchGoesOnPastABadFileAndKeepsInputOrder) {
    const std::string good1 = example();
    const std::string good2 = tiff("second.tif", 1, 2, {0, 0, 0, 7, 0, 0});
    const std::string corrupt = (dir / "corrupt.tif").string();
    std::ofstream(corrupt) << "II*\0garbage that is not a TIFF directory";
    const std::string missing = (dir / "missing.png").string();

    for (const char* jobs : {"1", "3"}) {
        const CliRun r = run({"--jobs", jobs, good1, corrupt, missing, good2});
        EXPECT_EQ(r.status, 1);
        // One row per file given, in order; a failed one says why in the last column.
        const auto rows = split(r.out, '\n');
        ASSERT_EQ(rows.size(), 5u) << r.out;
        EXPECT_EQ(rows[0].substr(0, 10), "File\tPair\t");
        EXPECT_TRUE(rows[0].ends_with("\tM2\t16-bit scale\tError")) << rows[0];
        EXPECT_EQ(rows[1],
                  good1 +
                      "\tred-green\t1\t25.00\t1\t25.00\t1\t25.00\t3\t75.00\t-0.5000\t"
                      "0.5000\t0.2500\t1.0000\t0.5000\t0.5000\t--\t--\t--\t--\t--\t--\t--\t--\t\t"
                      "\t\t");
        const auto failedRow = [](const std::string& file, const std::string& why) {
            return file + "\tred-green" + std::string(26, '\t') + why;
        };
        EXPECT_EQ(rows[2], failedRow(corrupt,
                                     "not a picture file this program can read (TIFF, PNG, JPEG "
                                     "or BMP)"));
        EXPECT_EQ(rows[3], failedRow(missing, "the file does not exist"));
        const std::string prefix2 = good2 + "\tred-green\t1\t50.00\t0\t0.00\t";
        EXPECT_EQ(rows[4].substr(0, prefix2.size()), prefix2);
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

// A result without an answer is no failure, but the reason is said once per file.
TEST_F(CliTest, UndefinedResultsAreExplainedOnStandardError) {
    const std::string grey = tiff("grey.tif", 2, 1, {9, 9, 9, 80, 80, 80});
    const std::string flat = tiff("flat.tif", 2, 1, {100, 10, 0, 100, 50, 0});
    const std::string stack = (dir / "stack.tif").string();
    pv::testing::writeTiff(stack, {.wide = 2, .high = 1, .pages = 3}, {100, 0, 0, 20, 90, 0});
    const CliRun r = run({"-j1", grey, flat, stack});  // one at a time: lines in input order
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, grey +
                         ": the red and green channels are identical in every pixel: is the "
                         "picture grey?\n" +
                         flat + ": Rr is undefined: the red channel is constant\n" + stack +
                         ": only page 1 of 3 was analysed\n");
}

// 16-bit files are scaled each by its brightest sample, or all alike from a fixed depth; the
// table says which scale each took, and a file beyond the depth fails with the reason.
TEST_F(CliTest, SixteenBitScaleFollowsTheDepth) {
    const auto sixteen = [&](const std::string& name, std::uint32_t brightest) {
        const std::string path = (dir / name).string();
        pv::testing::writeTiff(path, {.wide = 2, .high = 1, .bits = 16},
                               {brightest, 0, 0, 0, 1000, 0});
        return path;
    };
    const std::string dim = sixteen("dim.tif", 2000), bright = sixteen("bright.tif", 4095);
    const std::string over = sixteen("over.tif", 5000);
    const auto lastColumns = [](const std::string& row) {
        const std::size_t error = row.rfind('\t'), scale = row.rfind('\t', error - 1);
        return Args{row.substr(scale + 1, error - scale - 1), row.substr(error + 1)};
    };
    const CliRun own = run({dim, bright});
    ASSERT_EQ(own.status, 0) << own.err;
    EXPECT_EQ(lastColumns(split(own.out, '\n')[1]), (Args{"255/2000", ""}));
    // With --depth 12 the green 1000 of both files is the same level: 1000 * 255 / 4095.
    const CliRun fixed = run({"--depth", "12", "-j1", dim, bright, over});
    EXPECT_EQ(fixed.status, 1);
    const auto rows = split(fixed.out, '\n');
    ASSERT_EQ(rows.size(), 4u);
    for (int r : {1, 2}) {
        EXPECT_EQ(lastColumns(rows[std::size_t(r)]), (Args{"255/4095", ""}));
    }
    EXPECT_EQ(lastColumns(rows[3]),
              (Args{"",
                    "the picture holds samples up to 5000, above 4095, the largest a "
                    "12-bit depth allows"}));
    // The green 1000 of a 12-bit pixel is level 62 (1000 * 255 / 4095 = 62.3): a background
    // at 62 removes it, one at 61 keeps it.
    const std::string pixel = (dir / "one.tif").string();
    pv::testing::writeTiff(pixel, {.wide = 1, .high = 1, .bits = 16}, {0, 1000, 0});
    for (const auto& [level, green] : {std::pair("62", "Green:\t0\t"), {"61", "Green:\t1\t"}}) {
        const CliRun r =
            run({"--depth", "12", "--background", std::string("green:") + level, pixel});
        EXPECT_NE(r.out.find(green), std::string::npos) << level << "\n" << r.out;
    }
}

// Two channel files give the report of the one RGB picture that holds them in the pair's
// channels, with the third channel 0; a file that does not fit is named.
TEST_F(CliTest, TwoChannelFilesAreAnalysedAsOnePicture) {
    const int w = 5, h = 4;
    std::vector<std::uint32_t> ys, xs;
    for (int i = 0; i < w * h; ++i) {
        ys.push_back(std::uint32_t(i * 37 % 256));
        xs.push_back(std::uint32_t(i % 3 == 0 ? 0 : i * 53 % 256));
    }
    const auto grey = [&](const std::string& name, int wide, const std::vector<std::uint32_t>& v) {
        const std::string path = (dir / name).string();
        pv::testing::writeTiff(
            path, {.wide = wide, .high = h, .samples = 1, .photometric = PHOTOMETRIC_MINISBLACK},
            v);
        return path;
    };
    const std::string y = grey("y.tif", w, ys), x = grey("x.tif", w, xs);
    for (const auto& [pair, yAt, xAt] : {std::tuple("red-green", 0, 1), {"blue-red", 2, 0}}) {
        SCOPED_TRACE(pair);
        std::vector<std::uint32_t> rgb(std::size_t(w * h * 3), 0);
        for (std::size_t i = 0; i < ys.size(); ++i) {
            rgb[3 * i + std::size_t(yAt)] = ys[i];
            rgb[3 * i + std::size_t(xAt)] = xs[i];
        }
        const std::string both = tiff("both.tif", w, h, rgb);
        const Args region = {"--pair", pair, "--roi", "rect:20,20,200,200"};
        Args asFiles = region, asPicture = region;
        asFiles.insert(asFiles.end(), {"--y-file", y, "--x-file", x});
        asPicture.push_back(both);
        const CliRun files = run(asFiles), picture = run(asPicture);
        EXPECT_EQ(std::tuple(files.status, files.err), std::tuple(0, ""));
        EXPECT_EQ(files.out, picture.out);
    }
    const std::string narrow = grey("narrow.tif", w - 1, std::vector<std::uint32_t>((w - 1) * h));
    const CliRun refused = run({"--y-file", y, "--x-file", narrow});
    EXPECT_EQ(std::tuple(refused.status, refused.out, refused.err),
              std::tuple(1, "",
                         narrow + ": this picture is 4 x 4 pixels but " + y +
                             " is 5 x 4: the two channels must be the same size\n"));
}

// A mask's pixels give the report of a picture made of those pixels alone, laid in one row: every
// measure is a sum over pixels. A mask that keeps nothing says so, and only that.
TEST_F(CliTest, AMaskLimitsTheAnalysisToItsPixels) {
    const int w = 6, h = 5;
    std::vector<std::uint32_t> rgb, mask, kept;
    for (int i = 0; i < w * h; ++i) {
        const std::uint32_t r = std::uint32_t(i * 41 % 256),
                            g = std::uint32_t(i % 4 ? i * 29 % 256 : 0);
        rgb.insert(rgb.end(), {r, g, 0});
        mask.insert(mask.end(), {std::uint32_t(i % 3 ? 200 : 0), 0, 0});
        if (i % 3) {
            kept.insert(kept.end(), {r, g, 0});
        }
    }
    const std::string picture = tiff("picture.tif", w, h, rgb),
                      maskFile = tiff("mask.tif", w, h, mask);
    const std::string row = tiff("row.tif", int(kept.size() / 3), 1, kept);
    const Args region = {"--roi", "rect:30,30,200,200"};
    Args masked = region, alone = region;
    masked.insert(masked.end(), {"--mask", maskFile, picture});
    alone.push_back(row);
    const CliRun m = run(masked), a = run(alone);
    EXPECT_EQ(std::tuple(m.status, m.out, m.err), std::tuple(0, a.out, a.err));

    const std::string none = tiff("none.tif", w, h, std::vector<std::uint32_t>(w * h * 3, 0));
    const CliRun empty = run({"--mask", none, picture});
    EXPECT_EQ(std::tuple(empty.status, empty.err),
              std::tuple(0, picture + ": the mask holds no pixel: there is nothing to analyse\n"));
    const std::string small =
        tiff("small.tif", w - 1, h, std::vector<std::uint32_t>((w - 1) * h * 3, 9));
    const CliRun refused = run({"--mask", small, picture});
    EXPECT_EQ(std::tuple(refused.status, refused.err),
              std::tuple(1, picture + ": mask " + small +
                                ": the mask is 5 x 5 pixels but the picture is 6 x 5\n"));
}

// Each labelled cell gets the row that a picture of its pixels alone, laid in one row, gets in a
// batch table, its label after the pair.
TEST_F(CliTest, LabelledCellsGetARowEach) {
    const int w = 8, h = 6;
    std::vector<std::uint32_t> rgb, labels;
    std::map<std::uint32_t, std::vector<std::uint32_t>> cells;
    for (int i = 0; i < w * h; ++i) {
        const std::uint32_t r = std::uint32_t(i * 41 % 256),
                            g = std::uint32_t(i % 4 ? i * 29 % 256 : 0);
        rgb.insert(rgb.end(), {r, g, 0});
        // Cells 3 and 40000 in two pieces each, touching; background in the last column.
        const std::uint32_t label = i % w == w - 1 ? 0 : (i / w + i % w / 2) % 2 ? 3 : 40000;
        labels.push_back(label);
        if (label) {
            cells[label].insert(cells[label].end(), {r, g, 0});
        }
    }
    const std::string picture = tiff("picture.tif", w, h, rgb);
    const std::string labelFile = (dir / "labels.tif").string();
    pv::testing::writeTiff(
        labelFile,
        {.wide = w, .high = h, .samples = 1, .bits = 32, .photometric = PHOTOMETRIC_MINISBLACK},
        labels);
    const CliRun r = run({"--roi", "rect:30,30,200,200", "--labels", labelFile, picture});
    ASSERT_EQ(std::tuple(r.status, r.err), std::tuple(0, ""));
    const auto rows = split(r.out, '\n');
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].rfind("File\tPair\tLabel\t", 0), 0u);
    std::size_t at = 1;
    for (const auto& [label, pixels] : cells) {
        const std::string alone = tiff("alone.tif", int(pixels.size() / 3), 1, pixels);
        const CliRun own = run({"--roi", "rect:30,30,200,200", alone, alone});
        const auto ownRow = split(split(own.out, '\n')[1], '\t');
        auto expected = ownRow;
        expected[0] = picture;
        expected.insert(expected.begin() + 2, std::to_string(label));
        EXPECT_EQ(split(rows[at++], '\t'), expected) << label;
    }
}

// Two grey channels of a stack, a page each, in the page order of `order` (the dimensions from
// the fastest-changing one, as OME's DimensionOrder after "XY"), with that description.
struct StackPages {
    int w = 5, h = 3, channels = 2, slices = 4;
    static std::uint32_t sample(int c, int z, int i) {
        return std::uint32_t((c * 89 + z * 37 + i * 11) % 256);
    }
    void write(const std::string& path, const std::string& order,
               const std::string& description) const {
        TIFF* t = TIFFOpen(path.c_str(), "w");
        ASSERT_NE(t, nullptr);
        for (int page = 0; page < channels * slices; ++page) {
            const bool channelFirst = order[0] == 'C';
            const int c = channelFirst ? page % channels : page / slices;
            const int z = channelFirst ? page / channels : page % slices;
            std::vector<std::uint32_t> samples;
            for (int i = 0; i < w * h; ++i) {
                samples.push_back(sample(c, z, i));
            }
            if (page > 0) {
                ASSERT_EQ(TIFFWriteDirectory(t), 1);
            }
            pv::testing::writeTiffPage(
                t, {.wide = w, .high = h, .samples = 1, .photometric = PHOTOMETRIC_MINISBLACK},
                samples);
            if (page == 0) {
                TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
            }
        }
        TIFFClose(t);
    }
};

// Makes a page's pixels lie past the end of the file, as in a stack whose pages were gathered
// from a copy cut short.
void cutPageShort(const std::string& path, int page) {
    TIFF* t = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(TIFFSetDirectory(t, tdir_t(page)), 1);
    const std::uint64_t ifd = TIFFCurrentDirOffset(t);
    TIFFClose(t);
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekg(std::streamoff(ifd));
    std::uint16_t entries = 0;
    f.read(reinterpret_cast<char*>(&entries), 2);
    for (int e = 0; e < entries; ++e) {
        const std::streamoff at = std::streamoff(ifd) + 2 + 12 * e;
        std::uint16_t tag = 0, type = 0;
        f.seekg(at);
        f.read(reinterpret_cast<char*>(&tag), 2);
        f.read(reinterpret_cast<char*>(&type), 2);
        if (tag == TIFFTAG_STRIPOFFSETS) {
            ASSERT_EQ(type, TIFF_LONG);  // one strip: its offset lies in the entry
            const auto past = std::uint32_t(fs::file_size(path) + 4096);
            f.seekp(at + 8);
            f.write(reinterpret_cast<const char*>(&past), 4);
            return;
        }
    }
    FAIL() << "no strip offsets in page " << page;
}

// Two channels of one slice of a hyperstack give the report of the RGB picture that holds those
// two pages as red and green; channels go by number or by the name the file gives them.
TEST_F(CliTest, ChannelsOfAStackSliceAreAnalysedAsThePair) {
    const StackPages pages;
    const int w = pages.w, h = pages.h, slices = pages.slices;
    const auto sample = StackPages::sample;
    const std::string stack = (dir / "stack.tif").string();
    pages.write(stack, "CZT", "ImageJ=1.54f\nimages=8\nchannels=2\nslices=4\nhyperstack=true\n");
    // Slice z as an RGB picture, channel 2 in red and channel 1 in green.
    const auto sliceAsPicture = [&](int z) {
        std::vector<std::uint32_t> rgb;
        for (int i = 0; i < w * h; ++i) {
            rgb.insert(rgb.end(), {sample(1, z, i), sample(0, z, i), 0});
        }
        return tiff("slice" + std::to_string(z + 1) + ".tif", w, h, rgb);
    };
    const CliRun expected = run({sliceAsPicture(2)});
    const CliRun got = run({"--y-channel", "2", "--x-channel", "1", "--slice", "3", stack});
    EXPECT_EQ(std::tuple(got.status, got.err, got.out), std::tuple(0, "", expected.out));
    // Every slice, a row each: that of the slice's own picture, with its number after the pair.
    const CliRun all = run({"--y-channel", "2", "--x-channel", "1", "--slices", "all", stack});
    ASSERT_EQ(all.status, 0) << all.err;
    const auto rows = split(all.out, '\n');
    ASSERT_EQ(rows.size(), std::size_t(slices + 1));
    EXPECT_EQ(rows[0].rfind("File\tPair\tSlice\t", 0), 0u);
    for (int z = 0; z < slices; ++z) {
        const std::string picture = sliceAsPicture(z);
        auto row = split(split(run({picture, picture}).out, '\n')[1], '\t');
        row[0] = stack;
        row.insert(row.begin() + 2, std::to_string(z + 1));
        EXPECT_EQ(split(rows[std::size_t(z + 1)], '\t'), row) << "slice " << z + 1;
    }
    // The stack as one population: the report of one tall picture of all its slices, one
    // under the other, with a region and a correction alike.
    std::vector<std::uint32_t> tall;
    for (int z = 0; z < slices; ++z) {
        for (int i = 0; i < w * h; ++i) {
            tall.insert(tall.end(), {sample(1, z, i), sample(0, z, i), 0});
        }
    }
    const Args road = {"--roi", "oval:20,20,200,220", "--background", "all:30"};
    Args pooledArgs = road, tallArgs = road;
    pooledArgs.insert(pooledArgs.end(), {"--y-channel", "2", "--x-channel", "1", "--stack", stack});
    tallArgs.push_back(tiff("tall.tif", w, h * slices, tall));
    const CliRun pooled = run(pooledArgs), whole = run(tallArgs);
    EXPECT_EQ(std::tuple(pooled.status, pooled.err, pooled.out),
              std::tuple(0, whole.err, whole.out));
    const CliRun past = run({"--y-channel", "1", "--x-channel", "2", "--slice", "5", stack});
    EXPECT_EQ(std::tuple(past.status, past.err),
              std::tuple(1, stack + ": there is no slice 5: the stack has 4\n"));
    const CliRun unnamed = run({"--y-channel", "GFP", "--x-channel", "1", stack});
    EXPECT_EQ(std::tuple(unnamed.status, unnamed.err),
              std::tuple(1, stack + ": no channel of the stack is named \"GFP\"\n"));
}

// The same stack saved as an OME-TIFF with slices changing fastest gives the same rows; labels
// give a row per cell of every slice; a page cut short in the middle fails the run by name.
TEST_F(CliTest, OmeStacksLabelsPerSliceAndADamagedPage) {
    const StackPages pages;
    const std::string imagej = (dir / "imagej.tif").string(), ome = (dir / "ome.tif").string();
    pages.write(imagej, "CZT", "ImageJ=1.54f\nimages=8\nchannels=2\nslices=4\nhyperstack=true\n");
    pages.write(ome, "ZCT",
                R"(<?xml version="1.0" encoding="UTF-8"?>
<OME xmlns="http://www.openmicroscopy.org/Schemas/OME/2016-06">
  <Image ID="Image:0"><Pixels ID="Pixels:0" DimensionOrder="XYZCT" Type="uint8"
      SizeX="5" SizeY="3" SizeZ="4" SizeC="2" SizeT="1">
    <Channel ID="Channel:0:0" Name="DAPI"/><Channel ID="Channel:0:1" Name="GFP"/>
  </Pixels></Image>
</OME>)");
    const Args slicesOf = {"--y-channel", "2", "--x-channel", "1", "--slices", "all"};
    auto withFile = [&](Args args, const std::string& file) {
        args.push_back(file);
        return run(args);
    };
    const CliRun fromImageJ = withFile(slicesOf, imagej);
    ASSERT_EQ(fromImageJ.status, 0) << fromImageJ.err;
    const CliRun byName =
        withFile({"--y-channel", "GFP", "--x-channel", "DAPI", "--slices", "all"}, ome);
    ASSERT_EQ(byName.status, 0) << byName.err;
    std::string expected = fromImageJ.out;
    for (std::size_t at; (at = expected.find(imagej)) != std::string::npos;) {
        expected.replace(at, imagej.size(), ome);
    }
    EXPECT_EQ(byName.out, expected);

    // Two cells, one of them in two pieces, and background.
    std::vector<std::uint32_t> labels;
    for (int i = 0; i < pages.w * pages.h; ++i) {
        labels.push_back(i % pages.w == 2 ? 0 : i % pages.w < 2 || i / pages.w == 0 ? 7 : 9);
    }
    const std::string labelFile = (dir / "cells.tif").string();
    pv::testing::writeTiff(labelFile,
                           {.wide = pages.w,
                            .high = pages.h,
                            .samples = 1,
                            .bits = 16,
                            .photometric = PHOTOMETRIC_MINISBLACK},
                           labels);
    Args cellArgs = slicesOf;
    cellArgs.insert(cellArgs.end(), {"--labels", labelFile});
    const CliRun cells = withFile(cellArgs, ome);
    ASSERT_EQ(cells.status, 0) << cells.err;
    const auto rows = split(cells.out, '\n');
    ASSERT_EQ(rows.size(), std::size_t(1 + 2 * pages.slices));
    EXPECT_EQ(rows[0].rfind("File\tPair\tSlice\tLabel\t", 0), 0u);
    for (int z = 1; z <= pages.slices; ++z) {
        const CliRun one = withFile({"--y-channel", "GFP", "--x-channel", "DAPI", "--slice",
                                     std::to_string(z), "--labels", labelFile},
                                    ome);
        const auto own = split(one.out, '\n');
        ASSERT_EQ(own.size(), 3u) << one.err;
        for (std::size_t cell = 1; cell <= 2; ++cell) {
            auto row = split(own[cell], '\t');
            row.insert(row.begin() + 2, std::to_string(z));
            EXPECT_EQ(split(rows[std::size_t(2 * (z - 1)) + cell], '\t'), row) << z;
        }
    }

    // The pixels of page 6 of 8 (slice 3, channel 2) lie past the end of the file.
    cutPageShort(imagej, 5);
    const CliRun pooled =
        withFile({"--y-channel", "2", "--x-channel", "1", "--stack", "--report", "out"}, imagej);
    EXPECT_EQ(pooled.status, 1);
    EXPECT_NE(pooled.err.find("page 6"), std::string::npos) << "[" << pooled.err << "]";
    EXPECT_EQ(filesInDir(), (std::vector<std::string>{"cells.tif", "imagej.tif", "ome.tif"}));
    const CliRun third = withFile({"--y-channel", "2", "--x-channel", "1", "--slice", "3"}, imagej);
    EXPECT_EQ(third.status, 1);
    EXPECT_NE(third.err.find("page 6"), std::string::npos) << third.err;
}

// Results that cannot be written to standard output are a failure, not a success.
TEST_F(CliTest, FullStandardOutputFails) {
    if (!fs::exists("/dev/full")) {
        GTEST_SKIP() << "no /dev/full here";
    }
    const std::string image = example(), err = (dir / "err.txt").string();
    for (const std::string& args : {image, image + " " + image, std::string("--help")}) {
        const std::string command =
            std::string(PV_CLI_PATH) + " " + args + " > /dev/full 2> " + err;
        const int status = std::system(command.c_str());
        ASSERT_TRUE(WIFEXITED(status)) << args;
        EXPECT_EQ(WEXITSTATUS(status), 1) << args;
        EXPECT_NE(pv::test::slurp(err).find("cannot write to standard output"), std::string::npos);
    }
}

TEST_F(CliTest, EachRegionToolSelectsThePixelsInsideItsOutline) {
    // Red-green pairs (X green, Y red): A (20, 20), B (0, 200), C (200, 0), D (150, 150), E (0, 0).
    const std::string image =
        tiff("five.tif", 5, 1, {20, 20, 0, 200, 0, 0, 0, 200, 0, 150, 150, 0, 0, 0, 0});
    const std::pair<Args, std::vector<std::string>> cases[] = {
        // A on its bottom-left corner is in, D on its top edge out.
        {{"--roi", "rect:20,20,200,130"},
         {"0", "0.00", "0", "0.00", "1", "100.00", "1", "100.00", "1.0000", "1.0000"}},
        // Only D lies within 128 of the centre.
        {{"--roi", "oval:0,0,256,256"},
         {"0", "0.00", "0", "0.00", "1", "100.00", "1", "100.00", "1.0000", "1.0000"}},
        // Below the anti-diagonal: A, B, C, E.
        {{"--roi", "polygon:0,0,256,0,0,256"},
         {"1", "25.00", "1", "25.00", "1", "25.00", "3", "75.00", "0.0909", "0.0909"}},
        // X from 100 up: C and D.
        {{"--roi", "lasso:100,0,256,0,256,256,100,256"},
         {"0", "0.00", "1", "50.00", "1", "50.00", "2", "100.00", "1.0000", "0.4286"}},
        // Everything, once A is background.
        {{"--background", "all:30", "--roi", "rect:0,0,256,256"},
         {"1", "20.00", "1", "20.00", "1", "20.00", "3", "60.00", "0.4286", "0.4286"}},
    };
    for (auto [args, cells] : cases) {
        args.insert(args.end(), {image, image});
        const CliRun r = run(args);
        ASSERT_EQ(r.status, 0) << r.err;
        // The first row's region columns: Y count, %, X count, %, XY count, %, total, %, M1, M2.
        const auto row = split(split(r.out, '\n').at(1), '\t');
        ASSERT_GE(row.size(), 26u);
        EXPECT_EQ(std::vector(row.begin() + 16, row.begin() + 26), cells)
            << testing::PrintToString(args);
    }
}

}  // namespace
