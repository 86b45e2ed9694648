// Pins every byte the command-line program writes, for every pair, against hashes recorded from
// a known-good build, so that reshaping the engine cannot change a report or a picture unseen.
//
// To re-record after a deliberate change, build a known-good CLI, run (on one line)
//   PV_CLI_OVERRIDE=/path/to/good/pixmera-veltro-cli PV_PRINT_OUTPUT_HASHES=1
//   ./build/test_cli --gtest_filter='OutputStability*'
// and paste the printed table over kRecorded below, then run clang-format.

#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "cli/CliRun.h"

namespace fs = std::filesystem;

namespace {

// Exit status, then the hash of standard output and of each file written, by name.
const std::pair<const char*, const char*> kRecorded[] = {
    {"red-green/plain/rgb72", "0 dcd3c7245a8ae18f"},
    {"red-green/coefficients-Rr-m/rgba", "0 032361a2ce370b2f"},
    {"red-green/rect/planar",
     "0 cbf29ce484222325 684395f761282657 cfdaa6e99c768a8f f6168e38b15ae8c9 74945873e11e85fc"},
    {"red-green/oval/rgb16",
     "0 cbf29ce484222325 5e2f485852d36bb4 e915e852799baad6 9c5721234650895d 5eea3f1a80d3e1fd"},
    {"red-green/lasso/grey",
     "0 cbf29ce484222325 5d68886211eea69b 9e3daea097b2deb6 1ce0134a358b7010 7201c0616aac46f6"},
    {"red-green/polygon-background-blue/rgb300",
     "0 cbf29ce484222325 7a2934b7427c098c a7eee990bedee2cc 3d7cbd8f3209656f 36e6af9078436eea"},
    {"red-green/txt-unrevealed/palette",
     "0 cbf29ce484222325 fbcd1fdf4d68b6a9 fb172671721937e1 58bc4e151e586d50"},
    {"red-green/background-all/dot", "0 46bfc4fad8ddfc3d"},
    {"red-green/background-red-green/sample-cells", "0 1514b769bbe27a37"},
    {"red-green/batch", "0 af33cc38e4908580"},
    {"red-green/batch-region", "0 d9bc27a6e0ce0b85"},
    {"red-blue/plain/planar", "0 0d20b84da118078e"},
    {"red-blue/coefficients-Rr-m/rgb16", "0 3bf385900b93efd1"},
    {"red-blue/rect/grey",
     "0 cbf29ce484222325 987ffcf203a7194f 9e3daea097b2deb6 d07255bc8aa526fa 225d651e5e944c40"},
    {"red-blue/oval/rgb300",
     "0 cbf29ce484222325 7d31b98445e05df8 7e5c80bf00889074 6e4f16554817e486 6f67fc5aba1799d3"},
    {"red-blue/lasso/palette",
     "0 cbf29ce484222325 22fddb34cd23df5b fb172671721937e1 0bd1a382b7a76c1c a8080da725f76b23"},
    {"red-blue/polygon-background-blue/dot",
     "0 cbf29ce484222325 e78560674893ec42 2929bc6aad4861d6 700dd34b2d005bfb 22c5f6a2c7269818"},
    {"red-blue/txt-unrevealed/sample-cells",
     "0 cbf29ce484222325 08e9c74983c8b5bf 4c7f00ac5b33e4ac 6377799fb5d3127f"},
    {"red-blue/background-all/rgb72", "0 6fb8383432c6f8c1"},
    {"red-blue/background-red-green/rgba", "0 af4389a62da5dcac"},
    {"red-blue/batch", "0 4b83e16e5694d27a"},
    {"red-blue/batch-region", "0 74d0ab409d5014df"},
    {"green-red/plain/grey", "0 34addf58d6a5edb9"},
    {"green-red/coefficients-Rr-m/rgb300", "0 8b401faf58a09a59"},
    {"green-red/rect/palette",
     "0 cbf29ce484222325 61974d802b3ed899 fb172671721937e1 e4cb2cd47ee01299 4ec2f59eea844714"},
    {"green-red/oval/dot",
     "0 cbf29ce484222325 c74d6c13b61f1a6b 30ddfa734cf35b3e 30ddfa734cf35b3e 0b8645e6cf0941c0"},
    {"green-red/lasso/sample-cells",
     "0 cbf29ce484222325 ca4e1d744446a51f 4c7f00ac5b33e4ac fda97edbb0ac1178 9ce1caffc061b906"},
    {"green-red/polygon-background-blue/rgb72",
     "0 cbf29ce484222325 90d05f21273328c2 8fd002feab7f5476 7d8d143885360cd7 a90617aa21cc1f20"},
    {"green-red/txt-unrevealed/rgba",
     "0 cbf29ce484222325 a86ddbffce2e5007 b78b5231d227ddf7 f38587b63dca7bc7"},
    {"green-red/background-all/planar", "0 7c334ab179d17da8"},
    {"green-red/background-red-green/rgb16", "0 5a88f8fe5a99f747"},
    {"green-red/batch", "0 60936413a35dd642"},
    {"green-red/batch-region", "0 8d5d67f512b345d1"},
    {"green-blue/plain/palette", "0 72038990dcc1b5ed"},
    {"green-blue/coefficients-Rr-m/dot", "0 a0b0ca678c0be64e"},
    {"green-blue/rect/sample-cells",
     "0 cbf29ce484222325 d32ec8172583b044 4c7f00ac5b33e4ac 8e78ddc3bbd8c834 cffe8537b9d09f8c"},
    {"green-blue/oval/rgb72",
     "0 cbf29ce484222325 2aa437cec0c9cf59 dbf4f05e6b7d0305 4dc207373f67076a ccf8482a84a0afb0"},
    {"green-blue/lasso/rgba",
     "0 cbf29ce484222325 ed60618a6cc5929b b78b5231d227ddf7 d76c6269bb787b03 8fe61615cfda58d4"},
    {"green-blue/polygon-background-blue/planar",
     "0 cbf29ce484222325 4c2528fa864ae7af 98e418b3f0bffdef 44c40100f24a9bdd f397dec4b1ea2d10"},
    {"green-blue/txt-unrevealed/rgb16",
     "0 cbf29ce484222325 b6c0105efd687b80 e915e852799baad6 85178f8f9aa242fd"},
    {"green-blue/background-all/grey", "0 cedc5e8fcb916727"},
    {"green-blue/background-red-green/rgb300", "0 6acbee727457c23f"},
    {"green-blue/batch", "0 b7b7cd83b1ce936b"},
    {"green-blue/batch-region", "0 a88ccd6330e6ce28"},
    {"blue-red/plain/sample-cells", "0 6d14fbd52f60096d"},
    {"blue-red/coefficients-Rr-m/rgb72", "0 7e00269fe7431418"},
    {"blue-red/rect/rgba",
     "0 cbf29ce484222325 8742e57289532291 b78b5231d227ddf7 5144413ec62b3aea d637a58b19ce6587"},
    {"blue-red/oval/planar",
     "0 cbf29ce484222325 1369b018ced54034 cfdaa6e99c768a8f c6c262383cd0ceee df4d9a1b3c9964de"},
    {"blue-red/lasso/rgb16",
     "0 cbf29ce484222325 66a4c88dc5f63f82 e915e852799baad6 bdc5a7f30c7c761a 53c82c75db1dd26c"},
    {"blue-red/polygon-background-blue/grey",
     "0 cbf29ce484222325 8bc4da7a7a079285 87222c1e1af162d1 174287ae99a8f174 23eb3fcfd9892a35"},
    {"blue-red/txt-unrevealed/rgb300",
     "0 cbf29ce484222325 2e96a1c587f9a0e2 7e5c80bf00889074 d2720c09b208e6e5"},
    {"blue-red/background-all/palette", "0 594e9f0ba77bc53b"},
    {"blue-red/background-red-green/dot", "0 b8edfd678914a0c5"},
    {"blue-red/batch", "0 9e96d7e247ea1556"},
    {"blue-red/batch-region", "0 d5d6fa631950548f"},
    {"blue-green/plain/rgba", "0 b84c78f75a408f95"},
    {"blue-green/coefficients-Rr-m/planar", "0 3d8da263ce1a5078"},
    {"blue-green/rect/rgb16",
     "0 cbf29ce484222325 218a1e329ae54e35 e915e852799baad6 48c125b3bd09a090 e9fa1ed7d78bf267"},
    {"blue-green/oval/grey",
     "0 cbf29ce484222325 6803e6d2f28da88b 9e3daea097b2deb6 11f8fbab8f5d15a2 c0765a2bf940e4ca"},
    {"blue-green/lasso/rgb300",
     "0 cbf29ce484222325 9ca1d9174eccfb05 7e5c80bf00889074 97bfc37b7555e2de d3b89980889d2763"},
    {"blue-green/polygon-background-blue/palette",
     "0 cbf29ce484222325 a2b5df93874e5139 e69b1f900e6debab 95d21a6714c83327 d841872371306d85"},
    {"blue-green/txt-unrevealed/dot",
     "0 cbf29ce484222325 8e9865429ddda7dc 30ddfa734cf35b3e d06a26c591030e88"},
    {"blue-green/background-all/sample-cells", "0 31ffe892779841c6"},
    {"blue-green/background-red-green/rgb72", "0 b0663d2542499e95"},
    {"blue-green/batch", "0 e8e3888fbd1fe0bd"},
    {"blue-green/batch-region", "0 eac00a3350138ac6"},
};

// Each channel independently zero, dim background (below 25), bright, or a share of one value
// common to the pixel, so that every census class turns up. The raw output of std::mt19937_64
// is fixed by the standard, unlike its distributions.
std::array<std::uint16_t, 3> pixel(std::mt19937_64& rng) {
    const std::uint64_t r = rng(), base = (r >> 8) & 255;
    std::array<std::uint16_t, 3> p{};
    for (std::size_t k = 0; k < 3; ++k) {
        const std::uint64_t noise = r >> (16 + 12 * k);
        const std::uint64_t choices[4] = {
            0, 1 + noise % 24, 25 + noise % 231,
            std::min<std::uint64_t>(255, base * (4 - k) / 4 + noise % 16)};
        p[k] = std::uint16_t(choices[(r >> (2 * k)) & 3]);
    }
    return p;
}

struct Input {
    const char* name;
    int w, h, spp, bits, photometric;
    bool planar;
    float dpi;  // 0: no resolution tags
};

const Input kInputs[] = {
    {"rgb72", 37, 23, 3, 8, PHOTOMETRIC_RGB, false, 72},
    {"rgba", 64, 41, 4, 8, PHOTOMETRIC_RGB, false, 72},
    {"planar", 29, 17, 3, 8, PHOTOMETRIC_RGB, true, 0},
    {"rgb16", 33, 19, 3, 16, PHOTOMETRIC_RGB, false, 72},
    {"grey", 129, 3, 1, 8, PHOTOMETRIC_MINISBLACK, false, 72},
    {"rgb300", 41, 27, 3, 8, PHOTOMETRIC_RGB, false, 300},
    {"palette", 23, 31, 1, 8, PHOTOMETRIC_PALETTE, false, 0},
    {"dot", 1, 1, 3, 8, PHOTOMETRIC_RGB, false, 72},
};

void writeInput(const std::string& path, const Input& in, std::uint64_t seed) {
    std::mt19937_64 rng{seed};
    const bool palette = in.photometric == PHOTOMETRIC_PALETTE;
    const int colours = in.photometric == PHOTOMETRIC_RGB ? 3 : 1;
    pv::testing::TiffLayout file{in.w, in.h, in.spp, in.bits, in.photometric, in.planar};
    std::vector<std::uint16_t> map(palette ? 3 * 256 : 0);
    for (std::size_t i = 0; i < map.size() / 3; ++i) {
        const auto p = pixel(rng);
        for (std::size_t k = 0; k < 3; ++k) {
            map[k * 256 + i] = std::uint16_t(p[k] * 257);
        }
    }
    file.xres = file.yres = in.dpi;
    file.palette = map;
    std::vector<std::uint32_t> samples;
    for (int i = 0; i < in.w * in.h; ++i) {
        const auto p = pixel(rng);
        for (std::size_t k = 0; k < std::size_t(colours); ++k) {
            const std::uint16_t v = palette ? std::uint16_t(rng() % 256) : p[k];
            // 12-bit camera data: the low bits are noise, zero stays zero.
            samples.push_back(in.bits == 16 && v ? std::uint16_t(v * 16 + rng() % 16) : v);
        }
        if (in.spp > colours) {
            samples.push_back(std::uint16_t(rng() % 256));
        }
    }
    pv::testing::writeTiff(path, file, samples);
}

const char* const kPairs[] = {"red-green",  "red-blue", "green-red",
                              "green-blue", "blue-red", "blue-green"};

const char* const kRect = "rect:0,0,200,180";  // with both axes: single-colour pixels
const char* const kOval = "oval:10,30,220,200";
const char* const kPolygon = "polygon:0,0,250,0,120,240,0,200";
const char* const kLasso = "lasso:5,5,60,2,200,40,250,200,180,250,40,230,10,120";

struct OptionSet {
    const char* name;
    std::vector<std::string> args;
    std::vector<std::string> files;  // what must be written, by name order
    bool batch = false;              // all pictures at once: one table on standard output
};

const std::vector<std::string> kAllPictures = {"r.xls", "r_Image.tif", "r_ImgReflect.tif",
                                               "r_SGram.tif"};

const OptionSet kOptionSets[] = {
    {"plain", {}, {}},
    {"coefficients-Rr-m", {"--coefficients", "Rr,m"}, {}},
    {"rect", {"--roi", kRect, "--reveal", "--images", "--report", "r"}, kAllPictures},
    {"oval", {"--roi", kOval, "--reveal", "--images", "--report", "r"}, kAllPictures},
    {"lasso", {"--roi", kLasso, "--reveal", "--images", "--report", "r"}, kAllPictures},
    {"polygon-background-blue",
     {"--background", "blue:40", "--coefficients", "R,m", "--roi", kPolygon, "--reveal", "--images",
      "--report", "r"},
     kAllPictures},
    {"txt-unrevealed",
     {"--roi", kOval, "--images", "--report", "r", "--txt"},
     {"r.txt", "r_Image.tif", "r_SGram.tif"}},
    {"background-all", {"--background", "all:20"}, {}},
    {"background-red-green", {"--background", "red:30", "--background", "green:10"}, {}},
    {"batch", {}, {}, true},
    {"batch-region",
     {"--jobs", "3", "--coefficients", "k", "--background", "all:20", "--roi", kLasso},
     {},
     true},
};

// 64-bit FNV-1a, in hex.
std::string fnv1a(const std::string& bytes) {
    std::uint64_t h = 0xcbf29ce484222325u;
    for (unsigned char c : bytes) {
        h = (h ^ c) * 0x100000001b3u;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(h));
    return text;
}

class OutputStabilityTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(dir / "in");
        fs::create_directories(dir / "run");
    }

    // Runs in dir/run with relative paths, so the batch table's file names do not depend on
    // where the temporary folder is; what it writes there is checked and removed.
    void run(const std::string& name, const std::vector<std::string>& args,
             const std::vector<std::string>& expectedFiles) {
        const char* override = std::getenv("PV_CLI_OVERRIDE");  // to record from another build
        const pv::test::CliRun r =
            pv::test::runCli(override ? override : PV_CLI_PATH, args, dir, dir / "run");
        std::vector<std::string> labels = {"stdout"}, contents = {r.out};
        for (const fs::path& p : std::set<fs::path>{fs::directory_iterator(dir / "run"), {}}) {
            labels.push_back(p.filename().string());
            contents.push_back(pv::test::slurp(p));
            fs::remove(p);
        }
        EXPECT_EQ(std::vector<std::string>(labels.begin() + 1, labels.end()), expectedFiles)
            << name;
        std::vector<std::string> got = {std::to_string(r.status)};
        std::string line = got[0];
        for (const std::string& c : contents) {
            got.push_back(fnv1a(c));
            line += " " + got.back();
        }
        if (printing) {
            table << "    {\"" << name << "\", \"" << line << "\"},\n";
            return;
        }
        ASSERT_TRUE(recorded.contains(name)) << name << ": no recorded hashes";
        std::istringstream words(recorded.at(name));
        const std::vector<std::string> want{std::istream_iterator<std::string>(words), {}};
        EXPECT_EQ(got[0], want[0]) << name << ": exit status; stderr:\n" << r.err;
        EXPECT_EQ(got.size(), want.size()) << name << ": outputs, standard output included";
        for (std::size_t i = 1; i < std::min(want.size(), got.size()); ++i) {
            const std::string& label = labels[i - 1];
            const bool text = i == 1 || label.ends_with(".xls") || label.ends_with(".txt");
            EXPECT_EQ(got[i], want[i]) << name << ": " << label << " changed"
                                       << (text ? ", now:\n" + contents[i - 1] : std::string());
        }
    }

    pv::testing::TempDir temp;
    const fs::path dir = temp.root;
    const bool printing = std::getenv("PV_PRINT_OUTPUT_HASHES") != nullptr;
    std::ostringstream table;
    const std::map<std::string, std::string> recorded{std::begin(kRecorded), std::end(kRecorded)};
};

TEST_F(OutputStabilityTest, ReportsAndPicturesMatchTheRecordedOnes) {
    std::vector<std::string> inputs;
    for (std::size_t i = 0; i < std::size(kInputs); ++i) {
        writeInput((dir / "in" / (std::string(kInputs[i].name) + ".tif")).string(), kInputs[i],
                   1000 + i);
        inputs.push_back(std::string("../in/") + kInputs[i].name + ".tif");
    }
    fs::copy_file(fs::path(PV_SOURCE_DIR) / "resources" / "sample-cells.tif",
                  dir / "in" / "sample-cells.tif");
    inputs.push_back("../in/sample-cells.tif");

    for (std::size_t p = 0; p < std::size(kPairs); ++p) {
        for (std::size_t s = 0; s < std::size(kOptionSets); ++s) {
            const OptionSet& o = kOptionSets[s];
            std::vector<std::string> args = {"--pair", kPairs[p]};
            args.insert(args.end(), o.args.begin(), o.args.end());
            std::string name = std::string(kPairs[p]) + "/" + o.name;
            if (o.batch) {
                args.insert(args.end(), inputs.begin(), inputs.end());
            } else {
                // Each option set meets a different picture with each pair.
                args.push_back(inputs[(s + 2 * p) % inputs.size()]);
                name += "/" + fs::path(args.back()).stem().string();
            }
            run(name, args, o.files);
        }
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / "in"), fs::directory_iterator()),
              std::ptrdiff_t(inputs.size()))
        << "something was written next to the pictures";
    if (printing) {
        std::cout << "const std::pair<const char*, const char*> kRecorded[] = {\n"
                  << table.str() << "};\n";
    }
}

}  // namespace
