#include "Harnesses.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "GreyPages.h"
#include "cli/CliOptions.h"
#include "cli/Gestures.h"
#include "controller/PixmeraVeltroController.h"
#include "image/DecoderSupport.h"
#include "image/StackLayout.h"
#include "output/Export.h"

namespace pv::fuzz {

namespace {

// The decoders read from a path, as the programs do; one file per process, rewritten for each
// input and removed at exit.
class ScratchFile {
  public:
    ScratchFile() {
        path_ = (std::filesystem::temp_directory_path() / "pv-fuzz-XXXXXX").string();
        const int fd = mkstemp(path_.data());
        if (fd < 0) {
            std::perror("pv-fuzz: cannot make a temporary file");
            std::abort();
        }
        close(fd);
    }
    ~ScratchFile() { std::remove(path_.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& write(const std::uint8_t* data, std::size_t size) {
        std::FILE* f = std::fopen(path_.c_str(), "wb");
        if (!f || (size > 0 && std::fwrite(data, 1, size, f) != size) || std::fclose(f) != 0) {
            std::perror("pv-fuzz: cannot write the temporary file");
            std::abort();
        }
        return path_;
    }

  private:
    std::string path_;
};

const std::string& scratch(const std::uint8_t* data, std::size_t size) {
    static ScratchFile file;
    return file.write(data, size);
}

// Reads every byte of every row, so that a bitmap whose layout promises more than was
// allocated shows under AddressSanitizer.
void touchEveryByte(const Picture& picture) {
    const Bitmap& b = *picture.bitmap;
    unsigned sum = 0;
    for (int k = 0; k < b.numberOfPlanes(); ++k) {
        for (int y = 0; y < b.pixelsHigh(); ++y) {
            const std::uint8_t* row = b.row(k, y);
            for (int i = 0; i < b.bytesPerRow(); ++i) {
                sum += row[i];
            }
        }
    }
    volatile unsigned keep = sum;
    (void)keep;
}

bool samePixels(const Bitmap& a, const Bitmap& b) {
    if (!a.hasLayoutOf(b)) {
        return false;
    }
    for (int k = 0; k < a.numberOfPlanes(); ++k) {
        for (int y = 0; y < a.pixelsHigh(); ++y) {
            if (std::memcmp(a.row(k, y), b.row(k, y), std::size_t(a.bytesPerRow())) != 0) {
                return false;
            }
        }
    }
    return true;
}

int decoded(const Result<Picture>& picture) {
    if (picture && !picture->isEmpty()) {
        touchEveryByte(*picture);
    }
    return 0;
}

// A region over most of the scatter gram with a slanted edge, and a correction that leaves
// something to analyse: every branch of the road is taken for an ordinary picture.
cli::Options wholeRoadOptions() {
    cli::Options o;
    o.background = {{.channelItem = 0, .level = 3}};
    o.region = cli::RegionOption{
        .tool = SelectionTool::Polygon,
        .points = {{8.0f, 4.0f}, {250.0f, 20.0f}, {230.0f, 250.0f}, {12.0f, 180.0f}}};
    o.reveal = true;
    return o;
}

// Follows the road of one picture as the command line does, for one image, and builds the
// report it would print.
void analyse(PixmeraVeltroController& controller, cli::BatchPort& port, const cli::Options& o) {
    (void)cli::followRoad(controller, port, o);
    (void)controller.cautions();
    const std::string report = buildReport(controller.fields());
    (void)report;
}

// Opens the image as the command line does and follows the road, each cell of the label image
// too when there is one. False when the image was refused.
bool follow(const cli::Options& o, const std::string& image) {
    cli::BatchPort port;
    PixmeraVeltroController controller(port);
    // One thread: libFuzzer runs one input at a time and keeps to its core.
    cli::startController(controller, o, 1);
    if (!cli::openImage(controller, o, image)) {
        return false;
    }
    analyse(controller, port, o);
    if (o.labels) {
        (void)controller.cellFields(*o.labels, o.measures.any());
    }
    return true;
}

// Sixteen by sixteen with every channel different, so that no pass stops early on a constant
// channel.
Picture smallPicture() {
    std::optional<Bitmap> b = Bitmap::create(16, 16, 3, false, false);
    for (int y = 0; y < 16; ++y) {
        std::uint8_t* row = b->row(0, y);
        for (int x = 0; x < 16; ++x) {
            row[3 * x] = std::uint8_t(x * 16);
            row[3 * x + 1] = std::uint8_t(y * 16 + x);
            row[3 * x + 2] = std::uint8_t(255 - y * 13);
        }
    }
    return Picture::at72dpi(std::move(*b));
}

}  // namespace

int wholeRoad(const std::uint8_t* data, std::size_t size) {
    static const cli::Options options = wholeRoadOptions();
    follow(options, scratch(data, size));
    return 0;
}

namespace {

// Label images take their own road through the decoders: what they read must be whole too.
void readLabels(const Result<LabelImage>& read) {
    if (read.ok() && read->labels.size() != std::size_t(read->wide) * std::size_t(read->high)) {
        std::fprintf(stderr, "pv-fuzz: a label image of the wrong size\n");
        std::abort();
    }
}

// A grey page read as one sample a pixel, as a stack's pages are, must hold the plain reading's
// samples.
void greyAsPlain(const Result<Picture>& plain, const Result<Picture>& grey) {
    if (!plain.ok() || !grey.ok() || grey->bitmap->samplesPerPixel() != 1) {
        return;
    }
    decoded(grey);
    const ChannelView a = plain->bitmap->channels(), b = grey->bitmap->channels();
    for (std::int64_t r = 0; r < a.height; ++r) {
        for (std::int64_t c = 0; c < a.width; ++c) {
            if (*a.sample(0, r, c) != *b.sample(0, r, c)) {
                std::fprintf(stderr, "pv-fuzz: a grey TIFF read as one sample differs\n");
                std::abort();
            }
        }
    }
}

// The pages of a long chain that the TIFF harness reads, each as a stack's slice would be.
constexpr std::uint32_t kMostPages = 64;

}  // namespace

// Every TIFF is also read with its strips or tiles shared between two workers (each with its
// own handle), as large compressed files are, and as a grey picture of one sample a pixel, as
// a stack's pages are: the results must be those of the one plain reading. Then every further
// page alike; a label image has only its first.
int tiffDecoder(const std::uint8_t* data, std::size_t size) {
    const std::string& path = scratch(data, size);
    readLabels(decode::decodeTiffLabels(path, size));
    const Result<Picture> plain = decode::decodeTiff(path, size, ReadOptions{.threads = 1});
    decoded(plain);
    const Result<Picture> shared = decode::decodeTiff(path, size, ReadOptions{.threads = 2});
    if (plain.ok() != shared.ok() || (plain.ok() && !samePixels(*plain->bitmap, *shared->bitmap))) {
        std::fprintf(stderr, "pv-fuzz: two workers read the TIFF otherwise than one\n");
        std::abort();
    }
    greyAsPlain(plain, decode::decodeTiff(path, size, ReadOptions{.keepGrey = true}));
    // The further pages as a stack's slices are read, the first few of a long chain.
    const Result<StackLayout> layout = readStackLayout(path);
    const std::uint32_t pages = layout ? layout->pages : plain ? plain->pageCount : 1;
    for (std::uint32_t page = 1; page < std::min(pages, kMostPages); ++page) {
        const Result<Picture> picture =
            decode::decodeTiff(path, size, ReadOptions{.threads = 1, .page = page});
        decoded(picture);
        greyAsPlain(picture,
                    decode::decodeTiff(path, size, ReadOptions{.page = page, .keepGrey = true}));
    }
    return 0;
}

int jpegDecoder(const std::uint8_t* data, std::size_t size) {
    return decoded(decode::decodeJpeg(scratch(data, size), size));
}

int pngDecoder(const std::uint8_t* data, std::size_t size) {
    const std::string& path = scratch(data, size);
    readLabels(decode::decodePngLabels(path));
    return decoded(decode::decodePng(path, ReadOptions{}));
}

int bmpDecoder(const std::uint8_t* data, std::size_t size) {
    return decoded(decode::decodeBmp(scratch(data, size), size));
}

namespace {

// Small files that the option harness's file names stand for, written once and removed at
// exit. A name's first byte chooses one (modulo their count: '0' to '7' in this order), so
// that the fuzzer reaches each by changing one byte.
class OptionFiles {
  public:
    OptionFiles() {
        dir_ = (std::filesystem::temp_directory_path() / "pv-fuzz-files-XXXXXX").string();
        if (!mkdtemp(dir_.data())) {
            std::perror("pv-fuzz: cannot make a temporary folder");
            std::abort();
        }
        using testing::writeGreyPages;
        const auto page = [](std::uint32_t (*value)(int x, int y)) {
            testing::GreyPage p;
            for (int y = 0; y < 16; ++y) {
                for (int x = 0; x < 16; ++x) {
                    p.push_back(value(x, y));
                }
            }
            return p;
        };
        std::vector<testing::GreyPage> slices;
        for (std::uint32_t k = 0; k < 6; ++k) {
            slices.push_back(page([](int x, int y) { return std::uint32_t(x * 16 + y); }));
            for (std::uint32_t& v : slices.back()) {
                v = (v * (k + 3) + k * 41) % 256;
            }
        }
        const std::string ome =
            R"(<?xml version="1.0" encoding="UTF-8"?><OME xmlns="http://www.openmicroscopy.org/)"
            R"(Schemas/OME/2016-06"><Image ID="Image:0"><Pixels ID="Pixels:0" )"
            R"(DimensionOrder="XYZCT" SizeC="2" SizeZ="3" SizeT="1" SizeX="16" SizeY="16" )"
            R"(Type="uint16"><Channel ID="Channel:0:0" Name="DAPI"/><Channel ID="Channel:0:1" )"
            R"(Name="GFP"/></Pixels></Image></OME>)";
        std::vector<testing::GreyPage> wide = slices;
        for (testing::GreyPage& p : wide) {
            for (std::uint32_t& v : p) {
                v *= 211;
            }
        }
        const bool written =
            writeTiffAtomically(path(0), *smallPicture().bitmap).ok() &&
            writeGreyPages(path(1), 16, 16, slices, testing::imageJDescription(2, 3)) &&
            writeGreyPages(path(2), 16, 16, wide, ome, 16) &&
            writeGreyPages(path(3), 16, 16,
                           {page([](int x, int y) { return std::uint32_t(x > y ? 255 : 0); })}) &&
            writeGreyPages(path(4), 16, 16,
                           {page([](int x, int y) { return std::uint32_t(x / 8 + 2 * (y / 8)); })},
                           {}, 16) &&
            writeGreyPages(path(5), 16, 16, {wide[1]}, {}, 16) &&
            writeGreyPages(path(6), 8, 8, {testing::GreyPage(64, 200)});
        if (!written) {
            std::fprintf(stderr, "pv-fuzz: cannot write the option harness's files\n");
            std::abort();
        }
    }
    ~OptionFiles() {
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
    OptionFiles(const OptionFiles&) = delete;
    OptionFiles& operator=(const OptionFiles&) = delete;

    std::string operator()(const std::string& name) const {
        return path(name.empty() ? 0 : int(static_cast<unsigned char>(name[0]) % kCount));
    }

  private:
    // An RGB picture; an ImageJ stack of 2 channels x 3 slices; the same as an OME-TIFF of 16
    // bits with named channels, slices changing fastest; a mask; a label image of four cells;
    // a grey picture of 16 bits; a mask of the wrong size; a file that is not there.
    static constexpr int kCount = 8;
    std::string path(int k) const {
        static constexpr const char* kNames[kCount] = {"picture.tif", "stack.tif",  "ome.tif",
                                                       "mask.tif",    "labels.tif", "grey16.tif",
                                                       "small.tif",   "missing.tif"};
        return dir_ + "/" + kNames[k];
    }
    std::string dir_;
};

// The first and last few slices as --slices all takes them, each on its own: enough to reach
// the deep pages of a long stack while one input stays quick.
constexpr int kEndSlices = 16;

void followEachSlice(const cli::Options& o, const std::string& image) {
    const Result<StackLayout> layout = readStackLayout(image);
    if (!layout || !cli::slicesJustified(*layout, image)) {
        return;
    }
    std::set<int> slices;
    for (int k = 1; k <= std::min(layout->slices, kEndSlices); ++k) {
        slices.insert(k);
        slices.insert(layout->slices + 1 - k);
    }
    for (int slice : slices) {
        cli::Options one = o;
        one.allSlices = false;
        one.slice = slice;
        follow(one, image);
    }
}

// The user's count of shuffles is not the file's to drive: a few show every branch.
constexpr int kMostShuffles = 20;

}  // namespace

int cliOptions(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> args(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            args.emplace_back();
        } else {
            args.back() += char(data[i]);
        }
    }
    const cli::ParseResult parsed = cli::parseOptions(args);
    if (!parsed.error.empty() || parsed.options.help || parsed.options.version) {
        return 0;
    }
    static const OptionFiles files;
    cli::Options o = parsed.options;
    o.measures.shuffles = std::min(o.measures.shuffles, kMostShuffles);
    for (auto* name : {&o.yFile, &o.xFile, &o.mask, &o.labels}) {
        if (*name) {
            *name = files(**name);
        }
    }
    // Two channel files take the place of the images; of several images, the first few.
    std::vector<std::string> images;
    for (std::size_t k = 0; k < (o.yFile ? 1 : std::min<std::size_t>(o.images.size(), 3)); ++k) {
        images.push_back(o.yFile ? std::string() : files(o.images[k]));
    }
    for (const std::string& image : images) {
        if (o.allSlices) {
            followEachSlice(o, image);
        } else {
            follow(o, image);
        }
    }
    return 0;
}

namespace {

// Every measure, with few shuffles: the cost of a shuffle is what a file can drive, their
// count is the user's.
cli::Options measureOptions() {
    cli::Options o = wholeRoadOptions();
    o.measures = MeasureRequest{.spearman = true,
                                .kendall = true,
                                .icq = true,
                                .costes = true,
                                .significance = true,
                                .shuffles = 3,
                                .psfSize = std::nullopt};
    return o;
}

}  // namespace

int furtherMeasures(const std::uint8_t* data, std::size_t size) {
    static const cli::Options options = measureOptions();
    const std::string& path = scratch(data, size);
    if (follow(options, path)) {
        cli::Options masked = options;
        masked.mask = path;
        follow(masked, path);
    }
    return 0;
}

int labelImage(const std::uint8_t* data, std::size_t size) {
    static const cli::Options options = measureOptions();
    const std::string& path = scratch(data, size);
    cli::Options o = options;
    o.labels = path;
    if (follow(o, path)) {
        return 0;
    }
    // A label image that is no picture (32 bits, say) labels a picture of its size.
    const Result<LabelImage> labels = readLabelImage(path);
    if (!labels) {
        return 0;
    }
    std::optional<Bitmap> b = Bitmap::create(labels->wide, labels->high, 3, false, false);
    if (!b) {
        return 0;
    }
    for (int y = 0; y < labels->high; ++y) {
        std::uint8_t* row = b->row(0, y);
        for (int i = 0; i < b->bytesPerRow(); ++i) {
            row[i] = std::uint8_t(i * 7 + y * 13);
        }
    }
    cli::BatchPort port;
    PixmeraVeltroController controller(port);
    cli::startController(controller, o, 1);
    controller.takePictureFromView(Picture::at72dpi(std::move(*b)), std::nullopt);
    analyse(controller, port, o);
    (void)controller.cellFields(*labels, path, true);
    return 0;
}

namespace {

// What a stack's description gave must fit the pages, counted without wrapping, and no channel
// may be named beyond the channels.
void checkLayout(const StackLayout& s) {
    const auto fits = [&](std::uint64_t n) { return n >= 1 && n <= s.pages; };
    const std::uint64_t c = std::uint64_t(s.channels), z = std::uint64_t(s.slices);
    if (s.channels < 1 || s.slices < 1 || s.frames < 1 || !fits(c * z) ||
        !fits(c * z * std::uint64_t(s.frames)) || s.channelNames.size() > c ||
        s.pageOf(s.channels - 1, s.slices - 1, s.frames - 1) >= s.pages) {
        std::fprintf(stderr, "pv-fuzz: a layout of %d x %d x %d in %u pages, %zu names\n",
                     s.channels, s.slices, s.frames, s.pages, s.channelNames.size());
        std::abort();
    }
}

}  // namespace

int stackFile(const std::uint8_t* data, std::size_t size) {
    furtherMeasures(data, size);
    labelImage(data, size);
    const std::string& path = scratch(data, size);
    const Result<StackLayout> layout = readStackLayout(path);
    if (!layout) {
        return 0;
    }
    checkLayout(*layout);
    // The first two channels, the first by the name the file gives it, if any; a stack of one
    // channel pairs it with itself.
    const bool named = !layout->channelNames.empty() && !layout->channelNames[0].empty();
    const std::string y = named ? layout->channelNames[0] : "1";
    const std::string x = layout->channels > 1 ? "2" : "1";
    // The first page is the mask, as the mask reader reads it.
    static const cli::Options options = measureOptions();
    cli::Options pooled = options;
    pooled.mask = path;
    pooled.yChannel = y;
    pooled.xChannel = x;
    pooled.stack = true;
    pooled.frame = layout->frames;
    follow(pooled, path);
    // Slice by slice and as channel files, a picture is measured and its region drawn as
    // furtherMeasures does; what is new is each page against the mask and the labels.
    cli::Options slices;
    slices.mask = slices.labels = path;
    slices.yChannel = y;
    slices.xChannel = x;
    followEachSlice(slices, path);
    // The file as both channel files, grey, then a colour channel of each.
    cli::Options channels;
    channels.mask = channels.yFile = channels.xFile = path;
    follow(channels, path);
    channels.yChannel = "1";
    channels.xChannel = "2";
    follow(channels, path);
    return 0;
}

Harness harnessNamed(std::string_view name) {
    struct Named {
        std::string_view name;
        Harness harness;
    };
    static constexpr Named kHarnesses[] = {
        {"whole-road", wholeRoad},     {"tiff", tiffDecoder},  {"jpeg", jpegDecoder},
        {"png", pngDecoder},           {"bmp", bmpDecoder},    {"cli", cliOptions},
        {"measures", furtherMeasures}, {"labels", labelImage}, {"stack", stackFile}};
    for (const Named& h : kHarnesses) {
        if (h.name == name) {
            return h.harness;
        }
    }
    return nullptr;
}

}  // namespace pv::fuzz
