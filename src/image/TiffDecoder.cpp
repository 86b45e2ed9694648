#include <fcntl.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <unordered_set>
#include <vector>

#include "core/ParallelRows.h"
#include "image/DecoderSupport.h"

namespace pv::decode {

namespace {

// What libtiff said while reading. It must not print: the user gets our words.
struct TiffNews {
    bool readingPixels = false;
    bool guessed = false;  // it carried on over missing or undecodable data
    bool noMemory = false;
};

bool mentionsMemory(const char* fmt, va_list args) {
    char text[512];
    std::vsnprintf(text, sizeof text, fmt, args);
    for (const char* word : {"memory", "Memory", "allocate", "No space"}) {
        if (std::strstr(text, word)) {
            return true;
        }
    }
    return false;
}

int tiffError(TIFF*, void* news, const char*, const char* fmt, va_list args) {
    static_cast<TiffNews*>(news)->noMemory |= mentionsMemory(fmt, args);
    return 1;
}

// A warning while pixels are read means the library patched something up (the JPEG codec,
// for one, fills a cut-off strip with grey); a warning about tags while opening does not.
int tiffWarning(TIFF*, void* news, const char*, const char*, va_list) {
    auto* n = static_cast<TiffNews*>(news);
    n->guessed |= n->readingPixels;
    return 1;
}

// A number of `bytes` bytes as the file stores it.
std::uint64_t fileNumber(const std::uint8_t* p, std::size_t bytes, bool little) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        v |= std::uint64_t(p[little ? i : bytes - 1 - i]) << (8 * i);
    }
    return v;
}

// What the first bytes of a TIFF file say about how to read the rest.
struct TiffHeader {
    bool little = true;
    bool big = false;  // BigTIFF: 64-bit offsets and counts
    std::uint64_t firstDirectory = 0;

    std::uint64_t bytes() const { return big ? 16 : 8; }
    std::uint64_t countBytes() const { return big ? 8 : 2; }
    std::uint64_t entryBytes() const { return big ? 20 : 12; }
    std::uint64_t offsetBytes() const { return big ? 8 : 4; }
};

// Nothing when the bytes are no TIFF header or too few.
std::optional<TiffHeader> tiffHeader(const std::uint8_t* h, std::size_t got) {
    const bool little = got >= 4 && h[0] == 'I' && h[1] == 'I';
    if (got < 4 || (!little && !(h[0] == 'M' && h[1] == 'M'))) {
        return std::nullopt;
    }
    const std::uint64_t version = fileNumber(h + 2, 2, little);
    const bool big = version == 43;
    if ((version != 42 && !big) || got < (big ? 16u : 8u)) {
        return std::nullopt;
    }
    return TiffHeader{little, big,
                      big ? fileNumber(h + 8, 8, little) : fileNumber(h + 4, 4, little)};
}

bool readAt(int fd, std::uint64_t at, std::uint8_t* into, std::size_t n) {
    for (std::size_t done = 0; done < n;) {
        const ssize_t got = pread(fd, into + done, n - done, off_t(at + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return false;
        }
        done += std::size_t(got);
    }
    return true;
}

// Why libtiff refused to open a file: a first directory that lies past the end means the file
// was cut short, anything else is damage.
const char* whyTiffDoesNotOpen(const std::string& path, std::uint64_t fileSize) {
    std::ifstream in(path, std::ios::binary);
    std::uint8_t h[16] = {};
    in.read(reinterpret_cast<char*>(h), sizeof h);
    const auto header = tiffHeader(h, std::size_t(in.gcount()));
    if (!header) {
        return kTruncated;
    }
    const std::uint64_t dir = header->firstDirectory;
    const std::uint64_t countSize = header->countBytes();
    if (dir > fileSize || fileSize - dir < countSize) {
        return kTruncated;
    }
    std::uint8_t c[8] = {};
    in.clear();
    in.seekg(std::streamoff(dir));
    in.read(reinterpret_cast<char*>(c), std::streamsize(countSize));
    const std::uint64_t entries = fileNumber(c, countSize, header->little);
    if (entries > (fileSize - dir - countSize) / header->entryBytes()) {
        return kTruncated;
    }
    return kDamaged;
}

enum class Colour { Grey, Palette, RGB };

// Everything needed to turn rows of the file into rows of the bitmap.
struct TiffLayout {
    std::uint32_t wide = 0, high = 0;
    int bits = 8;
    int samples = 1;     // samples per pixel in the file
    int colours = 1;     // colour samples among them
    bool alpha = false;  // the first extra sample is kept as alpha
    bool planar = false;
    bool minIsWhite = false;
    Colour colour = Colour::Grey;
    std::array<std::array<std::uint8_t, 256>, 3> lut{};  // grey/palette levels of <= 8 bits
    Scale16 scale;
    std::vector<std::uint8_t> lut16;  // 16-bit colour samples, through scale
    std::uint64_t directory = 0;      // of the page being read; 0: the file's first
};

std::uint32_t sampleAt(const std::uint8_t* row, std::size_t index, int bits) {
    switch (bits) {
        case 8:
            return row[index];
        case 16: {
            std::uint16_t v;  // libtiff has already put it in host byte order
            std::memcpy(&v, row + 2 * index, 2);
            return v;
        }
        case 32: {
            std::uint32_t v;
            std::memcpy(&v, row + 4 * index, 4);
            return v;
        }
        default: {
            const std::size_t bit = index * std::size_t(bits);
            const int shift = 8 - bits - int(bit & 7);
            return (std::uint32_t(row[bit >> 3]) >> shift) & ((1u << bits) - 1);
        }
    }
}

std::uint32_t colourSampleAt(const TiffLayout& t, const std::uint8_t* row, std::size_t index) {
    const std::uint32_t v = sampleAt(row, index, t.bits);
    return t.bits == 16 && t.minIsWhite ? 65535 - v : v;
}

std::uint8_t alphaTo8(const TiffLayout& t, std::uint32_t v) {
    return t.bits == 16 ? alpha16to8(v) : stretchTo8(v, t.bits);
}

// Grey and palette levels through the tables, 16-bit colours through the common factor.
std::uint8_t levelTo8(const TiffLayout& t, std::uint32_t v, int channel) {
    if (t.bits == 16) {
        return t.lut16[v];
    }
    return t.colour == Colour::RGB ? std::uint8_t(v) : t.lut[std::size_t(channel)][v];
}

// A run of n pixels of one file row, starting at column x0. plane is the file's sample plane
// for planar data, 0 otherwise.
struct RowRun {
    const std::uint8_t* data;
    int plane;
    std::uint32_t y, x0, n;
};

// A run of 16-bit colour samples with nothing between them (a plane of colour, or pixels of
// only colour samples), as the plain loops below read them; 0 when the run is not one.
std::size_t plainSixteenBitRun(const TiffLayout& t, const RowRun& run) {
    if (t.bits != 16 || t.minIsWhite || t.colour != Colour::RGB) {
        return 0;
    }
    if (t.planar) {
        return run.plane < t.colours ? run.n : 0;
    }
    return t.samples == t.colours ? std::size_t(run.n) * std::size_t(t.samples) : 0;
}

void findMaximum(const TiffLayout& t, const RowRun& run, std::uint32_t& max) {
    if (const std::size_t n = plainSixteenBitRun(t, run)) {
        // Every 16-bit file's samples pass here once, so the loop is kept plain enough to be
        // vectorised.
        std::uint16_t top = 0;
        for (std::size_t i = 0; i < n; ++i) {
            std::uint16_t v;
            std::memcpy(&v, run.data + 2 * i, 2);
            top = std::max(top, v);
        }
        max = std::max<std::uint32_t>(max, top);
        return;
    }
    if (t.planar) {
        if (run.plane < t.colours) {
            for (std::uint32_t i = 0; i < run.n; ++i) {
                max = std::max(max, colourSampleAt(t, run.data, i));
            }
        }
        return;
    }
    for (std::uint32_t i = 0; i < run.n; ++i) {
        for (int c = 0; c < t.colours; ++c) {
            max = std::max(max, colourSampleAt(t, run.data, std::size_t(i) * t.samples + c));
        }
    }
}

void writeRun(const TiffLayout& t, const RowRun& run, Bitmap& out) {
    if (const std::size_t n = plainSixteenBitRun(t, run);
        n != 0 && (t.planar || out.samplesPerPixel() == t.samples)) {
        std::uint8_t* dst = t.planar ? out.row(run.plane, int(run.y)) + run.x0
                                     : out.row(0, int(run.y)) + std::size_t(run.x0) * t.samples;
        for (std::size_t i = 0; i < n; ++i) {
            std::uint16_t v;
            std::memcpy(&v, run.data + 2 * i, 2);
            dst[i] = t.lut16[v];
        }
        return;
    }
    if (t.planar) {
        const std::size_t x0 = run.x0;
        if (run.plane < t.colours) {
            for (int k = 0; k < 3; ++k) {
                if (t.colour == Colour::RGB && k != run.plane) {
                    continue;
                }
                std::uint8_t* dst = out.row(k, int(run.y)) + x0;
                for (std::uint32_t i = 0; i < run.n; ++i) {
                    dst[i] = levelTo8(t, colourSampleAt(t, run.data, i), k);
                }
            }
        } else if (t.alpha && run.plane == t.colours) {
            std::uint8_t* dst = out.row(3, int(run.y)) + x0;
            for (std::uint32_t i = 0; i < run.n; ++i) {
                dst[i] = alphaTo8(t, sampleAt(run.data, i, t.bits));
            }
        }
        return;
    }
    const int outSamples = out.samplesPerPixel();
    std::uint8_t* dst = out.row(0, int(run.y)) + std::size_t(run.x0) * std::size_t(outSamples);
    if (t.bits == 8 && t.colour == Colour::RGB && t.samples == outSamples) {
        std::memcpy(dst, run.data, std::size_t(run.n) * std::size_t(outSamples));
        return;
    }
    const int colourSamples = std::min(outSamples, 3);  // a grey bitmap may keep just one
    for (std::uint32_t i = 0; i < run.n; ++i, dst += outSamples) {
        const std::size_t first = std::size_t(i) * std::size_t(t.samples);
        for (int k = 0; k < colourSamples; ++k) {
            const int from = t.colour == Colour::RGB ? k : 0;
            dst[k] = levelTo8(t, colourSampleAt(t, run.data, first + std::size_t(from)), k);
        }
        if (t.alpha) {
            dst[3] = alphaTo8(t, sampleAt(run.data, first + std::size_t(t.colours), t.bits));
        }
    }
}

// One strip or tile of the first picture, and where its pixels belong.
struct Block {
    std::uint32_t index;  // strip or tile number
    int plane;            // the file's sample plane (planar data), else 0
    std::uint32_t y0, x0, rows, cols;
};

struct Blocks {
    bool tiled = false;
    std::uint64_t rowBytes = 0;  // of one decoded row of a block
    std::uint64_t biggest = 0;   // bytes of the largest decoded block
    std::vector<Block> list;     // in file order
};

// The blocks of every plane that becomes part of the bitmap: further extra samples of a
// planar file are never decoded.
const char* blocksOf(TIFF* tif, const TiffLayout& t, Blocks& b) {
    const int planes = t.planar ? std::min(t.samples, t.colours + (t.alpha ? 1 : 0)) : 1;
    const auto leastRow = [&](std::uint32_t pixels) {
        const std::uint64_t samples = t.planar ? 1 : std::uint64_t(t.samples);
        return (std::uint64_t(pixels) * samples * std::uint64_t(t.bits) + 7) / 8;
    };
    b.tiled = TIFFIsTiled(tif);
    if (b.tiled) {
        std::uint32_t tw = 0, th = 0;
        TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tw);
        TIFFGetField(tif, TIFFTAG_TILELENGTH, &th);
        b.rowBytes = TIFFTileRowSize64(tif);
        b.biggest = TIFFTileSize64(tif);
        if (tw == 0 || th == 0 || b.biggest == 0 || b.rowBytes * th > b.biggest ||
            b.rowBytes < leastRow(tw)) {
            return kDamaged;
        }
        for (int p = 0; p < planes; ++p) {
            for (std::uint32_t ty = 0; ty < t.high; ty += th) {
                for (std::uint32_t tx = 0; tx < t.wide; tx += tw) {
                    b.list.push_back({TIFFComputeTile(tif, tx, ty, 0, std::uint16_t(p)), p, ty, tx,
                                      std::min(th, t.high - ty), std::min(tw, t.wide - tx)});
                }
            }
        }
        return nullptr;
    }
    std::uint32_t rowsPerStrip = 0;
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    rowsPerStrip = std::max<std::uint32_t>(1, std::min(rowsPerStrip, t.high));
    b.rowBytes = TIFFScanlineSize64(tif);
    b.biggest = TIFFVStripSize64(tif, rowsPerStrip);
    if (b.rowBytes < leastRow(t.wide) || b.biggest < b.rowBytes * rowsPerStrip) {
        return kDamaged;
    }
    for (int p = 0; p < planes; ++p) {
        for (std::uint32_t y = 0; y < t.high; y += rowsPerStrip) {
            b.list.push_back({TIFFComputeStrip(tif, y, std::uint16_t(p)), p, y, 0,
                              std::min(rowsPerStrip, t.high - y), t.wide});
        }
    }
    return nullptr;
}

struct TiffCloser {
    void operator()(TIFF* t) const { TIFFClose(t); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffCloser>;

// The file as libtiff reads it, through a descriptor of our own. For a page other than the
// first, libtiff is shown a header whose first directory is that page's: libtiff 4.5 reaches
// any other page only by walking the chain of pages from the first (TIFFSetSubDirectory too,
// to number it), so reading each page of a stack in turn cost time quadratic in its pages.
struct TiffFile {
    int fd = -1;
    std::uint64_t size = 0;
    std::uint64_t position = 0;
    std::array<std::uint8_t, 16> header{};
    std::size_t headerBytes = 0;  // read into header
    std::size_t shownBytes = 0;   // of header, shown to libtiff instead of the file's own

    ~TiffFile() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

tmsize_t tiffFileRead(thandle_t handle, void* into, tmsize_t n) {
    auto* f = static_cast<TiffFile*>(handle);
    auto* bytes = static_cast<std::uint8_t*>(into);
    std::size_t done = 0;
    while (n > 0 && done < std::size_t(n)) {
        const ssize_t got =
            pread(f->fd, bytes + done, std::size_t(n) - done, off_t(f->position + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        done += std::size_t(got);
    }
    for (std::uint64_t at = f->position; at < f->position + done && at < f->shownBytes; ++at) {
        bytes[at - f->position] = f->header[at];
    }
    f->position += done;
    return tmsize_t(done);
}
tmsize_t tiffFileWrite(thandle_t, void*, tmsize_t) {
    return -1;
}
toff_t tiffFileSeek(thandle_t handle, toff_t offset, int whence) {
    auto* f = static_cast<TiffFile*>(handle);
    f->position = whence == SEEK_CUR   ? f->position + offset
                  : whence == SEEK_END ? f->size + offset
                                       : offset;
    return f->position;
}
int tiffFileClose(thandle_t handle) {
    delete static_cast<TiffFile*>(handle);
    return 0;
}
toff_t tiffFileSize(thandle_t handle) {
    return static_cast<TiffFile*>(handle)->size;
}
// Never mapped: a mapping would count the whole file against memory while reading.
int tiffFileMap(thandle_t, void**, toff_t*) {
    return 0;
}
void tiffFileUnmap(thandle_t, void*, toff_t) {}

std::unique_ptr<TiffFile> openTiffFile(const std::string& path) {
    auto f = std::make_unique<TiffFile>();
    f->fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st {};
    if (f->fd < 0 || fstat(f->fd, &st) != 0) {
        return nullptr;
    }
    f->size = std::uint64_t(st.st_size);
    const ssize_t got = pread(f->fd, f->header.data(), f->header.size(), 0);
    f->headerBytes = got > 0 ? std::size_t(got) : 0;
    return f;
}

// The page whose directory lies at `directory` (0: the first page) as libtiff's first.
TiffHandle openTiff(const std::string& path, TiffNews& news, std::uint64_t directory = 0) {
    std::unique_ptr<TiffFile> file = openTiffFile(path);
    if (!file) {
        return nullptr;
    }
    if (directory != 0) {
        const auto header = tiffHeader(file->header.data(), file->headerBytes);
        if (!header || (!header->big && directory > 0xffffffffu)) {
            return nullptr;
        }
        const std::size_t at = header->big ? 8 : 4, bytes = header->offsetBytes();
        for (std::size_t i = 0; i < bytes; ++i) {
            file->header[at + (header->little ? i : bytes - 1 - i)] =
                std::uint8_t(directory >> (8 * i));
        }
        file->shownBytes = at + bytes;
    }
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options) {
        news.noMemory = true;
        return nullptr;
    }
    TIFFOpenOptionsSetErrorHandlerExtR(options, tiffError, &news);
    TIFFOpenOptionsSetWarningHandlerExtR(options, tiffWarning, &news);
    TiffHandle tif(TIFFClientOpenExt(path.c_str(), "rm", file.get(), tiffFileRead, tiffFileWrite,
                                     tiffFileSeek, tiffFileClose, tiffFileSize, tiffFileMap,
                                     tiffFileUnmap, options));
    TIFFOpenOptionsFree(options);
    if (tif) {
        // The page's directory is read: from now on libtiff reads the file's own bytes, as the
        // data read in one go straight from the descriptor does (a strip may start in the
        // header). libtiff closes the file from now on.
        file->shownBytes = 0;
        TIFFSetFileno(tif.get(), file.release()->fd);
    }
    return tif;
}

// The directory of every page, from one walk along the chain. A directory must lie whole in
// the file, and a chain that comes back on itself ends there, as libtiff counts pages; a chain
// whose directories together would take more bytes than the file has (they overlap: 6 bytes
// could otherwise make a page) is refused, so the count is bounded by the file's size.
Result<PageIndex> walkPages(const std::string& path) {
    auto pages = std::make_shared<std::vector<std::uint64_t>>();
    std::unique_ptr<TiffFile> file = openTiffFile(path);
    const auto header = file ? tiffHeader(file->header.data(), file->headerBytes) : std::nullopt;
    if (!header) {
        return PageIndex(pages);  // libtiff then says what is wrong with it
    }
    const std::uint64_t size = file->size, countBytes = header->countBytes();
    std::unordered_set<std::uint64_t> seen;
    std::uint64_t used = header->bytes();
    for (std::uint64_t at = header->firstDirectory; at != 0 && seen.insert(at).second;) {
        std::uint8_t b[8] = {};
        if (at > size || size - at < countBytes + header->offsetBytes() ||
            !readAt(file->fd, at, b, countBytes)) {
            break;
        }
        const std::uint64_t entries = fileNumber(b, countBytes, header->little);
        const std::uint64_t room = size - at - countBytes - header->offsetBytes();
        if (entries > room / header->entryBytes()) {
            break;
        }
        const std::uint64_t next = at + countBytes + entries * header->entryBytes();
        used += next + header->offsetBytes() - at;
        if (used > size || pages->size() == std::numeric_limits<std::uint32_t>::max()) {
            return failure(
                "the file is damaged: the directories of its first %1 pages would take more "
                "than its %2 bytes",
                {std::to_string(pages->size() + 1), std::to_string(size)});
        }
        pages->push_back(at);
        if (!readAt(file->fd, next, b, header->offsetBytes())) {
            break;
        }
        at = fileNumber(b, header->offsetBytes(), header->little);
    }
    return PageIndex(pages);
}

// labels: the samples are whole numbers to be read as they are, grey of up to 32 bits.
Result<TiffLayout> describe(TIFF* tif, bool labels = false);

// Decodes every block into place, on several cores when the data is compressed (each worker
// with its own handle on the file, reading a contiguous run of blocks). sink.direct(block)
// answers where a strip's decoded bytes can go as they are, rows rowBytes apart, or nullptr;
// sink.rows(run, worker) then takes every decoded row, wherever it was decoded. A strip too
// large to buffer whole is read row by row instead.
// Uncompressed strips that follow one another both in the file and where they go are read in
// one read instead of one each: a small file of a batch otherwise costs hundreds of system
// calls. Nothing when the strips are not so (the caller reads them one by one), else whether
// it failed.
template <class Sink>
std::optional<const char*> readInOneGo(TIFF* tif, const TiffLayout& t, const Blocks& b,
                                       Sink& sink) {
    std::uint16_t compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
    if (b.tiled || b.list.empty() || compression != COMPRESSION_NONE || t.bits < 8 ||
        (t.bits > 8 && TIFFIsByteSwapped(tif))) {
        return std::nullopt;
    }
    std::uint8_t* const start = sink.direct(b.list.front());
    const std::uint64_t from = TIFFGetStrileOffset(tif, b.list.front().index);
    std::uint64_t bytes = 0;
    for (const Block& block : b.list) {
        const std::uint64_t want = std::uint64_t(TIFFVStripSize64(tif, block.rows));
        if (!start || sink.direct(block) != start + bytes ||
            TIFFGetStrileOffset(tif, block.index) != from + bytes ||
            TIFFGetStrileByteCount(tif, block.index) != want) {
            return std::nullopt;
        }
        bytes += want;
    }
    for (std::uint64_t done = 0; done < bytes;) {
        const ssize_t got =
            pread(TIFFFileno(tif), start + done, std::size_t(bytes - done), off_t(from + done));
        if (got <= 0) {
            return got == 0 ? kTruncated : kDamaged;
        }
        done += std::uint64_t(got);
    }
    for (const Block& block : b.list) {
        std::uint8_t* rows = sink.direct(block);
        for (std::uint32_t r = 0; r < block.rows; ++r) {
            sink.rows(RowRun{rows + r * b.rowBytes, block.plane, block.y0 + r, 0, t.wide}, 0);
        }
    }
    return nullptr;
}

template <class Sink>
const char* decodeBlocks(TIFF* first, const std::string& path, const TiffLayout& t, const Blocks& b,
                         unsigned workers, TiffNews& news, Sink& sink) {
    if (const auto read = readInOneGo(first, t, b, sink)) {
        return *read;
    }
    constexpr std::uint64_t kLargestBuffer = std::uint64_t(16) << 20;
    bool rowByRow = false;
    if (!b.tiled && b.biggest > kLargestBuffer) {
        for (const Block& block : b.list) {
            rowByRow = rowByRow || !sink.direct(block);
        }
    }
    if (rowByRow) {
        std::unique_ptr<std::uint8_t[]> line(new (std::nothrow)
                                                 std::uint8_t[std::size_t(b.rowBytes)]);
        if (!line) {
            return kNoMemory;
        }
        for (const Block& block : b.list) {
            for (std::uint32_t y = block.y0; y < block.y0 + block.rows; ++y) {
                if (TIFFReadScanline(first, line.get(), y, std::uint16_t(block.plane)) < 0) {
                    return kDamaged;
                }
                sink.rows(RowRun{line.get(), block.plane, y, 0, t.wide}, 0);
            }
        }
        return nullptr;
    }
    // Each worker touches only its own slot.
    std::vector<TiffNews> workerNews(workers);
    std::vector<TiffHandle> handles(workers);
    std::vector<std::unique_ptr<std::uint8_t[]>> buffers(workers);
    std::vector<const char*> failures(workers, nullptr);
    std::atomic<bool> failed{false};
    forEachRowBlock(
        std::int64_t(b.list.size()), workers,
        [&](unsigned w, std::int64_t begin, std::int64_t end) {
            const auto fail = [&](const char* why) {
                failures[w] = why;
                failed = true;
            };
            // Worker 0 reads with the caller's handle; each other one opens its own once.
            TIFF* tif = first;
            if (w > 0) {
                if (!handles[w]) {
                    handles[w] = openTiff(path, workerNews[w], t.directory);
                    if (!handles[w] || !describe(handles[w].get())) {
                        handles[w].reset();
                        return fail(kDamaged);
                    }
                    // As for the caller's handle, only warnings about pixels count.
                    workerNews[w].readingPixels = true;
                }
                tif = handles[w].get();
            }
            std::unique_ptr<std::uint8_t[]>& buffer = buffers[w];
            for (std::int64_t i = begin; i < end; ++i) {
                const Block& block = b.list[std::size_t(i)];
                std::uint8_t* target = b.tiled ? nullptr : sink.direct(block);
                const std::uint64_t want = b.tiled ? b.biggest : TIFFVStripSize64(tif, block.rows);
                if (!target) {
                    if (!buffer) {
                        buffer.reset(new (std::nothrow) std::uint8_t[std::size_t(b.biggest)]);
                    }
                    if (!buffer) {
                        return fail(kNoMemory);
                    }
                    target = buffer.get();
                }
                const tmsize_t got =
                    b.tiled ? TIFFReadEncodedTile(tif, block.index, target, tmsize_t(want))
                            : TIFFReadEncodedStrip(tif, block.index, target, tmsize_t(want));
                if (got < 0 || std::uint64_t(got) != want) {
                    return fail(kDamaged);
                }
                for (std::uint32_t r = 0; r < block.rows; ++r) {
                    sink.rows(RowRun{target + r * b.rowBytes, block.plane, block.y0 + r, block.x0,
                                     block.cols},
                              w);
                }
            }
        },
        [&] { return failed.load(std::memory_order_relaxed); });
    for (unsigned w = 1; w < workers; ++w) {
        news.guessed |= workerNews[w].guessed;
        news.noMemory |= workerNews[w].noMemory;
    }
    for (const char* why : failures) {
        if (why) {
            return why;
        }
    }
    return nullptr;
}

// The fewest bytes in which a compression can code a block of raw bytes (pixels, rows of
// the picture); 0 where the format gives no useful bound.
std::uint64_t leastCodedBytes(std::uint16_t compression, std::uint64_t raw, std::uint64_t pixels,
                              std::uint64_t rows) {
    switch (compression) {
        case COMPRESSION_NONE:
            return raw;
        case COMPRESSION_ADOBE_DEFLATE:
        case COMPRESSION_DEFLATE:
            // A deflate match codes at most 258 bytes in at least 2 bits: about 1032 to 1.
            return raw / 1032;
        case COMPRESSION_LZW:
            // A code has at least 9 bits and stands for a string of at most 4096 bytes.
            return raw * 9 / (4096 * 8);
        case COMPRESSION_PACKBITS:
            // Two bytes repeat one byte at most 128 times.
            return raw / 64;
        case COMPRESSION_JPEG:
        case COMPRESSION_OJPEG:
            // At least one bit for each 8 x 8 block of the first colour component.
            return pixels / 64 / 8;
        case COMPRESSION_CCITTRLE:
        case COMPRESSION_CCITTRLEW:
        case COMPRESSION_CCITTFAX3:
        case COMPRESSION_CCITTFAX4:
            // A row as the one above takes one bit, however wide, so a few hundred bytes
            // can claim a blank page of a billion pixels. Only blank pages come near a bit a
            // row, so a row also counts a bit for each 1024 pixels.
            return std::max(rows, pixels / 1024) / 8;
        case COMPRESSION_ZSTD:
            // Each zstd block of at most 128 KB has a 3-byte header.
            return raw / (131072 / 3);
        case COMPRESSION_LZMA:
            // LZMA2 chunks hold at most 2 MB of output each, which keeps a run of one byte
            // near 6900 to 1; half that ratio leaves room.
            return raw / 16384;
        default:
            // WebP, JBIG, LERC and the rest can code a plain area of any size in a few bytes.
            // A bound far beyond what a picture with any detail reaches still stops a few
            // hundred bytes from claiming gigabytes.
            return raw / 65536;
    }
}

// Every strip or tile of the picture must be in the file and large enough for its pixels
// before memory is committed: libtiff would otherwise hand out a missing one as black, and a
// few bytes that promise a huge picture would cost gigabytes before failing.
std::optional<Error> checkStriles(TIFF* tif, const TiffLayout& t, std::uint64_t fileSize) {
    std::uint16_t compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
    const bool tiled = TIFFIsTiled(tif);
    const std::uint32_t count = tiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
    const std::uint32_t perPlane = t.planar ? count / std::uint32_t(t.samples) : count;
    const std::uint64_t bitsPerPixel =
        std::uint64_t(t.planar ? 1 : t.samples) * std::uint64_t(t.bits);
    std::uint32_t blockWide = t.wide, blockHigh = 0;
    if (tiled) {
        TIFFGetField(tif, TIFFTAG_TILEWIDTH, &blockWide);
        TIFFGetField(tif, TIFFTAG_TILELENGTH, &blockHigh);
    } else {
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &blockHigh);
        blockHigh = std::min(blockHigh, t.high);
    }
    if (perPlane == 0 || blockWide == 0 || blockHigh == 0) {
        return failure(kDamaged);
    }
    const std::uint64_t rowBytes = (std::uint64_t(blockWide) * bitsPerPixel + 7) / 8;
    std::uint64_t coded = 0, least = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint64_t offset = TIFFGetStrileOffset(tif, i);
        const std::uint64_t bytes = TIFFGetStrileByteCount(tif, i);
        if (offset == 0 || bytes == 0 || offset > fileSize || bytes > fileSize - offset) {
            return failure(kTruncated);
        }
        // Tiles are coded whole; the last strip only has the rows left.
        const std::uint32_t firstRow = tiled ? 0 : (i % perPlane) * blockHigh;
        const std::uint64_t rows =
            tiled ? blockHigh
                  : std::min<std::uint64_t>(blockHigh, t.high - std::min(firstRow, t.high));
        const std::uint64_t need =
            leastCodedBytes(compression, rows * rowBytes, rows * blockWide, rows);
        // A strip may be made slightly smaller by a lenient writer, so only the sum counts
        // except for raw data, which must be whole.
        if (compression == COMPRESSION_NONE && bytes < need) {
            return failure(kTruncated);
        }
        coded += bytes;
        least += need;
    }
    if (coded < least) {
        return tooSmallFor(t.wide, t.high);
    }
    return std::nullopt;
}

// Tiles larger than the picture are allowed (writers often use one size for every picture),
// but not so large that one tile needs more memory than the picture itself could.
bool plausibleTile(TIFF* tif, const TiffLayout& t) {
    if (!TIFFIsTiled(tif)) {
        return true;
    }
    std::uint32_t tw = 0, th = 0;
    TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tw);
    TIFFGetField(tif, TIFFTAG_TILELENGTH, &th);
    auto fits = [](std::uint32_t tile, std::uint32_t picture) {
        return std::uint64_t(tile) <=
               std::max<std::uint64_t>((std::uint64_t(picture) + 15) / 16 * 16, 1024);
    };
    return fits(tw, t.wide) && fits(th, t.high);
}

double tiffDPI(TIFF* tif, ttag_t tag, std::uint16_t unit) {
    float value = 0.0f;
    if (unit == RESUNIT_NONE || !TIFFGetField(tif, tag, &value)) {
        return 72.0;
    }
    return usableDPI(unit == RESUNIT_CENTIMETER ? double(value) * 2.54 : double(value));
}

Result<TiffLayout> describe(TIFF* tif, bool labels) {
    TiffLayout t;
    std::uint16_t spp = 1, bps = 1, planar = PLANARCONFIG_CONTIG, format = SAMPLEFORMAT_UINT;
    std::uint16_t photometric = 0, compression = COMPRESSION_NONE;
    if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &t.wide) ||
        !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &t.high)) {
        return failure(kDamaged);
    }
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
    if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric)) {
        photometric = spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    }
    if (format != SAMPLEFORMAT_UINT && format != SAMPLEFORMAT_VOID) {
        return failure("pictures with signed or floating-point samples are not supported");
    }
    t.bits = bps;
    t.samples = spp;
    t.planar = planar == PLANARCONFIG_SEPARATE;
    switch (photometric) {
        case PHOTOMETRIC_MINISWHITE:
        case PHOTOMETRIC_MINISBLACK:
            t.colour = Colour::Grey;
            t.minIsWhite = photometric == PHOTOMETRIC_MINISWHITE;
            break;
        case PHOTOMETRIC_PALETTE:
            t.colour = Colour::Palette;
            break;
        case PHOTOMETRIC_RGB:
            t.colour = Colour::RGB;
            break;
        case PHOTOMETRIC_YCBCR:
            if (compression != COMPRESSION_JPEG) {
                return failure(
                    "TIFF pictures in YCbCr colour are only supported with JPEG "
                    "compression");
            }
            // The JPEG codec then hands out RGB directly.
            TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
            t.colour = Colour::RGB;
            break;
        case PHOTOMETRIC_SEPARATED:
            return failure("CMYK pictures are not supported; save the picture as RGB");
        default:
            return failure(
                "the colour encoding of this TIFF picture is not supported (only "
                "grey, palette and RGB)");
    }
    t.colours = t.colour == Colour::RGB ? 3 : 1;
    const bool bitsOk =
        t.colour == Colour::RGB ? (bps == 8 || bps == 16)
        : t.colour == Colour::Grey
            ? (bps == 1 || bps == 2 || bps == 4 || bps == 8 || bps == 16 || (labels && bps == 32))
            : (bps == 1 || bps == 2 || bps == 4 || bps == 8);
    if (!bitsOk) {
        return failure("pictures with %1 bits per sample are not supported", {std::to_string(bps)});
    }
    if (spp < t.colours || spp > 16) {
        return failure(kDamaged);
    }
    // Data of more than 8 bits per sample only comes with 8 or 16 bits, so only the packed
    // small levels need tables.
    t.alpha = spp > t.colours;
    if (bps <= 8) {
        const std::uint32_t levels = 1u << bps;
        if (t.colour == Colour::Palette) {
            std::uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
            if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b) || !r || !g || !b) {
                return failure(kDamaged);
            }
            // Some writers store 8-bit entries although the format asks for 16 bits.
            bool eightBit = true;
            for (std::uint32_t i = 0; i < levels; ++i) {
                eightBit = eightBit && r[i] < 256 && g[i] < 256 && b[i] < 256;
            }
            const std::uint16_t* maps[3] = {r, g, b};
            for (std::size_t k = 0; k < 3; ++k) {
                for (std::uint32_t i = 0; i < levels; ++i) {
                    t.lut[k][i] = eightBit ? std::uint8_t(maps[k][i]) : alpha16to8(maps[k][i]);
                }
            }
        } else if (t.colour == Colour::Grey) {
            for (std::uint32_t i = 0; i < levels; ++i) {
                const std::uint8_t v = stretchTo8(i, bps);
                t.lut[0][i] = t.lut[1][i] = t.lut[2][i] = t.minIsWhite ? 255 - v : v;
            }
        }
    }
    return t;
}

// 8-bit (and packed smaller) samples go straight into the bitmap: decoded there as they are when
// the file's rows are the bitmap's, otherwise converted row by row.
struct EightBitSink {
    const TiffLayout& t;
    Bitmap& out;
    std::uint64_t rowBytes;

    std::uint8_t* direct(const Block& b) const {
        const bool rgb =
            t.colour == Colour::RGB && (t.planar || t.samples == out.samplesPerPixel());
        const bool grey = t.colour == Colour::Grey && !t.minIsWhite && out.samplesPerPixel() == 1;
        const bool same =
            t.bits == 8 && (rgb || grey) && rowBytes == std::uint64_t(out.bytesPerRow());
        return same ? out.row(t.planar ? b.plane : 0, int(b.y0)) : nullptr;
    }
    void rows(const RowRun& run, unsigned) const {
        const std::uint8_t* start = out.bitmapData();
        if (run.data < start || run.data >= start + out.totalBytes()) {
            writeRun(t, run, out);
        }
    }
};

// 16-bit samples are kept as the file has them until the brightest is known; each worker
// notes the brightest colour sample of what it decoded while it is still in the cache.
struct SixteenBitSink {
    const TiffLayout& t;
    std::uint8_t* data;
    std::uint64_t rowBytes;       // of the picture's rows in data
    std::uint64_t blockRowBytes;  // of the decoded blocks' rows
    std::vector<std::uint32_t> max;

    std::uint8_t* at(int plane, std::uint32_t y) const {
        return data + (std::uint64_t(plane) * t.high + y) * rowBytes;
    }
    std::uint8_t* direct(const Block& b) const {
        return blockRowBytes == rowBytes ? at(b.plane, b.y0) : nullptr;
    }
    void rows(const RowRun& run, unsigned worker) {
        const std::uint64_t pixelBytes = (t.planar ? 1u : std::uint64_t(t.samples)) * 2;
        std::uint8_t* dst = at(run.plane, run.y) + run.x0 * pixelBytes;
        if (run.data != dst) {
            std::memcpy(dst, run.data, std::size_t(run.n * pixelBytes));
        }
        findMaximum(t, RowRun{dst, run.plane, run.y, run.x0, run.n}, max[worker]);
    }
};

}  // namespace

// Whether the first picture can be held (at samplesPerPixel bytes a pixel) and its strips or
// tiles are all there and plausible, checked before any memory is committed to it; its blocks.
std::optional<Error> readable(TIFF* tif, const TiffLayout& t, std::uint64_t fileSize,
                              int samplesPerPixel, bool planar, Blocks& blocks) {
    if (auto error = unholdablePicture(t.wide, t.high, samplesPerPixel, planar)) {
        return error;
    }
    if (!plausibleTile(tif, t)) {
        return failure(kDamaged);
    }
    if (auto error = checkStriles(tif, t, fileSize)) {
        return error;
    }
    if (const char* why = blocksOf(tif, t, blocks)) {
        return failure(why);
    }
    return std::nullopt;
}

// Label samples go into the label image as they are.
struct LabelSink {
    const TiffLayout& t;
    std::uint16_t* labels;
    std::uint64_t rowBytes;
    std::uint32_t* most;  // the highest label read, checked before it is cut to 16 bits

    std::uint8_t* direct(const Block& b) const {
        const bool same = t.bits == 16 && rowBytes == std::uint64_t(t.wide) * 2;
        return same ? reinterpret_cast<std::uint8_t*>(labels + std::size_t(b.y0) * t.wide)
                    : nullptr;
    }
    void rows(const RowRun& run, unsigned) const {
        std::uint16_t* dst = labels + std::size_t(run.y) * t.wide + run.x0;
        if (reinterpret_cast<const std::uint8_t*>(dst) != run.data) {
            for (std::uint32_t i = 0; i < run.n; ++i) {
                const std::uint32_t label = sampleAt(run.data, i, t.bits);
                *most = std::max(*most, label);
                dst[i] = std::uint16_t(label);
            }
        }
    }
};

Result<LabelImage> decodeTiffLabels(const std::string& path, std::uint64_t fileSize,
                                    const SizeCheck& sizeCheck) {
    TiffNews news;
    TiffHandle tif = openTiff(path, news);
    if (!tif) {
        return failure(news.noMemory ? kNoMemory : whyTiffDoesNotOpen(path, fileSize));
    }
    auto layout = describe(tif.get(), true);
    if (!layout) {
        return layout.error();
    }
    const TiffLayout& t = layout.value();
    if (auto refused = refusedSize(sizeCheck, t.wide, t.high)) {
        return *refused;
    }
    if (t.colour == Colour::RGB || t.samples != 1) {
        return failure(kNotLabels);
    }
    Blocks blocks;
    if (auto error = readable(tif.get(), t, fileSize, 2, false, blocks)) {
        return *error;
    }
    LabelImage out;
    out.wide = int(t.wide);
    out.high = int(t.high);
    try {
        out.labels.resize(std::size_t(t.wide) * t.high);
    } catch (const std::bad_alloc&) {
        return failure(kNoMemory);
    }
    news.readingPixels = true;
    std::uint32_t most = 0;
    LabelSink sink{t, out.labels.data(), blocks.rowBytes, &most};
    if (const char* why = decodeBlocks(tif.get(), path, t, blocks, 1, news, sink)) {
        return failure(news.noMemory ? kNoMemory : why);
    }
    if (news.guessed) {
        return failure(kDamaged);
    }
    if (most > kMostLabels) {
        return failure("the label image holds label %1; at most %2 cells can be analysed",
                       {std::to_string(most), std::to_string(kMostLabels)});
    }
    return out;
}

Result<Picture> decodeTiff(const std::string& path, std::uint64_t fileSize,
                           const ReadOptions& reading) {
    PageIndex index = reading.pageIndex;
    if (!index) {
        Result<PageIndex> walked = walkPages(path);
        if (!walked) {
            return walked.error();
        }
        index = walked.value();
    }
    const std::uint32_t pages = std::max<std::uint32_t>(1, std::uint32_t(index->size()));
    if (reading.page >= pages) {
        return failure("the file has %1 pages, and no page %2",
                       {std::to_string(pages), std::to_string(reading.page + 1)});
    }
    const std::uint64_t directory = reading.page > 0 ? (*index)[reading.page] : 0;
    TiffNews news;  // outlives the handle, which may still report while closing
    TiffHandle tif = openTiff(path, news, directory);
    if (!tif) {
        // A page found by the walk lies whole in the file: it cannot be read because it is
        // damaged (libtiff words an empty one as memory it could not allocate).
        return failure(directory       ? kDamaged
                       : news.noMemory ? kNoMemory
                                       : whyTiffDoesNotOpen(path, fileSize));
    }
    auto layout = describe(tif.get());
    if (!layout) {
        return layout.error();
    }
    TiffLayout& t = layout.value();
    t.directory = directory;
    if (auto refused = refusedSize(reading.sizeCheck, t.wide, t.high)) {
        return *refused;
    }
    const bool planar = t.planar && t.samples > 1;
    t.planar = planar;
    const bool oneSample = reading.keepGrey && t.colour == Colour::Grey && !t.alpha;
    const int outSamples = oneSample ? 1 : t.alpha ? 4 : 3;
    Blocks blocks;
    if (auto error = readable(tif.get(), t, fileSize, outSamples, planar, blocks)) {
        return *error;
    }
    news.readingPixels = true;
    const auto readFailure = [&](const char* why) {
        return failure(news.noMemory ? kNoMemory : why);
    };
    // Uncompressed data is read as fast as the disk gives it; decoding is worth more cores.
    std::uint16_t compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_COMPRESSION, &compression);
    const unsigned workers =
        compression == COMPRESSION_NONE
            ? 1
            : std::min<unsigned>(workersFor(t.high, t.wide, reading.threads),
                                 unsigned(std::max<std::size_t>(1, blocks.list.size())));
    std::optional<Bitmap> out;
    if (t.bits == 16) {
        const std::uint64_t rowBytes = std::uint64_t(t.wide) * (planar ? 1 : t.samples) * 2;
        const std::uint64_t planes = planar ? std::uint64_t(t.samples) : 1;
        PixelBlock raw = PixelBlock::allocate(std::size_t(rowBytes * t.high * planes), false);
        if (!raw) {
            return failure(kNoMemory);
        }
        SixteenBitSink sink{t, raw.get(), rowBytes, blocks.rowBytes,
                            std::vector<std::uint32_t>(workers, 0)};
        if (const char* why = decodeBlocks(tif.get(), path, t, blocks, workers, news, sink)) {
            return readFailure(why);
        }
        Result<std::uint32_t> top =
            sixteenBitTop(*std::max_element(sink.max.begin(), sink.max.end()), reading);
        if (!top) {
            return top.error();
        }
        t.scale.max = top.value();
        t.lut16.resize(65536);
        for (std::uint32_t v = 0; v < 65536; ++v) {
            t.lut16[v] = t.scale(v);
        }
        auto bitmap = allocatePicture(t.wide, t.high, outSamples, t.alpha, planar);
        if (!bitmap) {
            return bitmap.error();
        }
        out = std::move(bitmap.value());
        const int usedPlanes = planar ? std::min(t.samples, outSamples) : 1;
        forEachRowBlock(t.high, workersFor(t.high, t.wide, reading.threads),
                        [&](unsigned, std::int64_t begin, std::int64_t end) {
                            for (int p = 0; p < usedPlanes; ++p) {
                                for (auto y = std::uint32_t(begin); y < std::uint32_t(end); ++y) {
                                    writeRun(t, RowRun{sink.at(p, y), p, y, 0, t.wide}, *out);
                                }
                                // The 16-bit rows are done with: the bitmap takes their memory
                                // as it fills, instead of adding to it.
                                pixel_memory::discard(sink.at(p, std::uint32_t(begin)),
                                                      std::size_t(end - begin) * rowBytes);
                            }
                        });
    } else {
        auto bitmap = allocatePicture(t.wide, t.high, outSamples, t.alpha, planar);
        if (!bitmap) {
            return bitmap.error();
        }
        out = std::move(bitmap.value());
        EightBitSink sink{t, *out, blocks.rowBytes};
        if (const char* why = decodeBlocks(tif.get(), path, t, blocks, workers, news, sink)) {
            return readFailure(why);
        }
    }
    if (news.guessed) {
        return failure(kDamaged);
    }
    std::uint16_t unit = RESUNIT_INCH;
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_RESOLUTIONUNIT, &unit);
    const double dpiX = tiffDPI(tif.get(), TIFFTAG_XRESOLUTION, unit);
    const double dpiY = tiffDPI(tif.get(), TIFFTAG_YRESOLUTION, unit);
    Picture picture = pictureAtResolution(std::move(*out), dpiX, dpiY);
    picture.pageCount = pages;
    picture.grey = t.colour == Colour::Grey;
    if (t.bits == 16) {
        picture.sixteenBitTop = t.scale.max;
    }
    return picture;
}

Result<TiffPages> readTiffPages(const std::string& path, std::uint64_t fileSize) {
    Result<PageIndex> index = walkPages(path);
    if (!index) {
        return index.error();
    }
    TiffNews news;
    TiffHandle tif = openTiff(path, news);
    if (!tif) {
        return failure(news.noMemory ? kNoMemory : whyTiffDoesNotOpen(path, fileSize));
    }
    const char* text = nullptr;
    std::string description =
        TIFFGetField(tif.get(), TIFFTAG_IMAGEDESCRIPTION, &text) && text ? text : "";
    return TiffPages{index.value(), std::move(description)};
}

}  // namespace pv::decode
