#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "BruteMeasures.h"
#include "TestFiles.h"
#include "cli/CliRun.h"

namespace fs = std::filesystem;

namespace {

using pv::test::CliRun;
using Args = std::vector<std::string>;
using pv::test::split;

const Args& kNames = pv::test::kMeasureNames;

class MeasuresCliTest : public ::testing::Test {
  protected:
    pv::testing::TempDir temp;
    const fs::path dir = temp.root;

    CliRun run(const Args& args) { return pv::test::runCli(PV_CLI_PATH, args, dir); }

    // Red against green with some correlation; blue 0.
    std::string picture(const std::string& name, unsigned seed) {
        std::mt19937 rng(seed);
        samples.clear();
        for (int i = 0; i < 48 * 32; ++i) {
            const auto red = std::uint32_t(rng() % 5 == 0 ? 0 : rng() % 220);
            samples.insert(samples.end(), {red, std::uint32_t((red + rng() % 120) / 2), 0u});
        }
        const std::string path = (dir / name).string();
        pv::testing::writeTiff(path, {.wide = 48, .high = 32}, samples);
        return path;
    }
    std::vector<std::uint32_t> samples;
};

TEST_F(MeasuresCliTest, BadMeasureOptionsAreUsageErrors) {
    const std::string image = picture("cells.tif", 1);
    const Args cases[] = {
        {"--measures", "pearson", image},
        {"--measures", "", image},
        {"--measures", ",", image},
        {"--measures", "all", "--shuffles", "0", image},
        {"--measures", "all", "--shuffles", "many", image},
        {"--measures", "all", "--psf", "0", image},
        {"--measures", "all", "--psf", "129", image},
        {"--measures", "all", "--seed", "-1", image},
        {"--measures", "all", "--seed", "1x", image},
        {"--measures", "spearman", "--shuffles", "10", image},
        {"--seed", "3", image},
        {"--measures", "all", "--measures", "icq", image},
    };
    for (const Args& args : cases) {
        const CliRun r = run(args);
        EXPECT_EQ(std::tuple(r.status, r.out), std::tuple(2, "")) << testing::PrintToString(args);
        EXPECT_NE(r.err.find("Try 'pixmera-veltro-cli --help'"), std::string::npos) << r.err;
    }
}

// The block follows the report as it is without it; its numbers are the measures of the pixels.
TEST_F(MeasuresCliTest, TheReportGainsTheBlockAfterTheScatterGramBlock) {
    const std::string image = picture("cells.tif", 2);
    const CliRun plain = run({image});
    const CliRun some = run({"--measures=icq,spearman", image});
    const CliRun all =
        run({"--measures", "all", "--psf=3", "--seed", "5", "--shuffles", "30", image});
    ASSERT_EQ(std::tuple(plain.status, some.status, all.status), std::tuple(0, 0, 0)) << all.err;

    pv::test::Values y, x;
    for (std::size_t i = 0; i < samples.size(); i += 3) {
        if (samples[i] > 0 || samples[i + 1] > 0) {
            y.push_back(samples[i]);
            x.push_back(samples[i + 1]);
        }
    }
    char spearman[32];
    std::snprintf(spearman, sizeof spearman, "%0.4f",
                  pv::test::pearson(pv::test::ranks(y), pv::test::ranks(x)));
    ASSERT_EQ(some.out.rfind(plain.out, 0), 0u);
    const Args block = split(some.out.substr(plain.out.size()), '\n');
    ASSERT_EQ(block.size(), 4u);
    EXPECT_EQ(block[0], "Further Measures");
    EXPECT_EQ(block[1], std::string("Spearman\t") + spearman);
    EXPECT_EQ(split(block[2], '\t')[0], "ICQ");
    EXPECT_EQ(block[3], "");

    ASSERT_EQ(all.out.rfind(plain.out, 0), 0u);
    const Args full = split(all.out.substr(plain.out.size()), '\n');
    ASSERT_EQ(full.size(), kNames.size() + 2);
    for (std::size_t i = 0; i < kNames.size(); ++i) {
        const Args cells = split(full[i + 1], '\t');
        ASSERT_EQ(cells.size(), 2u) << full[i + 1];
        EXPECT_EQ(cells[0], kNames[i]);
        const bool whole =
            kNames[i].find("threshold") != std::string::npos || kNames[i] == "PSF size";
        EXPECT_EQ(cells[1].find('.') == std::string::npos, whole) << full[i + 1];
    }
    EXPECT_EQ(full.back(), "");
    EXPECT_EQ(full[full.size() - 2], "PSF size\t3");
}

// The table's columns, headed by the lines' names, sit before the scale and the error; a batch
// runs each file on one thread, yet gives what the file alone on every core gives.
TEST_F(MeasuresCliTest, TheTableGainsAColumnPerLine) {
    const std::string one = picture("one.tif", 3), two = picture("two.tif", 4);
    const Args measures = {"--measures", "all", "--psf", "2", "--shuffles", "25"};
    Args batch = measures;
    batch.insert(batch.end(), {one, (dir / "missing.tif").string(), two});
    const CliRun table = run(batch);
    EXPECT_EQ(table.status, 1);
    const Args rows = split(table.out, '\n');
    ASSERT_EQ(rows.size(), 4u);
    const Args header = split(rows[0], '\t');
    const auto m2 = std::find(header.begin(), header.end(), "M2");
    ASSERT_NE(m2, header.end());
    EXPECT_EQ(Args(m2 + 1, m2 + 1 + std::ptrdiff_t(kNames.size())), kNames);
    EXPECT_EQ(Args(header.end() - 2, header.end()), (Args{"16-bit scale", "Error"}));
    for (std::size_t r = 1; r < rows.size(); ++r) {
        EXPECT_EQ(split(rows[r], '\t').size(), header.size()) << rows[r];
    }
    for (const auto& [file, row] : {std::pair(one, 1), std::pair(two, 3)}) {
        Args alone = measures;
        alone.push_back(file);
        const Args report = split(run(alone).out, '\n');
        const Args cells = split(rows[std::size_t(row)], '\t');
        const std::size_t first = std::size_t(m2 - header.begin()) + 1;
        for (std::size_t i = 0; i < kNames.size(); ++i) {
            EXPECT_EQ(kNames[i] + "\t" + cells[first + i],
                      report[report.size() - 1 - kNames.size() + i]);
        }
    }
}

}  // namespace
