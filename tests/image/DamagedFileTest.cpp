#include <sys/stat.h>
#include <unistd.h>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

using testing::TempDir;

const char* const kReasons[] = {
    "the file ends before the picture is complete",
    "the file is damaged and the picture cannot be read",
    "not a picture file this program can read (TIFF, PNG, JPEG or BMP)",
    "the file is empty",
    "the colour encoding of this TIFF picture is not supported (only grey, palette and RGB)",
};

// A refusal must name the file, give a reason, and leave nothing on the terminal.
void expectCleanRefusalOrPicture(const std::string& path, bool mustFail) {
    ::testing::internal::CaptureStderr();
    auto picture = readImageFile(path);
    const std::string printed = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(printed, "");
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
    const char* name;
    std::string path;
    std::size_t tolerance;  // trailing bytes a reader may never need (PNG IEND, JPEG EOI)
};

std::vector<Sample> writeSamples(const TempDir& dir) {
    std::vector<Sample> samples;
    testing::TiffSpec t;
    t.wide = 23;
    t.high = 17;
    t.rowsPerStrip = 3;
    testing::writeTiff(dir.file("strips.tif"), t, testing::pattern(23 * 17 * 3, 256));
    samples.push_back({"tiff strips", dir.file("strips.tif"), 0});
    t.tiled = true;
    t.planar = true;
    t.bits = 16;
    t.compression = COMPRESSION_LZW;
    testing::writeTiff(dir.file("tiles.tif"), t, testing::pattern(23 * 17 * 3, 65536));
    samples.push_back({"tiff 16-bit planar tiles", dir.file("tiles.tif"), 0});
    testing::PngSpec p;
    p.wide = 23;
    p.high = 17;
    testing::writePng(dir.file("p.png"), p, testing::pattern(23 * 17 * 3, 256));
    samples.push_back({"png", dir.file("p.png"), 12});
    p.bits = 16;
    p.interlaced = true;
    testing::writePng(dir.file("p16.png"), p, testing::pattern(23 * 17 * 3, 65536));
    samples.push_back({"png 16-bit interlaced", dir.file("p16.png"), 12});
    std::vector<std::uint8_t> rgb(23 * 17 * 3);
    for (std::size_t i = 0; i < rgb.size(); ++i) {
        rgb[i] = std::uint8_t(i * 37);
    }
    testing::writeJpeg(dir.file("j.jpg"), 23, 17, 3, rgb, 1, 300, 90);
    samples.push_back({"jpeg", dir.file("j.jpg"), 2});
    // 24-bit BMP, 2 x 2, bottom-up.
    std::vector<std::uint8_t> bmp = {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 54, 0, 0, 0,  40,
                                     0,   0,   0, 2, 0, 0, 0, 2, 0, 0, 0,  1, 0, 24, 0};
    bmp.resize(54, 0);
    for (int i = 0; i < 16; ++i) {
        bmp.push_back(std::uint8_t(i * 13));
    }
    testing::writeBytes(dir.file("b.bmp"), bmp);
    samples.push_back({"bmp", dir.file("b.bmp"), 0});
    return samples;
}

TEST(DamagedFiles, TruncatedFilesAreRefusedWithAReason) {
    TempDir dir;
    for (const Sample& s : writeSamples(dir)) {
        SCOPED_TRACE(s.name);
        const auto whole = testing::readBytes(s.path);
        ASSERT_TRUE(readImageFile(s.path).ok());
        const std::string cut = dir.file(std::string("cut") + s.path.substr(s.path.rfind('.')));
        for (std::size_t length = 0; length < whole.size(); ++length) {
            SCOPED_TRACE(length);
            testing::writeBytes(cut, {whole.begin(), whole.begin() + std::ptrdiff_t(length)});
            expectCleanRefusalOrPicture(cut, length + s.tolerance < whole.size());
        }
    }
}

TEST(DamagedFiles, CutInsidePixelDataSaysTheFileEndsEarly) {
    TempDir dir;
    for (const Sample& s : writeSamples(dir)) {
        if (std::string(s.name) == "tiff strips" || std::string(s.name) == "png" ||
            std::string(s.name) == "bmp" || std::string(s.name) == "jpeg") {
            SCOPED_TRACE(s.name);
            auto whole = testing::readBytes(s.path);
            // libtiff puts the directory last; move the cut into the pixels for the others only.
            if (std::string(s.name) == "tiff strips") {
                continue;
            }
            whole.resize(whole.size() * 3 / 4);
            testing::writeBytes(s.path, whole);
            auto picture = readImageFile(s.path);
            ASSERT_FALSE(picture.ok());
            EXPECT_EQ(picture.error().message,
                      s.path + ": the file ends before the picture is complete");
        }
    }
}

// A grey 4 x 4 TIFF with its directory first, so that cutting the file loses pixels only.
std::vector<std::uint8_t> handMadeTiff(std::uint32_t stripOffset) {
    std::vector<std::uint8_t> b = {'I', 'I', 42, 0, 8, 0, 0, 0};
    auto u16 = [&](std::uint32_t v) {
        b.push_back(std::uint8_t(v));
        b.push_back(std::uint8_t(v >> 8));
    };
    auto entry = [&](std::uint32_t tag, std::uint32_t type, std::uint32_t value) {
        u16(tag);
        u16(type);
        u16(1);
        u16(0);
        u16(value & 0xffff);
        u16(value >> 16);
    };
    u16(8);
    entry(256, 3, 4);            // width
    entry(257, 3, 4);            // height
    entry(258, 3, 8);            // bits per sample
    entry(262, 3, 1);            // min is black
    entry(273, 4, stripOffset);  // strip offset
    entry(277, 3, 1);            // samples per pixel
    entry(278, 3, 4);            // rows per strip
    entry(279, 4, 16);           // strip byte count
    u16(0);
    u16(0);
    b.resize(stripOffset, 0);
    for (int i = 0; i < 16; ++i) {
        b.push_back(std::uint8_t(i * 16));
    }
    return b;
}

TEST(DamagedFiles, TiffStripsPastTheEndOfTheFile) {
    TempDir dir;
    auto bytes = handMadeTiff(120);
    testing::writeBytes(dir.file("t.tif"), bytes);
    auto whole = readImageFile(dir.file("t.tif"));
    ASSERT_TRUE(whole.ok()) << whole.error().message;
    EXPECT_EQ(whole->bitmap->row(0, 3)[3 * 3 + 1], 240);
    bytes.resize(bytes.size() - 5);
    testing::writeBytes(dir.file("t.tif"), bytes);
    ::testing::internal::CaptureStderr();
    auto picture = readImageFile(dir.file("t.tif"));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    ASSERT_FALSE(picture.ok());
    EXPECT_EQ(picture.error().message,
              dir.file("t.tif") + ": the file ends before the picture is complete");
}

TEST(DamagedFiles, FlippedBytesNeverCrash) {
    TempDir dir;
    for (const Sample& s : writeSamples(dir)) {
        SCOPED_TRACE(s.name);
        const auto whole = testing::readBytes(s.path);
        const std::string bad = dir.file(std::string("bad") + s.path.substr(s.path.rfind('.')));
        for (std::uint8_t value : {std::uint8_t(0x00), std::uint8_t(0xff), std::uint8_t(0x7f)}) {
            for (std::size_t at = 0; at<whole.size(); at += whole.size()> 600 ? 3 : 1) {
                auto bytes = whole;
                bytes[at] = bytes[at] == value ? std::uint8_t(~value) : value;
                testing::writeBytes(bad, bytes);
                expectCleanRefusalOrPicture(bad, false);
            }
        }
    }
}

TEST(DamagedFiles, FileSystemProblemsAndForeignFilesHaveTheirOwnWords) {
    TempDir dir;
    testing::writeBytes(dir.file("empty.tif"), {});
    testing::writeBytes(dir.file("notes.tif"), {'h', 'e', 'l', 'l', 'o', '\n'});
    testing::writeBytes(dir.file("locked.png"), {0x89, 'P', 'N', 'G'});
    chmod(dir.file("locked.png").c_str(), 0);
    testing::TiffSpec t;
    testing::writeTiff(dir.file("really-a-tiff.pict"), t, testing::pattern(4 * 3 * 3, 256));
    struct Case {
        std::string path;
        std::string reason;
    } table[] = {
        {dir.file("missing.tif"), "the file does not exist"},
        {dir.file(""), "this is a folder, not a picture file"},
        {dir.file("empty.tif"), "the file is empty"},
        {dir.file("notes.tif"), kReasons[2]},
        {dir.file("really-a-tiff.pict"),
         "PICT pictures are not supported; convert the file to TIFF or PNG."},
        {dir.file("locked.png"), "you do not have permission to read the file"},
    };
    for (const Case& c : table) {
        if (c.path == dir.file("locked.png") && geteuid() == 0) {
            continue;  // root reads everything
        }
        auto picture = readImageFile(c.path);
        ASSERT_FALSE(picture.ok()) << c.path;
        EXPECT_EQ(picture.error().message, c.path + ": " + c.reason);
    }
}

TEST(DamagedFiles, PicturesTooLargeForABitmapAreRefusedBeforeReading) {
    TempDir dir;
    TIFF* t = TIFFOpen(dir.file("huge.tif").c_str(), "w");
    ASSERT_NE(t, nullptr);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 60000u);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 60000u);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, std::uint16_t(3));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, std::uint16_t(8));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, std::uint16_t(PHOTOMETRIC_RGB));
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 60000u);
    std::uint8_t one = 0;
    // One byte of deflated data stands for the whole strip; the size check comes first.
    TIFFSetField(t, TIFFTAG_COMPRESSION, std::uint16_t(COMPRESSION_ADOBE_DEFLATE));
    TIFFWriteRawStrip(t, 0, &one, 1);
    TIFFClose(t);
    auto picture = readImageFile(dir.file("huge.tif"));
    ASSERT_FALSE(picture.ok());
    EXPECT_NE(picture.error().message.find(dir.file("huge.tif") +
                                           ": the picture is too large: 60000 x 60000 pixels"),
              std::string::npos)
        << picture.error().message;
}

TEST(ImageKinds, ContentDecidesNotTheName) {
    struct Case {
        std::vector<std::uint8_t> head;
        ImageKind kind;
    } table[] = {
        {{'I', 'I', 42, 0}, ImageKind::TIFF},
        {{'M', 'M', 0, 42}, ImageKind::TIFF},
        {{'I', 'I', 43, 0}, ImageKind::TIFF},
        {{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'}, ImageKind::PNG},
        {{0x89, 'P', 'N', 'G'}, ImageKind::Unknown},
        {{0xff, 0xd8, 0xff, 0xe0}, ImageKind::JPEG},
        {{'B', 'M', 0}, ImageKind::BMP},
        {{'B'}, ImageKind::Unknown},
        {{}, ImageKind::Unknown},
        {{'I', 'I', 0, 42}, ImageKind::Unknown},
    };
    for (const Case& c : table) {
        EXPECT_EQ(detectImageKind(c.head), c.kind);
    }
    TempDir dir;
    testing::TiffSpec t;
    testing::writeTiff(dir.file("photo.jpg"), t, testing::pattern(4 * 3 * 3, 256));
    EXPECT_EQ(imageKindOfFile(dir.file("photo.jpg")), ImageKind::TIFF);
    EXPECT_TRUE(readImageFile(dir.file("photo.jpg")).ok());
    EXPECT_EQ(imageKindOfFile(dir.file("nothing")), ImageKind::Unknown);
    for (const char* name : {"a.pct", "b/a.pict", "a.PCT", "a.PICT"}) {
        EXPECT_TRUE(isPictFileName(name)) << name;
    }
    for (const char* name : {"a.tif", "pict", "a.pict.tif"}) {
        EXPECT_FALSE(isPictFileName(name)) << name;
    }
}

}  // namespace
}  // namespace pv
