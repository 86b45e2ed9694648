#include <sys/stat.h>
#include <unistd.h>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

using testing::TempDir;

// A refusal must name the file, give a reason, and leave nothing on the terminal.
void expectCleanRefusalOrPicture(const std::string& path, bool mustFail) {
    ::testing::internal::CaptureStderr();
    auto picture = readImageFile(path);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    if (picture.ok()) {
        EXPECT_FALSE(mustFail) << "decoded a damaged file";
        EXPECT_FALSE(picture->isEmpty());
        return;
    }
    const std::string& message = picture.error().message;
    ASSERT_EQ(message.rfind(path + ": ", 0), 0u) << message;
    EXPECT_GT(message.size(), path.size() + 10) << message;
}

struct Sample {
    std::string path;
    std::size_t tolerance;  // trailing bytes a reader may never need (PNG IEND, JPEG EOI)
};

std::vector<Sample> writeSamples(const TempDir& dir) {
    testing::TiffLayout t{23, 17};
    t.rowsPerStrip = 3;
    testing::writeTiff(dir.file("strips.tif"), t, testing::pattern(23 * 17 * 3, 256));
    t.tiled = t.planar = true;
    t.bits = 16;
    t.compression = COMPRESSION_LZW;
    testing::writeTiff(dir.file("tiles.tif"), t, testing::pattern(23 * 17 * 3, 65536));
    testing::writePng(dir.file("p.png"), {23, 17, PNG_COLOR_TYPE_RGB, 16, true},
                      testing::pattern(23 * 17 * 3, 65536));
    std::vector<std::uint8_t> rgb(23 * 17 * 3);
    for (std::size_t i = 0; i < rgb.size(); ++i) {
        rgb[i] = std::uint8_t(i * 37);
    }
    testing::writeJpeg(dir.file("j.jpg"), 23, 17, 3, rgb, 1, 300);
    testing::writeBytes(
        dir.file("b.bmp"),
        testing::makeBmp(2, 2, 24, 0, {}, {}, {1, 2, 3, 4, 5, 6, 0, 0, 7, 8, 9, 10, 11, 12, 0, 0}));
    return {{dir.file("strips.tif"), 0},
            {dir.file("tiles.tif"), 0},
            {dir.file("p.png"), 12},
            {dir.file("j.jpg"), 2},
            {dir.file("b.bmp"), 0}};
}

// Every cut is refused unless only the tolerated tail is missing; no flipped byte crashes.
TEST(DamagedFiles, TruncatedOrCorruptFilesAreRefusedWithAReason) {
    TempDir dir;
    for (const Sample& s : writeSamples(dir)) {
        SCOPED_TRACE(s.path);
        const auto whole = testing::readBytes(s.path);
        ASSERT_TRUE(readImageFile(s.path).ok());
        const std::string bad = dir.file("bad" + s.path.substr(s.path.rfind('.')));
        for (std::size_t length = 0; length < whole.size(); ++length) {
            testing::writeBytes(bad, {whole.begin(), whole.begin() + std::ptrdiff_t(length)});
            expectCleanRefusalOrPicture(bad, length + s.tolerance < whole.size());
        }
        for (std::uint8_t value : {0x00, 0xff, 0x7f}) {
            for (std::size_t at = 0; at < whole.size(); at += (whole.size() > 600 ? 3 : 1)) {
                auto bytes = whole;
                bytes[at] = bytes[at] == value ? std::uint8_t(~value) : value;
                testing::writeBytes(bad, bytes);
                expectCleanRefusalOrPicture(bad, false);
            }
        }
    }
}

// A grey 4 x 4 TIFF with its directory first, so that cutting the file loses pixels only.
std::vector<std::uint8_t> handMadeTiff(std::uint32_t side = 4) {
    std::vector<std::uint8_t> b = {'I', 'I', 42, 0, 8, 0, 0, 0, 8, 0};
    auto put = [&](std::uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i) {
            b.push_back(std::uint8_t(v >> (8 * i)));
        }
    };
    // Width, height, bits, min-is-black, strip offset, samples, rows per strip, strip bytes.
    const std::uint32_t entries[][3] = {{256, 3, side}, {257, 3, side}, {258, 3, 8}, {262, 3, 1},
                                        {273, 4, 120},  {277, 3, 1},    {278, 3, 4}, {279, 4, 16}};
    for (const auto& e : entries) {
        put(e[0], 2);
        put(e[1], 2);
        put(1, 4);
        put(e[2], 4);
    }
    put(0, 4);
    b.resize(120, 0);
    for (int i = 0; i < 16; ++i) {
        b.push_back(std::uint8_t(i * 16));
    }
    return b;
}

TEST(DamagedFiles, FileSystemForeignHugeAndCutFilesHaveTheirOwnWords) {
    TempDir dir;
    testing::writeBytes(dir.file("empty.tif"), {});
    testing::writeBytes(dir.file("notes.tif"), {'h', 'e', 'l', 'l', 'o', '\n'});
    testing::writeBytes(dir.file("locked.png"), {0x89, 'P', 'N', 'G'});
    chmod(dir.file("locked.png").c_str(), 0);
    testing::writeTiff(dir.file("really-a-tiff.pict"), {}, testing::pattern(4 * 3 * 3, 256));
    testing::writeBytes(dir.file("huge.tif"), handMadeTiff(60000));
    // libtiff writes its directory last, so only the hand-made TIFF loses just pixels.
    auto cut = handMadeTiff();
    testing::writeBytes(dir.file("cut.tif"), {cut.begin(), cut.end() - 5});
    const std::string ends = "the file ends before the picture is complete";
    const auto samples = writeSamples(dir);
    for (std::size_t i : {2u, 3u, 4u}) {  // PNG, JPEG, BMP
        cut = testing::readBytes(samples[i].path);
        cut.resize(cut.size() * 3 / 4);
        testing::writeBytes(samples[i].path, cut);
    }
    const struct {
        std::string path, reason;
    } table[] = {{dir.file("missing.tif"), "the file does not exist"},
                 {dir.file(""), "this is a folder, not a picture file"},
                 {dir.file("empty.tif"), "the file is empty"},
                 {dir.file("notes.tif"),
                  "not a picture file this program can read (TIFF, PNG, JPEG or BMP)"},
                 {dir.file("really-a-tiff.pict"),
                  "PICT pictures are not supported; convert the file to TIFF or PNG."},
                 {dir.file("locked.png"), "you do not have permission to read the file"},
                 {dir.file("huge.tif"), "the picture is too large: 60000 x 60000 pixels"},
                 {dir.file("cut.tif"), ends},
                 {samples[2].path, ends},
                 {samples[3].path, ends},
                 {samples[4].path, ends}};
    for (const auto& c : table) {
        if (c.path == dir.file("locked.png") && geteuid() == 0) {
            continue;  // root reads everything
        }
        auto picture = readImageFile(c.path);
        ASSERT_FALSE(picture.ok()) << c.path;
        EXPECT_EQ(picture.error().message.substr(0, c.path.size() + 2 + c.reason.size()),
                  c.path + ": " + c.reason);  // the size refusal may say more
    }
}

TEST(ImageKinds, ContentDecidesNotTheName) {
    const struct {
        std::vector<std::uint8_t> head;
        ImageKind kind;
    } table[] = {
        {{'M', 'M', 0, 42}, ImageKind::TIFF},    {{'I', 'I', 43, 0}, ImageKind::TIFF},
        {{'I', 'I', 0, 42}, ImageKind::Unknown}, {{0x89, 'P', 'N', 'G'}, ImageKind::Unknown},
        {{'B', 'M', 0}, ImageKind::BMP},         {{'B'}, ImageKind::Unknown}};
    for (const auto& c : table) {
        EXPECT_EQ(detectImageKind(c.head), c.kind);
    }
    EXPECT_EQ(imageKindOfFile("/nonexistent/nothing"), ImageKind::Unknown);
}

}  // namespace
}  // namespace pv
