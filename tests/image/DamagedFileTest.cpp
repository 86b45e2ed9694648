#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

using testing::TempDir;

// A refusal must name the file and give a reason.
void expectCleanRefusalOrPicture(const std::string& path, bool mustFail) {
    auto picture = readImageFile(path);
    if (picture.ok()) {
        EXPECT_EQ(std::pair(mustFail, picture->isEmpty()), std::pair(false, false));
        return;
    }
    EXPECT_EQ(picture.error().file, path);
    EXPECT_GT(picture.error().reason.size(), 10u) << picture.error().reason;
}

// Every file a good picture, so that damage alone explains a refusal.
void writeSamples(const TempDir& dir) {
    const auto rgb = testing::pattern(23 * 17 * 3, 256),
               deep = testing::pattern(23 * 17 * 3, 65536);
    testing::writeTiff(dir.file("strips.tif"), {23, 17}, rgb);
    testing::writeTiff(dir.file("tiles.tif"),
                       {23, 17, 3, 16, PHOTOMETRIC_RGB, true, true, COMPRESSION_LZW}, deep);
    testing::writePng(dir.file("p.png"), {23, 17, 3, 16, true}, deep);
    testing::writeJpeg(dir.file("j.jpg"), 23, 17, 3, rgb, 1, 300);
    testing::writeBytes(dir.file("b.bmp"),
                        testing::makeBmp(2, 2, 24, {}, {}, std::vector<std::uint8_t>(16, 7)));
}

// Where to cut or damage a file: every byte of the first and last 64 (magic numbers and
// headers in front; trailers and libtiff's directory behind), the middle, and a fixed-seed
// scatter in between: the same places each run, rather than every byte of every file.
std::set<std::size_t> placesToDamage(std::size_t size) {
    std::set<std::size_t> places{size / 2};
    for (std::size_t i = 0; i < std::min<std::size_t>(size, 64); ++i) {
        places.insert({i, size - 1 - i});
    }
    std::mt19937 scatter(static_cast<std::uint32_t>(size));
    for (int i = 0; i < 24; ++i) {
        places.insert(scatter() % size);
    }
    return places;
}

// Every cut is refused unless only the tolerated tail is missing; no damaged byte crashes; and
// nothing reaches the terminal.
TEST(DamagedFiles, TruncatedOrCorruptFilesAreRefusedWithAReason) {
    TempDir dir;
    writeSamples(dir);
    for (const std::string name : {"strips.tif", "tiles.tif", "p.png", "j.jpg", "b.bmp"}) {
        SCOPED_TRACE(name);
        const auto whole = testing::readBytes(dir.file(name));
        ASSERT_TRUE(readImageFile(dir.file(name)).ok());
        // Trailing bytes a reader may never need: PNG's IEND chunk, JPEG's end marker.
        const std::size_t tolerance = name == "p.png" ? 12 : name == "j.jpg" ? 2 : 0;
        const std::string bad = dir.file("bad" + name.substr(name.rfind('.')));
        ::testing::internal::CaptureStderr();
        for (const std::size_t at : placesToDamage(whole.size())) {
            SCOPED_TRACE("byte " + std::to_string(at));
            testing::writeBytes(bad, {whole.begin(), whole.begin() + std::ptrdiff_t(at)});
            expectCleanRefusalOrPicture(bad, at + tolerance < whole.size());
            for (const std::uint8_t value : {0x00, 0xff, 0x7f}) {
                auto bytes = whole;
                bytes[at] = bytes[at] == value ? std::uint8_t(~value) : value;
                testing::writeBytes(bad, bytes);
                expectCleanRefusalOrPicture(bad, false);
            }
        }
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    }
}

// A grey TIFF with its directory first, so that cutting the file loses pixels only.
std::vector<std::uint8_t> handMadeTiff(std::uint32_t side = 4) {
    std::vector<std::uint8_t> b = {'I', 'I', 42, 0, 8, 0, 0, 0, 8, 0};
    // Width, height, bits, min-is-black, strip offset, samples, rows per strip, strip bytes;
    // each a tag, type (3 short, 4 long), one value.
    const std::uint32_t entries[][3] = {{256, 3, side}, {257, 3, side}, {258, 3, 8}, {262, 3, 1},
                                        {273, 4, 120},  {277, 3, 1},    {278, 3, 4}, {279, 4, 16}};
    for (const auto& [tag, type, value] : entries) {
        for (std::uint32_t v : {tag | type << 16, 1u, value}) {
            testing::putU32(b, v);
        }
    }
    b.resize(120, 0);  // includes the zero offset of a next directory
    for (int i = 0; i < 16; ++i) {
        b.push_back(std::uint8_t(i * 16));
    }
    return b;
}

TEST(DamagedFiles, FileSystemForeignHugeAndCutFilesHaveTheirOwnWords) {
    TempDir dir;
    writeSamples(dir);
    testing::writeBytes(dir.file("empty.tif"), {});
    testing::writeBytes(dir.file("notes.tif"), {'h', 'e', 'l', 'l', 'o', '\n'});
    testing::writeBytes(dir.file("locked.png"), {0x89, 'P', 'N', 'G'});
    chmod(dir.file("locked.png").c_str(), 0);
    testing::writeTiff(dir.file("really-a-tiff.pict"), {}, testing::pattern(4 * 3 * 3, 256));
    testing::writeBytes(dir.file("huge.tif"), handMadeTiff(60000));
    // libtiff writes its directory last, so only the hand-made TIFF loses just pixels.
    const auto tiff = handMadeTiff();
    testing::writeBytes(dir.file("cut.tif"), {tiff.begin(), tiff.end() - 5});
    for (const char* name : {"p.png", "j.jpg", "b.bmp"}) {
        auto cut = testing::readBytes(dir.file(name));
        testing::writeBytes(dir.file(name), {cut.begin(), cut.begin() + 3 * cut.size() / 4});
    }
    const auto refused = [&](const std::string& name, const std::string& reason) {
        const std::string path = dir.file(name);
        auto picture = readImageFile(path);
        ASSERT_FALSE(picture.ok()) << path;
        EXPECT_EQ(picture.error().file, path);
        // The size refusal may say more.
        EXPECT_EQ(picture.error().reason.substr(0, reason.size()), reason);
    };
    refused("missing.tif", "the file does not exist");
    refused("", "this is a folder, not a picture file");
    refused("empty.tif", "the file is empty");
    refused("notes.tif", "not a picture file this program can read (TIFF, PNG, JPEG or BMP)");
    refused("really-a-tiff.pict",
            "PICT pictures are not supported; convert the file to TIFF or PNG.");
    // A grey file becomes three samples a pixel, all in one block.
    refused("huge.tif",
            "the picture is too large: 60000 x 60000 pixels of 3 samples take 10800000000 bytes, "
            "and this program holds at most 2147483647 bytes (2 GiB) in one picture");
    if (geteuid() != 0) {  // root reads everything
        refused("locked.png", "you do not have permission to read the file");
    }
    for (const char* name : {"cut.tif", "p.png", "j.jpg", "b.bmp"}) {
        refused(name, "the file ends before the picture is complete");
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
