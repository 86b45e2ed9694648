// Every input that ever made a harness fail, through that harness again: fuzz/regressions/NAME/
// holds the inputs of the harness NAME.

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Harnesses.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> regressionInputs() {
    std::vector<fs::path> inputs;
    const fs::path root = fs::path(PV_SOURCE_DIR) / "fuzz/regressions";
    if (!fs::is_directory(root)) {
        return inputs;
    }
    for (const auto& folder : fs::directory_iterator(root)) {
        if (folder.is_directory()) {
            for (const auto& file : fs::directory_iterator(folder.path())) {
                inputs.push_back(file.path());
            }
        }
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

class Regression : public ::testing::TestWithParam<fs::path> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Regression);

TEST_P(Regression, PassesItsHarness) {
    const fs::path& input = GetParam();
    const std::string harnessName = input.parent_path().filename().string();
    const pv::fuzz::Harness harness = pv::fuzz::harnessNamed(harnessName);
    ASSERT_NE(harness, nullptr) << "no harness named " << harnessName << " for " << input;
    std::ifstream in(input, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                          std::istreambuf_iterator<char>()};
    EXPECT_EQ(harness(bytes.data(), bytes.size()), 0);
    // A picture that broke a decoder goes the whole road too, as a user would open it.
    if (harnessName != "cli" && harnessName != "whole-road") {
        EXPECT_EQ(pv::fuzz::wholeRoad(bytes.data(), bytes.size()), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Regression, ::testing::ValuesIn(regressionInputs()),
                         [](const ::testing::TestParamInfo<fs::path>& info) {
                             std::string name = info.param.parent_path().filename().string() + "_" +
                                                info.param.filename().string();
                             for (char& c : name) {
                                 if (!std::isalnum(static_cast<unsigned char>(c))) {
                                     c = '_';
                                 }
                             }
                             return name;
                         });

}  // namespace
