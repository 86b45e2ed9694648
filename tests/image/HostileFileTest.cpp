// Small files that claim huge pictures, leave parts out or never stop refining: each must be
// refused quickly, with its reason, and without committing the memory it asks for.

#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"
#include "image/LabelImage.h"
#include "image/StackLayout.h"

namespace pv {
namespace {

using testing::TempDir;

constexpr const char* kTruncated = "the file ends before the picture is complete";
constexpr const char* kDamaged = "the file is damaged and the picture cannot be read";
constexpr const char* kTooSmall = "the file is too small to hold the ";

std::vector<std::uint8_t> jpegBytes(int wide, int high, int components,
                                    const testing::JpegOptions& options = {}) {
    const auto samples = testing::pattern(std::size_t(wide * high * components), 256);
    return testing::jpegBytes(wide, high, components, samples, options);
}

std::size_t findMarker(const std::vector<std::uint8_t>& b, std::uint8_t marker,
                       std::size_t from = 0) {
    for (std::size_t i = from; i + 1 < b.size(); ++i) {
        if (b[i] == 0xff && b[i + 1] == marker) {
            return i;
        }
    }
    return b.size();
}

void putU16BE(std::vector<std::uint8_t>& b, std::size_t at, std::uint32_t v) {
    b[at] = std::uint8_t(v >> 8);
    b[at + 1] = std::uint8_t(v);
}

// The frame header says wide x high; the data stays that of the small picture.
std::vector<std::uint8_t> jpegClaiming(std::uint32_t wide, std::uint32_t high, bool progressive,
                                       bool arithmetic = false) {
    auto b = jpegBytes(16, 16, 3, {.progressive = progressive, .arithmetic = arithmetic});
    // Start of frame: Huffman sequential, progressive; arithmetic sequential, progressive.
    const int marker = arithmetic ? (progressive ? 0xca : 0xc9) : (progressive ? 0xc2 : 0xc0);
    const std::size_t sof = findMarker(b, marker);
    putU16BE(b, sof + 5, high);
    putU16BE(b, sof + 7, wide);
    return b;
}

// Every AC coefficient alone and refined bit by bit: a valid progression of 704 scans.
std::vector<std::uint8_t> jpegOfManyScans() {
    std::vector<jpeg_scan_info> scans;
    auto add = [&](int ss, int se, int ah, int al) {
        jpeg_scan_info s{};
        s.comps_in_scan = 1;
        s.Ss = ss, s.Se = se, s.Ah = ah, s.Al = al;
        scans.push_back(s);
    };
    for (int k = 0; k < 64; ++k) {
        add(k, k, 0, 10);
        for (int al = 9; al >= 0; --al) {
            add(k, k, al + 1, al);
        }
    }
    return jpegBytes(16, 16, 1, {.scans = scans});
}

// The last scan of a progressive file repeated thousands of times.
std::vector<std::uint8_t> jpegRepeatingAScan() {
    auto b = jpegBytes(64, 64, 3, {.progressive = true});
    std::size_t last = 0;
    for (std::size_t at = findMarker(b, 0xda); at < b.size(); at = findMarker(b, 0xda, at + 2)) {
        last = at;
    }
    const std::vector<std::uint8_t> scan(b.begin() + std::ptrdiff_t(last), b.end() - 2);
    std::vector<std::uint8_t> out(b.begin(), b.end() - 2);
    for (int i = 0; i < 6400; ++i) {
        out.insert(out.end(), scan.begin(), scan.end());
    }
    out.insert(out.end(), {0xff, 0xd9});
    return out;
}

// A progressive file that ends cleanly after the first of its components' own DC scans.
std::vector<std::uint8_t> jpegMissingTwoComponents() {
    std::vector<jpeg_scan_info> scans;
    for (int component = 0; component < 3; ++component) {
        for (const auto& [ss, se] : {std::pair{0, 0}, std::pair{1, 63}}) {
            jpeg_scan_info s{};
            s.comps_in_scan = 1;
            s.component_index[0] = component;
            s.Ss = ss, s.Se = se;
            scans.push_back(s);
        }
    }
    auto b = jpegBytes(32, 32, 3, {.scans = scans});
    const std::size_t second = findMarker(b, 0xda, findMarker(b, 0xda) + 2);
    b.resize(second);
    b.insert(b.end(), {0xff, 0xd9});
    return b;
}

// End-of-image in the middle of the entropy-coded data.
std::vector<std::uint8_t> jpegWithMarkerInData() {
    auto b = jpegBytes(64, 64, 3);
    const std::size_t sos = findMarker(b, 0xda);
    const std::size_t middle = sos + (b.size() - sos) / 2;
    b[middle] = 0xff;
    b[middle + 1] = 0xd9;
    return b;
}

std::uint32_t crc32(const std::uint8_t* p, std::size_t n) {
    std::uint32_t c = 0xffffffffu;
    for (std::size_t i = 0; i < n; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k) {
            c = c & 1 ? 0xedb88320u ^ (c >> 1) : c >> 1;
        }
    }
    return ~c;
}

std::vector<std::uint8_t> pngClaiming(const TempDir& dir, std::uint32_t wide, std::uint32_t high) {
    const std::string path = dir.file("small.png");
    testing::writePng(path, {16, 16, 3, 8}, testing::pattern(16 * 16 * 3, 256));
    auto b = testing::readBytes(path);
    // IHDR's data starts after the signature, its length and its type.
    for (const auto& [at, v] : {std::pair<std::size_t, std::uint32_t>{16, wide}, {20, high}}) {
        putU16BE(b, at, v >> 16);
        putU16BE(b, at + 2, v & 0xffff);
    }
    const std::uint32_t crc = crc32(&b[12], 17);
    putU16BE(b, 29, crc >> 16);
    putU16BE(b, 31, crc & 0xffff);
    return b;
}

struct TiffClaim {
    std::uint32_t wide, high;
    int compression;
    std::uint32_t tileSide = 0;  // 0: one strip
    std::uint32_t tilesWritten = ~0u;
    std::size_t bytesPerBlock = 600;
};

// Tags as a real writer sets them, but the data is a few bytes of noise per strip or tile;
// tiles beyond tilesWritten are left out (offset and byte count 0).
std::vector<std::uint8_t> tiffClaiming(const TempDir& dir, const TiffClaim& s) {
    const std::string path = dir.file("claim.tif");
    TIFF* t = TIFFOpen(path.c_str(), "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, s.wide);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, s.high);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, s.compression);
    std::uint32_t blocks = 1;
    if (s.tileSide) {
        TIFFSetField(t, TIFFTAG_TILEWIDTH, s.tileSide);
        TIFFSetField(t, TIFFTAG_TILELENGTH, s.tileSide);
        blocks = std::min(TIFFNumberOfTiles(t), s.tilesWritten);
    } else {
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, s.high);
    }
    std::vector<std::uint8_t> noise = testing::packRow(testing::pattern(s.bytesPerBlock, 256), 8);
    for (std::uint32_t i = 0; i < blocks; ++i) {
        (s.tileSide ? TIFFWriteRawTile : TIFFWriteRawStrip)(t, i, noise.data(),
                                                            tmsize_t(noise.size()));
    }
    TIFFClose(t);
    return testing::readBytes(path);
}

// A genuine JPEG-compressed TIFF whose first tile has an end-of-image marker halfway through.
std::vector<std::uint8_t> tiffJpegWithMarkerInData(const TempDir& dir) {
    const std::string path = dir.file("jpeg.tif");
    testing::writeTiff(path, {64, 64, 3, 8, PHOTOMETRIC_RGB, false, true, COMPRESSION_JPEG},
                       testing::pattern(64 * 64 * 3, 256));
    TIFF* t = TIFFOpen(path.c_str(), "r");
    const std::uint64_t middle = TIFFGetStrileOffset(t, 0) + TIFFGetStrileByteCount(t, 0) / 2;
    TIFFClose(t);
    auto b = testing::readBytes(path);
    b[middle] = 0xff;
    b[middle + 1] = 0xd9;
    return b;
}

// A white fax page: each row the same as the one above, a bit each in two-dimensional coding.
// Padded, the strip gets enough bytes not to be too small for the page, which it decodes to.
std::vector<std::uint8_t> blankFax(const TempDir& dir, std::uint32_t wide, std::uint32_t high,
                                   bool padded = false) {
    const std::string path = dir.file("fax.tif");
    TIFF* t = TIFFOpen(path.c_str(), "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, wide);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, high);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, high);
    if (padded) {
        std::vector<std::uint8_t> strip(std::uint64_t(wide) * high / 8192 + 64, 0);
        std::fill_n(strip.begin(), (high + 7) / 8, 0xff);
        TIFFWriteRawStrip(t, 0, strip.data(), tmsize_t(strip.size()));
    }
    std::vector<std::uint8_t> row((wide + 7) / 8, 0);
    for (std::uint32_t y = 0; y < high && !padded; ++y) {
        TIFFWriteScanline(t, row.data(), y, 0);
    }
    TIFFClose(t);
    return testing::readBytes(path);
}

long peakKilobytes() {
    rusage use{};
    getrusage(RUSAGE_SELF, &use);
    return use.ru_maxrss;
}

TEST(HostileFiles, AreRefusedQuicklyWithTheirReasonAndWithoutTheMemoryTheyAskFor) {
    TempDir dir;
    const std::string size26000 = kTooSmall + std::string("26000 x 26000 pixels");
    const struct {
        const char* name;
        std::vector<std::uint8_t> bytes;
        std::string reason;
    } cases[] = {
        {"huge.jpg", jpegClaiming(26000, 26000, false), size26000},
        {"huge-progressive.jpg", jpegClaiming(26000, 26000, true), kTooSmall},
        {"huge-arithmetic.jpg", jpegClaiming(26000, 26000, false, true), size26000},
        {"huge-arithmetic-progressive.jpg", jpegClaiming(26000, 26000, true, true), size26000},
        {"704-scans.jpg", jpegOfManyScans(), "the picture is stored in more than 500 passes"},
        {"repeated-scan.jpg", jpegRepeatingAScan(), kDamaged},
        {"dc-missing.jpg", jpegMissingTwoComponents(), kTruncated},
        {"marker-in-data.jpg", jpegWithMarkerInData(), kDamaged},
        {"huge.png", pngClaiming(dir, 25000, 25000), kTooSmall + std::string("25000 x 25000")},
        {"jpeg-huge.tif", tiffClaiming(dir, {26000, 26000, COMPRESSION_JPEG}), size26000},
        {"deflate-huge.tif", tiffClaiming(dir, {20000, 20000, COMPRESSION_ADOBE_DEFLATE}),
         kTooSmall},
        {"lzw-huge.tif", tiffClaiming(dir, {20000, 20000, COMPRESSION_LZW}), kTooSmall},
        {"lzma-huge.tif", tiffClaiming(dir, {20000, 20000, COMPRESSION_LZMA}), kTooSmall},
        {"webp-huge.tif", tiffClaiming(dir, {16000, 16000, COMPRESSION_WEBP}), kTooSmall},
        {"packbits-huge.tif", tiffClaiming(dir, {4000, 4000, COMPRESSION_PACKBITS}), kTooSmall},
        {"fax-blank-huge.tif", blankFax(dir, 30000, 7000),
         kTooSmall + std::string("30000 x 7000 pixels")},
        {"raw-short.tif", tiffClaiming(dir, {4000, 4000, COMPRESSION_NONE}),
         kTooSmall + std::string("4000 x 4000 pixels")},
        {"tiles-missing.tif", tiffClaiming(dir, {26000, 26000, COMPRESSION_LZW, 512, 3}),
         kTooSmall + std::string("26000 x 26000 pixels")},
        {"tiles-missing-small.tif",
         tiffClaiming(dir, {64, 64, COMPRESSION_NONE, 16, 3, 16 * 16 * 3}), kTruncated},
        {"tile-65488.tif", tiffClaiming(dir, {16, 16, COMPRESSION_JPEG, 65488}), kDamaged},
        {"jpeg-marker-in-data.tif", tiffJpegWithMarkerInData(dir), kDamaged},
    };
    for (const auto& c : cases) {
        testing::writeBytes(dir.file(c.name), c.bytes);
    }
    ::testing::internal::CaptureStderr();
    const long peakBefore = peakKilobytes();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto start = std::chrono::steady_clock::now();
        auto picture = readImageFile(dir.file(c.name));
        const auto took = std::chrono::steady_clock::now() - start;
        EXPECT_LT(took, std::chrono::seconds(1));
        if (picture.ok()) {
            ADD_FAILURE() << "taken for a picture";
            continue;
        }
        EXPECT_EQ(picture.error().reason.substr(0, c.reason.size()), c.reason);
    }
    // Refused before the pixels are touched: the peak grows by far less than any picture here.
    EXPECT_LT(peakKilobytes() - peakBefore, 64 * 1024);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// A mask, label image or channel file must be the picture's size: files claiming another size
// are refused by their header, before any other check and before their pixels cost anything.
// The padded fax page is whole and would decode to 630 MB.
TEST(HostileFiles, OfTheWrongSizeAreRefusedBeforeTheirPixelsAreRead) {
    TempDir dir;
    const std::vector<std::uint8_t> oneRow(4000 * 3, 7);
    const struct {
        const char* name;
        std::vector<std::uint8_t> bytes;
        std::string size;
        bool labels;  // also read as a label image
    } cases[] = {
        {"padded-fax.tif", blankFax(dir, 30000, 7000, true), "30000 x 7000", true},
        {"raw-short.tif", tiffClaiming(dir, {4000, 4000, COMPRESSION_NONE}), "4000 x 4000", false},
        {"huge.png", pngClaiming(dir, 25000, 25000), "25000 x 25000", true},
        {"huge.jpg", jpegClaiming(26000, 26000, false), "26000 x 26000", false},
        {"short.bmp", testing::makeBmp(4000, 4000, 24, {}, {}, oneRow), "4000 x 4000", false},
    };
    const SizeCheck only16 = sizeMustBe(16, 16, "%1 x %2, not %3 x %4");
    ::testing::internal::CaptureStderr();
    const long peakBefore = peakKilobytes();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        testing::writeBytes(dir.file(c.name), c.bytes);
        auto picture = readImageFile(dir.file(c.name), {.sizeCheck = only16});
        ASSERT_FALSE(picture.ok());
        EXPECT_EQ(picture.error().reason, c.size + ", not 16 x 16");
        if (c.labels) {
            auto labels = readLabelImage(dir.file(c.name), only16);
            ASSERT_FALSE(labels.ok());
            EXPECT_EQ(labels.error().reason, c.size + ", not 16 x 16");
        }
    }
    EXPECT_LT(peakKilobytes() - peakBefore, 64 * 1024);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// A pipe would block the reader until something writes to it: every reader refuses it at once.
TEST(HostileFiles, APipeIsRefusedBeforeItIsOpened) {
    TempDir dir;
    const std::string pipe = dir.file("pipe.tif");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string reason =
        "this is a pipe, device or socket, not a regular file: it cannot be read as a picture";
    EXPECT_EQ(readImageFile(pipe).error().reason, reason);
    EXPECT_EQ(readLabelImage(pipe).error().reason, reason);
    EXPECT_EQ(readStackLayout(pipe).error().reason, reason);
    EXPECT_EQ(imageKindOfFile(pipe), ImageKind::Unknown);
}

// The limits leave real files alone: progressive and arithmetic-coded files give the same
// pixels as a sequential one of the same quality, and libtiff's own JPEG and tiles still decode.
TEST(HostileFiles, GenuineProgressiveAndTiledJpegFilesStillDecode) {
    TempDir dir;
    testing::writeBytes(dir.file("seq.jpg"), jpegBytes(40, 24, 3));
    testing::writeBytes(dir.file("prog.jpg"), jpegBytes(40, 24, 3, {.progressive = true}));
    testing::writeBytes(dir.file("arith.jpg"), jpegBytes(40, 24, 3, {.arithmetic = true}));
    testing::writeTiff(dir.file("jpeg.tif"),
                       {40, 24, 3, 8, PHOTOMETRIC_RGB, false, true, COMPRESSION_JPEG},
                       testing::pattern(40 * 24 * 3, 256));
    auto seq = readImageFile(dir.file("seq.jpg"));
    auto prog = readImageFile(dir.file("prog.jpg"));
    auto tiff = readImageFile(dir.file("jpeg.tif"));
    auto arith = readImageFile(dir.file("arith.jpg"));
    ASSERT_TRUE(seq.ok() && prog.ok()) << (seq.ok() ? prog : seq).error().reason;
    ASSERT_TRUE(tiff.ok()) << tiff.error().reason;
    ASSERT_TRUE(arith.ok()) << arith.error().reason;
    EXPECT_EQ(testing::meshedSamples(*prog->bitmap), testing::meshedSamples(*seq->bitmap));
    EXPECT_EQ(testing::meshedSamples(*arith->bitmap), testing::meshedSamples(*seq->bitmap));
    EXPECT_EQ(tiff->pixelsWide(), 40);
}

}  // namespace
}  // namespace pv
