#include "output/Export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "core/Localization.h"

namespace pv {

std::string buildReport(const ResultFields& f) {
    const std::string pixels =
        tr("Pixel Information\n\tImage ROI\tScatter Gram ROI\n\tCount\t%%\tCount\t%%\n"
           "%1\t%2\t%3\t%4\t%5\n%6\t%7\t%8\t%9\t%10\n%11\t%12\t%13\t%14\t%15\n"
           "Total:\t%16\t%17\t%18\t%19\n\n",
           {f.yAxisPixelColorText, f.yAxisPixelCountText, f.yAxisPixelPercentText,
            f.yAxisROIPixelCountText, f.yAxisROIPixelPercentText, f.xAxisPixelColorText,
            f.xAxisPixelCountText, f.xAxisPixelPercentText, f.xAxisROIPixelCountText,
            f.xAxisROIPixelPercentText, f.xyAxisPixelColorText, f.xyAxisPixelCountText,
            f.xyAxisPixelPercentText, f.xyAxisROIPixelCountText, f.xyAxisROIPixelPercentText,
            f.pixelCountTotal, f.pixelPercentTotal, f.pixelCountROITotal, f.pixelROIPercentTotal});
    const std::string image =
        tr("Coefficients Calculations - Current Image ROI\nRr\t%1\nR\t%2\nk1\t%3\nk2\t%4\nm1\t%5\n"
           "m2\t%6\n\n",
           {f.coefficient_Rr, f.coefficient_R, f.coefficient_k1, f.coefficient_k2, f.coefficient_m1,
            f.coefficient_m2});
    const std::string scatterGram =
        tr("Coefficients Calculations - Scatter Gram ROI\nM1\t%1\nM2\t%2\n\n",
           {f.coefficient_M1, f.coefficient_M2});
    std::string further;
    if (!f.furtherMeasures.empty()) {
        further = tr("Further Measures") + "\n";
        for (const ResultLine& line : f.furtherMeasures) {
            further += line.name + "\t" + line.value + "\n";
        }
        further += "\n";
    }
    return pixels + image + scatterGram + further;
}

std::string reportPath(const std::string& stem, ReportFormat format) {
    return stem + (format == ReportFormat::Spreadsheet ? ".xls" : ".txt");
}

namespace {

std::string reasonOf(int error) {
    return std::generic_category().message(error);
}

Error cannotWrite(const std::string& path, std::string reason) {
    return Error{.file = path, .reason = std::move(reason), .writing = true};
}

// Six characters for a temporary name; unique enough with O_EXCL and a retry.
std::string randomSuffix() {
    static std::atomic<std::uint64_t> counter{0};
    std::uint64_t x = std::uint64_t(std::chrono::steady_clock::now().time_since_epoch().count()) ^
                      (std::uint64_t(::getpid()) << 40) ^
                      (counter.fetch_add(1) * 0x9E3779B97F4A7C15ull);
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    x ^= x >> 31;
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    std::string s(6, ' ');
    for (char& c : s) {
        c = kAlphabet[x % 62];
        x /= 62;
    }
    return s;
}

// Writes the content into an open file; answers the reason of a failure.
using ContentWriter = std::function<std::optional<std::string>(int fd)>;

// A file written in full beside its target under a hidden temporary name, synced, waiting to
// be renamed into place (same file system, so the rename is atomic and a crash leaves either
// the old file or the complete new one).
struct PreparedFile {
    std::string path;
    std::string temporary;
};

Result<PreparedFile> prepareFile(const std::string& path, const ContentWriter& writeContent) {
    const std::size_t slash = path.rfind('/');
    const std::string folder =
        slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);

    // Created with 0666 so that the umask (and any default ACL) applies as to any new file.
    std::string temporary;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        temporary = folder + "." + name + "." + randomSuffix();
        fd = ::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) {
            return cannotWrite(path, reasonOf(errno));
        }
    }
    if (fd < 0) {
        return cannotWrite(path, reasonOf(EEXIST));
    }

    struct stat existing {};
    if (::stat(path.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) {
        ::fchmod(fd, existing.st_mode & 07777);  // a replaced file keeps its permissions
    }

    std::optional<std::string> failure = writeContent(fd);
    if (!failure && ::fsync(fd) != 0) {
        failure = reasonOf(errno);
    }
    if (::close(fd) != 0 && !failure) {
        failure = reasonOf(errno);
    }
    if (failure) {
        ::unlink(temporary.c_str());
        return cannotWrite(path, *failure);
    }
    return PreparedFile{path, temporary};
}

void discard(const PreparedFile& file) {
    ::unlink(file.temporary.c_str());
}

Status commit(const PreparedFile& file) {
    if (::rename(file.temporary.c_str(), file.path.c_str()) != 0) {
        const int error = errno;
        discard(file);
        return cannotWrite(file.path, reasonOf(error));
    }
    // Make the rename itself durable; a failure here cannot be undone and is not reported.
    const std::size_t slash = file.path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : file.path.substr(0, slash + 1);
    const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return Status::success();
}

// The one way this program replaces a file.
Status replaceFile(const std::string& path, const ContentWriter& writeContent) {
    Result<PreparedFile> prepared = prepareFile(path, writeContent);
    return prepared ? commit(prepared.value()) : Status(prepared.error());
}

bool writeAll(int fd, const void* data, std::size_t size) {
    const auto* p = static_cast<const std::uint8_t*>(data);
    while (size > 0) {
        const ssize_t n = ::write(fd, p, size);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        p += n;
        size -= std::size_t(n);
    }
    return true;
}

// Writes the bytes, which must outlive the writer.
ContentWriter bytesWriter(std::string_view bytes) {
    return [bytes](int fd) -> std::optional<std::string> {
        if (!writeAll(fd, bytes.data(), bytes.size())) {
            return reasonOf(errno);
        }
        return std::nullopt;
    };
}

}  // namespace

Status writeFileAtomically(const std::string& path, std::string_view bytes) {
    return replaceFile(path, bytesWriter(bytes));
}

namespace {

// libtiff talks to our file descriptor through these, so that the descriptor stays ours to
// sync and close, and so that the system's reason for a failed write is not lost.
struct TiffSink {
    int fd = -1;
    int writeErrno = 0;
    std::string libraryMessage;
};

TiffSink& sinkOf(thandle_t h) {
    return *static_cast<TiffSink*>(h);
}

tmsize_t tiffRead(thandle_t h, void* buffer, tmsize_t size) {
    return ::read(sinkOf(h).fd, buffer, std::size_t(size));
}

tmsize_t tiffWrite(thandle_t h, void* buffer, tmsize_t size) {
    TiffSink& sink = sinkOf(h);
    if (!writeAll(sink.fd, buffer, std::size_t(size))) {
        if (sink.writeErrno == 0) {
            sink.writeErrno = errno;
        }
        return -1;
    }
    return size;
}

toff_t tiffSeek(thandle_t h, toff_t offset, int whence) {
    return toff_t(::lseek(sinkOf(h).fd, off_t(offset), whence));
}

int tiffClose(thandle_t) {
    return 0;
}

toff_t tiffSize(thandle_t h) {
    struct stat st {};
    return ::fstat(sinkOf(h).fd, &st) == 0 ? toff_t(st.st_size) : 0;
}

int tiffMap(thandle_t, void**, toff_t*) {
    return 0;
}
void tiffUnmap(thandle_t, void*, toff_t) {}

int keepFirstError(TIFF*, void* user, const char*, const char* format, va_list args) {
    auto& sink = *static_cast<TiffSink*>(user);
    if (sink.libraryMessage.empty()) {
        std::array<char, 512> text{};
        std::vsnprintf(text.data(), text.size(), format, args);
        sink.libraryMessage = text.data();
    }
    return 1;  // handled: keeps libtiff from printing to stderr
}

int ignoreWarning(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

std::optional<std::string> encodeTiff(int fd, const std::string& path, const Bitmap& b) {
    TiffSink sink;
    sink.fd = fd;
    std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(TIFFOpenOptionsAlloc(),
                                                                             &TIFFOpenOptionsFree);
    if (!options) {
        return reasonOf(ENOMEM);
    }
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepFirstError, &sink);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignoreWarning, &sink);
    std::unique_ptr<TIFF, decltype(&TIFFClose)> tif(
        TIFFClientOpenExt(path.c_str(), "w", &sink, tiffRead, tiffWrite, tiffSeek, tiffClose,
                          tiffSize, tiffMap, tiffUnmap, options.get()),
        &TIFFClose);

    const auto failure = [&]() -> std::string {
        if (sink.writeErrno != 0) {
            return reasonOf(sink.writeErrno);
        }
        return sink.libraryMessage.empty() ? tr("the TIFF library failed") : sink.libraryMessage;
    };
    if (!tif) {
        return failure();
    }

    // Uncompressed: every TIFF reader takes it, and the pictures are small enough not to need
    // LZW (a scatter gram is 192 KB).
    TIFF* t = tif.get();
    const bool tagsSet =
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, std::uint32_t(b.pixelsWide())) &&
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, std::uint32_t(b.pixelsHigh())) &&
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8) && TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3) &&
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB) &&
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
        TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
        TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
        TIFFSetField(t, TIFFTAG_XRESOLUTION, 72.0) && TIFFSetField(t, TIFFTAG_YRESOLUTION, 72.0) &&
        TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH) &&
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    if (!tagsSet) {
        return failure();
    }
    // Grey is repeated into red, green and blue; alpha and planes beyond the third are dropped.
    const ChannelView rgb = b.channels();
    std::vector<std::uint8_t> row(std::size_t(b.pixelsWide()) * 3);
    for (int r = 0; r < b.pixelsHigh(); ++r) {
        copyRGBRow(rgb, r, row.data());
        if (TIFFWriteScanline(t, row.data(), std::uint32_t(r), 0) < 0) {
            return failure();
        }
    }
    if (!TIFFFlush(t)) {
        return failure();
    }
    return std::nullopt;
}

const Bitmap& orEmpty(const Bitmap* bitmap) {
    static const Bitmap empty;
    return bitmap ? *bitmap : empty;
}

}  // namespace

namespace {

Result<PreparedFile> prepareTiff(const std::string& path, const Bitmap& bitmap) {
    if (bitmap.isEmpty()) {
        return cannotWrite(path, tr("the picture is empty"));
    }
    return prepareFile(path, [&](int fd) { return encodeTiff(fd, path, bitmap); });
}

}  // namespace

Status writeTiffAtomically(const std::string& path, const Bitmap& bitmap) {
    Result<PreparedFile> prepared = prepareTiff(path, bitmap);
    return prepared ? commit(prepared.value()) : Status(prepared.error());
}

std::vector<Error> outputPixelCoefficientData(const ResultFields& fields,
                                              const ExportRequest& request) {
    std::vector<Error> errors;
    std::vector<PreparedFile> written;
    const auto keep = [&](Result<PreparedFile> file) {
        if (!file) {
            errors.push_back(file.error());
        } else if (request.allOrNothing) {
            written.push_back(std::move(file).value());
        } else if (Status put = commit(file.value()); !put) {
            errors.push_back(put.error());
        }
    };
    const std::string report = buildReport(fields);
    keep(prepareFile(reportPath(request.stem, request.format), bytesWriter(report)));
    if (request.saveImages) {
        keep(prepareTiff(request.stem + kImageSuffix, orEmpty(request.currentDisplayedImage)));
        keep(prepareTiff(request.stem + kScatterGramSuffix, orEmpty(request.scatterGram)));
        if (request.revealedImage) {
            keep(prepareTiff(request.stem + kRevealedImageSuffix, *request.revealedImage));
        }
    }
    // All or nothing: the files written so far wait under their temporary names until every
    // one of them could be.
    for (const PreparedFile& file : written) {
        if (!errors.empty()) {
            discard(file);
        } else if (Status put = commit(file); !put) {
            errors.push_back(put.error());
        }
    }
    return errors;
}

}  // namespace pv
