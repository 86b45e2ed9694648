// Opening and analysing files through the command line, against what libtiff alone needs to
// read the same files: each command-line run is labelled with the libtiff read it is measured
// against, and the run prints the ratio. The command line runs as its own process (the real
// binary, output to /dev/null), so its peak resident size is its own.
#include <benchmark/benchmark.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchFiles.h"
#include "BenchImages.h"
#include "analysis/PairHistogram.h"

namespace {

namespace fs = std::filesystem;
using pv::bench::scratchPath;
using pv::bench::TiffWriting;
using pv::bench::writeTiff;

struct FileSet {
    std::string name;  // as it appears in the benchmark names
    std::vector<std::string> paths;
    std::size_t workingBytes = 0;  // of one file's working bitmap
};

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

pv::bench::Launcher launcher;  // before anything large is allocated

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
