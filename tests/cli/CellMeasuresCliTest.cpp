#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "GreyPages.h"
#include "TestFiles.h"
#include "cli/CliRun.h"

namespace fs = std::filesystem;

namespace {

using pv::test::CliRun;
using pv::test::split;
using Args = std::vector<std::string>;
using Samples = std::vector<std::uint32_t>;

// A table's rows as column name to cell.
std::vector<std::map<std::string, std::string>> tableOf(const std::string& out) {
    const Args rows = split(out, '\n');
    std::vector<std::map<std::string, std::string>> table;
    if (rows.empty()) {
        return table;
    }
    const Args header = split(rows[0], '\t');
    for (std::size_t r = 1; r < rows.size(); ++r) {
        const Args cells = split(rows[r], '\t');
        std::map<std::string, std::string> row;
        for (std::size_t i = 0; i < header.size() && i < cells.size(); ++i) {
            row[header[i]] = cells[i];
        }
        table.push_back(row);
    }
    return table;
}

// The further measures' columns of a table: those after M2, the significance test's the last
// five of them.
Args measureColumns(const std::string& out) {
    const Args header = split(split(out, '\n').at(0), '\t');
    const auto m2 = std::find(header.begin(), header.end(), "M2");
    const auto scale = std::find(header.begin(), header.end(), "16-bit scale");
    return m2 < scale ? Args(m2 + 1, scale) : Args();
}

class CellMeasuresCliTest : public ::testing::Test {
  protected:
    pv::testing::TempDir temp;
    const fs::path dir = temp.root;
    static constexpr int w = 30, h = 20;

    CliRun run(const Args& args) { return pv::test::runCli(PV_CLI_PATH, args, dir); }

    std::string rgbFile(const std::string& name, int wide, int high, const Samples& rgb) {
        const std::string path = (dir / name).string();
        pv::testing::writeTiff(path, {.wide = wide, .high = high}, rgb);
        return path;
    }
    std::string greyFile(const std::string& name, int wide, int high, const Samples& values,
                         int bits = 8) {
        const std::string path = (dir / name).string();
        pv::testing::writeTiff(path,
                               {.wide = wide,
                                .high = high,
                                .samples = 1,
                                .bits = bits,
                                .photometric = PHOTOMETRIC_MINISBLACK},
                               values);
        return path;
    }
};

// Label of each pixel: cells 2 and 9 touch; cell 9 also has a piece at the far side; cell 700
// is a thin strip; the rest is background.
std::uint32_t labelAt(int r, int c) {
    if (c >= 26) {
        return r < 10 ? 9 : 0;
    }
    if (r < 12) {
        return c < 13 ? 2 : 9;
    }
    return r < 14 ? 700 : 0;
}

// Each cell's row holds the measures of a picture of only its pixels: the histogram measures
// of those pixels in a row, and the significance test of the cell's bounding box cut out with
// the cell as the mask; with --mask, of the cell's pixels inside it.
TEST_F(CellMeasuresCliTest, EachCellsMeasuresAreThoseOfItsOwnPixels) {
    std::mt19937 rng(3);
    Samples rgb, labels, mask;
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            // Smooth in blocks so that the test has something to find, with heavy ties.
            const auto red = std::uint32_t((r / 2 * 37 + c / 2 * 53) % 200 + rng() % 8);
            const auto green = std::uint32_t(rng() % 4 == 0 ? 0 : (red + rng() % 60) / 2);
            rgb.insert(rgb.end(), {red, green, 0u});
            labels.push_back(labelAt(r, c));
            mask.push_back(rng() % 5 == 0 ? 0 : 255);
        }
    }
    const std::string picture = rgbFile("picture.tif", w, h, rgb);
    const std::string labelFile = greyFile("labels.tif", w, h, labels, 16);
    const std::string maskFile = greyFile("mask.tif", w, h, mask);
    const Args measures = {"--measures", "all", "--psf", "2", "--shuffles", "40", "--seed", "8"};
    for (const bool masked : {false, true}) {
        SCOPED_TRACE(masked ? "masked" : "whole");
        Args args = measures;
        args.insert(args.end(), {"--labels", labelFile, picture});
        if (masked) {
            args.insert(args.end(), {"--mask", maskFile});
        }
        const CliRun cells = run(args);
        ASSERT_EQ(cells.status, 0) << cells.err;
        const auto table = tableOf(cells.out);
        ASSERT_EQ(table.size(), 3u);
        for (const auto& row : table) {
            const auto label = std::uint32_t(std::stoul(row.at("Label")));
            Samples alone, box, inside;
            int top = h, left = w, bottom = -1, right = -1;
            for (int r = 0; r < h; ++r) {
                for (int c = 0; c < w; ++c) {
                    const std::size_t i = std::size_t(r * w + c);
                    if (labelAt(r, c) == label && (!masked || mask[i] != 0)) {
                        alone.insert(alone.end(), {rgb[3 * i], rgb[3 * i + 1], 0u});
                        top = std::min(top, r), bottom = std::max(bottom, r);
                        left = std::min(left, c), right = std::max(right, c);
                    }
                }
            }
            for (int r = top; r <= bottom; ++r) {
                for (int c = left; c <= right; ++c) {
                    const std::size_t i = std::size_t(r * w + c);
                    box.insert(box.end(), {rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]});
                    inside.push_back(labelAt(r, c) == label && (!masked || mask[i] != 0) ? 255 : 0);
                }
            }
            const std::string aloneFile = rgbFile("alone.tif", int(alone.size() / 3), 1, alone);
            const int bw = right - left + 1, bh = bottom - top + 1;
            const std::string boxFile = rgbFile("box.tif", bw, bh, box);
            const std::string insideFile = greyFile("inside.tif", bw, bh, inside);
            Args own = measures;
            own.insert(own.end(), {aloneFile, aloneFile});
            Args ownBox = measures;
            ownBox.insert(ownBox.end(), {"--mask", insideFile, boxFile, boxFile});
            const auto ownRow = tableOf(run(own).out).at(0);
            const auto boxRow = tableOf(run(ownBox).out).at(0);
            const Args columns = measureColumns(cells.out);
            ASSERT_EQ(columns.size(), 15u);
            for (std::size_t i = 0; i < columns.size(); ++i) {
                const auto& expected = i < 10 ? ownRow : boxRow;
                EXPECT_EQ(row.at(columns[i]), expected.at(columns[i]))
                    << label << " " << columns[i];
            }
            // The coefficients still are those of the cell's own pixels.
            EXPECT_EQ(row.at("Rr"), ownRow.at("Rr")) << label;
        }
    }
}

// With --slices all, a row per slice per cell, each what that slice alone gives.
TEST_F(CellMeasuresCliTest, EverySliceOfAStackGetsARowPerCell) {
    std::mt19937 rng(4);
    std::vector<pv::testing::GreyPage> pages;  // channel 1 then 2 of slice 1, then of slice 2
    for (int page = 0; page < 4; ++page) {
        pv::testing::GreyPage p;
        for (int i = 0; i < w * h; ++i) {
            p.push_back(std::uint32_t((i * (page + 3) + page * 29) % 256 / (rng() % 3 + 1)));
        }
        pages.push_back(p);
    }
    const std::string stack = (dir / "stack.tif").string();
    ASSERT_TRUE(pv::testing::writeGreyPages(
        stack, w, h, pages, "ImageJ=1.53t\nimages=4\nchannels=2\nslices=2\nhyperstack=true\n"));
    Samples labels;
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            labels.push_back(labelAt(r, c));
        }
    }
    const std::string labelFile = greyFile("labels.tif", w, h, labels, 16);
    const Args common = {"--y-channel", "1",   "--x-channel", "2", "--labels",   labelFile,
                         "--measures",  "all", "--psf",       "3", "--shuffles", "20"};
    Args all = common;
    all.insert(all.end(), {"--slices", "all", stack});
    const CliRun slices = run(all);
    ASSERT_EQ(slices.status, 0) << slices.err;
    const auto table = tableOf(slices.out);
    ASSERT_EQ(table.size(), 6u);
    for (int slice = 1; slice <= 2; ++slice) {
        Args one = common;
        one.insert(one.end(), {"--slice", std::to_string(slice), stack});
        auto alone = tableOf(run(one).out);
        ASSERT_EQ(alone.size(), 3u);
        for (std::size_t cell = 0; cell < 3; ++cell) {
            auto row = table[std::size_t(slice - 1) * 3 + cell];
            EXPECT_EQ(row["Slice"], std::to_string(slice));
            row.erase("Slice");
            EXPECT_EQ(row, alone[cell]) << "slice " << slice << " cell " << cell;
        }
    }
}

}  // namespace
