// Reading a TIFF file back into a working picture: decode plus normalisation, per megapixel
// size, so that its time prints as a multiple of the byte-summing floor of the same bitmap.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include "BenchImages.h"
#include "image/ImageFile.h"
#include "image/Normalization.h"
#include "output/Export.h"

namespace {

// One file per size for the whole run, removed at exit.
class TiffFiles {
  public:
    ~TiffFiles() {
        for (const auto& [mp, path] : paths_) {
            std::filesystem::remove(path);
        }
    }
    const std::string& of(int megapixels) {
        std::string& path = paths_[megapixels];
        if (path.empty()) {
            path = (std::filesystem::temp_directory_path() /
                    ("pv-bench-" + std::to_string(::getpid()) + "-" + std::to_string(megapixels) +
                     ".tif"))
                       .string();
            const pv::Status s =
                pv::writeTiffAtomically(path, pv::bench::fluorescenceImage(megapixels).bitmap);
            if (!s) {
                std::fprintf(stderr, "%s\n", s.error().message().c_str());
                path.clear();
            }
        }
        return path;
    }

  private:
    std::map<int, std::string> paths_;
};

TiffFiles tiffFiles;

void BM_DecodeTiff(benchmark::State& state) {
    const std::string& path = tiffFiles.of(int(state.range(0)));
    if (path.empty()) {
        state.SkipWithError("cannot write the test file");
        return;
    }
    for (auto _ : state) {
        pv::ImageFileInfo info;
        pv::Result<pv::Picture> picture = pv::readImageFile(path);
        if (!picture) {
            state.SkipWithError(picture.error().message().c_str());
            return;
        }
        pv::Result<pv::Picture> at72 = pv::convertNon72dpiImages(*picture, info);
        auto meshed = pv::convertPlanarImageToNonPlanar(*at72);
        benchmark::DoNotOptimize(meshed);
    }
}
BENCHMARK(BM_DecodeTiff)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
