#include "Harnesses.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/CliOptions.h"
#include "cli/Gestures.h"
#include "controller/PixmeraVeltroController.h"
#include "image/DecoderSupport.h"
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
    const std::string& path = scratch(data, size);
    cli::BatchPort port;
    PixmeraVeltroController controller(port);
    // One thread: libFuzzer runs one input at a time and keeps to its core.
    cli::startController(controller, options, 1);
    if (controller.openImageFile(path)) {
        analyse(controller, port, options);
    }
    return 0;
}

// Label images take their own road through the decoders: what they read must be whole too.
void readLabels(const Result<LabelImage>& read) {
    if (read.ok() && read->labels.size() != std::size_t(read->wide) * std::size_t(read->high)) {
        std::fprintf(stderr, "pv-fuzz: a label image of the wrong size\n");
        std::abort();
    }
}

// Every TIFF is also read with its strips or tiles shared between two workers (each with its
// own handle), as large compressed files are, and as a grey picture of one sample a pixel, as
// a stack's pages are: the results must be those of the one plain reading.
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
    const Result<Picture> grey = decode::decodeTiff(path, size, ReadOptions{.keepGrey = true});
    if (plain.ok() && grey.ok() && grey->bitmap->samplesPerPixel() == 1) {
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
    static const Picture picture = smallPicture();
    cli::BatchPort port;
    PixmeraVeltroController controller(port);
    cli::startController(controller, parsed.options, 1);
    controller.takePictureFromView(picture, std::nullopt);
    analyse(controller, port, parsed.options);
    return 0;
}

Harness harnessNamed(std::string_view name) {
    struct Named {
        std::string_view name;
        Harness harness;
    };
    static constexpr Named kHarnesses[] = {{"whole-road", wholeRoad}, {"tiff", tiffDecoder},
                                           {"jpeg", jpegDecoder},     {"png", pngDecoder},
                                           {"bmp", bmpDecoder},       {"cli", cliOptions}};
    for (const Named& h : kHarnesses) {
        if (h.name == name) {
            return h.harness;
        }
    }
    return nullptr;
}

}  // namespace pv::fuzz
