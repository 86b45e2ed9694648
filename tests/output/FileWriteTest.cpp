#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "TestFiles.h"
#include "output/Export.h"

namespace pv {
namespace {

using Names = std::set<std::string>;

// Hidden names included: a leftover temporary shows up here.
Names namesIn(const std::string& folder) {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Root ignores folder permissions, so the write runs as "nobody" in a child, which prints what
// it got when that is not `message`.
bool failsAsNobody(const std::string& path, const std::string& message) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            ::_exit(2);
        }
        const Status s = writeFileAtomically(path, "new report");
        const std::string got = s ? "OK" : s.error().message();
        std::fputs(got == message ? "" : (got + "\n").c_str(), stderr);
        ::_exit(got == message ? 0 : 1);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(WriteFileAtomically, ReplacesButInAReadOnlyFolderKeepsTheOldFile) {
    testing::TempDir folder;
    const std::string path = folder.file("locked/report.xls");
    ::chmod(folder.root.c_str(), 0755);  // a child running as "nobody" enters it
    std::filesystem::create_directory(folder.file("locked"));
    ASSERT_TRUE(writeFileAtomically(path, "first"));
    ASSERT_TRUE(writeFileAtomically(path, "old report"));
    ::chmod(folder.file("locked").c_str(), 0555);
    EXPECT_TRUE(failsAsNobody(path, "cannot write " + path + ": Permission denied"));
    EXPECT_EQ(namesIn(folder.file("locked")), Names{"report.xls"});
    EXPECT_EQ(readFile(path), "old report");
}

constexpr int kWide = 13;  // odd, so that a wrong stride cannot line up by chance
constexpr int kHigh = 7;

std::uint8_t sampleAt(int x, int y, int c) {
    return std::uint8_t(x * 37 + y * 11 + c * 85);
}

// Alpha and row padding hold 0xEE, which must not reach the file.
Bitmap makeBitmap(int spp, bool planar, int padding) {
    const int rowBytes = kWide * (planar ? 1 : spp) + padding;
    Bitmap b = *Bitmap::create(kWide, kHigh, spp, spp == 4, planar, rowBytes);
    std::fill(b.bitmapData(), b.bitmapData() + b.totalBytes(), std::uint8_t(0xEE));
    for (int y = 0; y < kHigh; ++y) {
        for (int x = 0; x < kWide; ++x) {
            for (int c = 0; c < 3; ++c) {
                (planar ? b.row(c, y)[x] : b.row(0, y)[x * spp + c]) = sampleAt(x, y, c);
            }
        }
    }
    return b;
}

TEST(WriteTiffAtomically, EveryLayoutReadsBackAsMeshedRgbAt72Dpi) {
    for (const auto& [name, spp, planar, padding] :
         {std::tuple("meshed RGB", 3, false, 0), std::tuple("meshed RGBA padded", 4, false, 3),
          std::tuple("planar RGB padded", 3, true, 7)}) {
        SCOPED_TRACE(name);
        testing::TempDir folder;
        const std::string path = folder.file("picture.tif");
        ASSERT_TRUE(writeTiffAtomically(path, makeBitmap(spp, planar, padding)));
        std::unique_ptr<TIFF, void (*)(TIFF*)> tif(TIFFOpen(path.c_str(), "r"), TIFFClose);
        ASSERT_TRUE(tif);
        std::uint32_t wide = 0, high = 0;
        float xres = 0, yres = 0;
        TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &wide);
        TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &high);
        TIFFGetField(tif.get(), TIFFTAG_XRESOLUTION, &xres);
        TIFFGetField(tif.get(), TIFFTAG_YRESOLUTION, &yres);
        EXPECT_EQ(std::tuple(wide, high, xres, yres), std::tuple(13u, 7u, 72.0f, 72.0f));
        const auto field = [&](ttag_t tag) {
            std::uint16_t v = 0;
            TIFFGetFieldDefaulted(tif.get(), tag, &v);
            return int(v);
        };
        EXPECT_EQ(field(TIFFTAG_SAMPLESPERPIXEL), 3);
        EXPECT_EQ(field(TIFFTAG_BITSPERSAMPLE), 8);
        EXPECT_EQ(field(TIFFTAG_PLANARCONFIG), PLANARCONFIG_CONTIG);
        EXPECT_EQ(field(TIFFTAG_RESOLUTIONUNIT), RESUNIT_INCH);
        ASSERT_EQ(TIFFScanlineSize(tif.get()), kWide * 3);
        std::vector<std::uint8_t> row(kWide * 3), want(kWide * 3);
        for (int y = 0; y < kHigh; ++y) {
            ASSERT_EQ(TIFFReadScanline(tif.get(), row.data(), std::uint32_t(y), 0), 1);
            for (int i = 0; i < kWide * 3; ++i) {
                want[std::size_t(i)] = sampleAt(i / 3, y, i % 3);
            }
            EXPECT_EQ(row, want) << "row " << y;
        }
        EXPECT_EQ(namesIn(folder.root), Names{"picture.tif"});
    }
}

TEST(OutputPixelCoefficientData, WritesTheRevealedImageOnlyWhenThereIsOne) {
    const Bitmap image = makeBitmap(3, false, 0);
    for (const bool reveal : {false, true}) {
        testing::TempDir folder;
        const ExportRequest request{
            folder.file("run"),       ReportFormat::PlainText, true, &image, &image,
            reveal ? &image : nullptr};
        EXPECT_TRUE(outputPixelCoefficientData(ResultFields{}, request).empty());
        Names want{"run.txt", "run_Image.tif", "run_SGram.tif"};
        if (reveal) {
            want.insert("run_ImgReflect.tif");
        }
        EXPECT_EQ(namesIn(folder.root), want);
    }
}

mode_t modeOf(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// A replaced file keeps its mode whatever the umask; a new one is made through the umask.
TEST(AtomicWrites, ReplacedFilesKeepTheirModeNewOnesFollowTheUmask) {
    const Bitmap image = makeBitmap(3, false, 0);
    const std::pair<const char*, std::function<Status(const std::string&)>> writers[] = {
        {"report", [](const std::string& path) { return writeFileAtomically(path, "report"); }},
        {"TIFF", [&image](const std::string& path) { return writeTiffAtomically(path, image); }}};
    const struct {
        std::optional<mode_t> existing;
        mode_t umask;
        mode_t want;
    } table[] = {{0640, 022, 0640},      {0600, 022, 0600},         {0755, 077, 0755},
                 {0604, 0, 0604},        {std::nullopt, 022, 0644}, {std::nullopt, 077, 0600},
                 {std::nullopt, 0, 0666}};
    const mode_t previous = ::umask(022);
    for (const auto& [name, write] : writers) {
        SCOPED_TRACE(name);
        for (const auto& c : table) {
            testing::TempDir folder;
            const std::string path = folder.file("out");
            if (c.existing) {
                ASSERT_TRUE(write(path));
                ::chmod(path.c_str(), *c.existing);
            }
            ::umask(c.umask);
            ASSERT_TRUE(write(path));
            ::umask(022);
            EXPECT_EQ(modeOf(path), c.want) << std::oct << c.umask << " " << c.existing.value_or(0);
        }
    }
    ::umask(previous);
}

// One failure per file, each naming it; nothing is left behind.
TEST(OutputPixelCoefficientData, MissingFolderFailsEveryFile) {
    testing::TempDir folder;
    const Bitmap image = makeBitmap(3, false, 0);
    const std::string stem = folder.file("missing/run");
    const ExportRequest request{stem, ReportFormat::Spreadsheet, true, &image, &image, &image};
    const std::vector<Error> errors = outputPixelCoefficientData(ResultFields{}, request);
    ASSERT_EQ(errors.size(), 4u);
    const char* suffixes[] = {".xls", kImageSuffix, kScatterGramSuffix, kRevealedImageSuffix};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(errors[i].message(),
                  "cannot write " + stem + suffixes[i] + ": No such file or directory");
    }
    EXPECT_TRUE(namesIn(folder.root).empty());
}

}  // namespace
}  // namespace pv
