// Opening and analysing files through the command line, against what libtiff alone needs to
// read the same files: each command-line run is labelled with the libtiff read it is measured
// against, and the run prints the ratio. The command line runs as its own process (the real
// binary, output to /dev/null), so its peak resident size is its own.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "BenchImages.h"
#include "analysis/PairHistogram.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct FileSet {
    std::string name;  // as it appears in the benchmark names
    std::vector<std::string> paths;
    std::size_t workingBytes = 0;  // of one file's working bitmap
};

struct TiffWriting {
    int compression = COMPRESSION_NONE;
    bool sixteenBit = false;
};

// The bench picture as a TIFF at 300 dpi, the way common writers lay it out: libtiff's default
// strips of about 8 KB uncompressed, 32 rows a strip when compressed. 16-bit samples spread the
// 8-bit levels over twelve bits, with noise in the low bits, as a camera's would be.
bool writeTiff(const std::string& path, const pv::Bitmap& b, const TiffWriting& how) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    if (!t) {
        return false;
    }
    const int bits = how.sixteenBit ? 16 : 8;
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, std::uint32_t(b.pixelsWide()));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, std::uint32_t(b.pixelsHigh()));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, how.compression);
    // Microscopes record their resolution; 72 dpi is the exception.
    TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(t, TIFFTAG_XRESOLUTION, 300.0f);
    TIFFSetField(t, TIFFTAG_YRESOLUTION, 300.0f);
    if (how.compression != COMPRESSION_NONE) {
        TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    }
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP,
                 how.compression == COMPRESSION_NONE ? TIFFDefaultStripSize(t, 0) : 32u);
    std::vector<std::uint16_t> wide(std::size_t(b.pixelsWide()) * 3);
    bool ok = true;
    for (int y = 0; y < b.pixelsHigh() && ok; ++y) {
        const std::uint8_t* row = b.row(0, y);
        void* line = const_cast<std::uint8_t*>(row);
        if (how.sixteenBit) {
            for (std::size_t i = 0; i < wide.size(); ++i) {
                wide[i] = std::uint16_t(row[i] * 16 + ((i * 7 + std::size_t(y)) % 16));
            }
            line = wide.data();
        }
        ok = TIFFWriteScanline(t, line, std::uint32_t(y), 0) >= 0;
    }
    TIFFClose(t);
    return ok;
}

std::string scratchPath(const std::string& name) {
    return (fs::temp_directory_path() / ("pv-read-" + std::to_string(::getpid()) + "-" + name))
        .string();
}

class Files {
  public:
    ~Files() {
        for (const FileSet& set : sets_) {
            for (const std::string& p : set.paths) {
                fs::remove(p);
            }
        }
    }
    const FileSet& single(const std::string& name, int megapixels, TiffWriting how) {
        for (const FileSet& set : sets_) {
            if (set.name == name) {
                return set;
            }
        }
        const pv::Bitmap& b = pv::bench::fluorescenceImage(megapixels).bitmap;
        FileSet set{name, {scratchPath(name + ".tif")}, b.totalBytes()};
        if (!writeTiff(set.paths[0], b, how)) {
            set.paths.clear();
        }
        return sets_.emplace_back(std::move(set));
    }
    // Different files of 1 megapixel: the bench picture with its rows rotated by a different
    // amount in each, so that no two are alike.
    const FileSet& batch(int count) {
        const std::string name = std::to_string(count) + "x1MP";
        for (const FileSet& set : sets_) {
            if (set.name == name) {
                return set;
            }
        }
        const pv::Bitmap& source = pv::bench::fluorescenceImage(1).bitmap;
        FileSet set{name, {}, source.totalBytes()};
        auto b = pv::Bitmap::create(source.pixelsWide(), source.pixelsHigh(), 3, false, false);
        for (int i = 0; i < count && b; ++i) {
            const int high = source.pixelsHigh();
            for (int y = 0; y < high; ++y) {
                std::memcpy(b->row(0, y), source.row(0, (y + 5 * i) % high),
                            std::size_t(source.bytesPerRow()));
            }
            set.paths.push_back(scratchPath(name + "-" + std::to_string(i) + ".tif"));
            if (!writeTiff(set.paths.back(), *b, {})) {
                set.paths.clear();
                break;
            }
        }
        return sets_.emplace_back(std::move(set));
    }

  private:
    std::vector<FileSet> sets_;
};

Files files;

const FileSet& fileSet(const std::string& name) {
    if (name == "raw-64MP") {
        return files.single(name, 64, {});
    }
    if (name == "deflate-64MP") {
        return files.single(name, 64, {COMPRESSION_ADOBE_DEFLATE});
    }
    if (name == "lzw-64MP") {
        return files.single(name, 64, {COMPRESSION_LZW});
    }
    if (name == "16bit-16MP") {
        return files.single(name, 16, {COMPRESSION_NONE, true});
    }
    return files.batch(200);
}

// libtiff alone: every strip of the file decoded into one buffer, one thread.
bool libtiffRead(const std::string& path, std::vector<std::uint8_t>& buffer) {
    TIFF* t = TIFFOpen(path.c_str(), "rm");
    if (!t) {
        return false;
    }
    const std::uint64_t stripSize = std::uint64_t(TIFFStripSize64(t));
    const std::uint32_t strips = TIFFNumberOfStrips(t);
    buffer.resize(stripSize * strips);
    bool ok = true;
    for (std::uint32_t s = 0; s < strips && ok; ++s) {
        ok = TIFFReadEncodedStrip(t, s, buffer.data() + s * stripSize, tmsize_t(stripSize)) >= 0;
    }
    TIFFClose(t);
    return ok;
}

void BM_LibtiffRead(benchmark::State& state, const std::string& name) {
    const FileSet& set = fileSet(name);
    if (set.paths.empty()) {
        state.SkipWithError("cannot write the test files");
        return;
    }
    for (auto _ : state) {
        for (const std::string& path : set.paths) {
            // A fresh buffer for each file, as any reader of a new file would have.
            std::vector<std::uint8_t> buffer;
            if (!libtiffRead(path, buffer)) {
                state.SkipWithError("libtiff cannot read the test file");
                return;
            }
            benchmark::DoNotOptimize(buffer.data());
        }
    }
}

// A process's peak resident size includes that of the process it was started from, up to the
// moment of exec, so the command line is started by a small process forked before any bench
// picture exists. It takes argument lists on a pipe and answers with the exit status and the
// peak in kilobytes.
class Launcher {
  public:
    Launcher() {
        int toChild[2], fromChild[2];
        if (pipe(toChild) != 0 || pipe(fromChild) != 0) {
            return;
        }
        const pid_t pid = fork();
        if (pid == 0) {
            close(toChild[1]);
            close(fromChild[0]);
            serve(toChild[0], fromChild[1]);
            _exit(0);
        }
        close(toChild[0]);
        close(fromChild[1]);
        requests_ = toChild[1];
        answers_ = fromChild[0];
    }
    ~Launcher() {
        if (requests_ >= 0) {
            close(requests_);
            close(answers_);
            wait(nullptr);
        }
    }

    // The command line's arguments; false when it could not run or did not exit with 0.
    bool run(const std::vector<std::string>& arguments, long& peakKilobytes) {
        std::string request;
        for (const std::string& a : arguments) {
            request += a;
            request += '\0';
        }
        const std::uint64_t size = request.size();
        long answer[2] = {-1, 0};
        if (requests_ < 0 || !writeAll(requests_, &size, sizeof size) ||
            !writeAll(requests_, request.data(), request.size()) ||
            read(answers_, answer, sizeof answer) != sizeof answer) {
            return false;
        }
        peakKilobytes = answer[1];
        return answer[0] == 0;
    }

  private:
    static bool writeAll(int fd, const void* data, std::size_t size) {
        const char* p = static_cast<const char*>(data);
        while (size > 0) {
            const ssize_t n = write(fd, p, size);
            if (n <= 0) {
                return false;
            }
            p += n;
            size -= std::size_t(n);
        }
        return true;
    }
    static bool readAll(int fd, void* data, std::size_t size) {
        char* p = static_cast<char*>(data);
        while (size > 0) {
            const ssize_t n = read(fd, p, size);
            if (n <= 0) {
                return false;
            }
            p += n;
            size -= std::size_t(n);
        }
        return true;
    }
    static void serve(int requests, int answers) {
        std::uint64_t size = 0;
        while (readAll(requests, &size, sizeof size)) {
            std::string request(size, '\0');
            if (!readAll(requests, request.data(), size)) {
                return;
            }
            std::vector<char*> argv{const_cast<char*>(PV_CLI_PATH)};
            for (std::size_t at = 0; at < request.size(); at += std::strlen(&request[at]) + 1) {
                argv.push_back(&request[at]);
            }
            argv.push_back(nullptr);
            posix_spawn_file_actions_t actions;
            posix_spawn_file_actions_init(&actions);
            posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
            pid_t child = 0;
            long answer[2] = {-1, 0};
            if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
                int status = 0;
                rusage usage{};
                wait4(child, &status, 0, &usage);
                answer[0] = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                answer[1] = usage.ru_maxrss;
            }
            posix_spawn_file_actions_destroy(&actions);
            if (!writeAll(answers, answer, sizeof answer)) {
                return;
            }
        }
    }

    int requests_ = -1;
    int answers_ = -1;
};

Launcher launcher;  // before anything large is allocated

void BM_Cli(benchmark::State& state, const std::string& name, const std::string& jobs) {
    const FileSet& set = fileSet(name);
    if (set.paths.empty()) {
        state.SkipWithError("cannot write the test files");
        return;
    }
    std::vector<std::string> arguments;
    if (!jobs.empty()) {
        arguments = {"--jobs", jobs};
    }
    arguments.insert(arguments.end(), set.paths.begin(), set.paths.end());
    long peak = 0;
    for (auto _ : state) {
        if (!launcher.run(arguments, peak)) {
            state.SkipWithError("the command line failed");
            return;
        }
    }
    state.SetLabel("vs BM_LibtiffRead/" + name);
    const double bitmapAndHistogram =
        double(set.workingBytes) + double(pv::PairHistogram::kBins) * sizeof(std::uint64_t);
    state.counters["peak/bitmap"] = double(peak) * 1024.0 / bitmapAndHistogram;
    state.counters["files/s"] = benchmark::Counter(
        double(set.paths.size()) * double(state.iterations()), benchmark::Counter::kIsRate);
}

// Registered by hand so that each file set's name shows in the benchmark's name.
const bool registered = [] {
    for (const char* name : {"raw-64MP", "deflate-64MP", "lzw-64MP", "16bit-16MP", "200x1MP"}) {
        benchmark::RegisterBenchmark((std::string("BM_LibtiffRead/") + name).c_str(),
                                     BM_LibtiffRead, std::string(name))
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)  // several runs of even the slowest, whose first is often an outlier
            ->UseRealTime();
        const std::string jobs = std::string(name) == "200x1MP" ? "2" : "";
        benchmark::RegisterBenchmark((std::string("BM_Cli/") + name).c_str(), BM_Cli,
                                     std::string(name), jobs)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)  // several runs of even the slowest, whose first is often an outlier
            ->UseRealTime();
    }
    return true;
}();

}  // namespace
