// Peak memory of opening and analysing a large TIFF, as a multiple of its working bitmap.
// The work runs in a child process so that its peak resident size is its own.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "controller/PixmeraVeltroController.h"
#include "image/Bitmap.h"
#include "output/Export.h"

namespace {

int openAndAnalyse(const std::string& path) {
    pv::NullControllerPort port;
    pv::PixmeraVeltroController controller(port);
    controller.awakeFromNib();
    controller.applicationDidFinishLaunching();
    if (!controller.openImageFile(path)) {
        return 1;
    }
    controller.colocalizationWarningSheetDidEnd(pv::BackgroundWarningAnswer::CalculateAnyway);
    return controller.analysis().census.totalPixelCount > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const int megapixels = argc > 1 ? std::atoi(argv[1]) : 64;
    const int side = 1024 * (megapixels >= 64 ? 8 : (megapixels >= 16 ? 4 : 1));
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("pv-peak-" + std::to_string(::getpid()) + ".tif"))
                                 .string();
    std::size_t workingBytes = 0;
    {
        auto bitmap = pv::Bitmap::create(side, side, 3, false, false);
        if (!bitmap) {
            std::fprintf(stderr, "not enough memory for a %d x %d picture\n", side, side);
            return 1;
        }
        for (std::size_t i = 0; i < bitmap->totalBytes(); ++i) {
            bitmap->bitmapData()[i] = std::uint8_t((i * 2654435761u) >> 24);
        }
        workingBytes = bitmap->totalBytes();
        if (const pv::Status s = pv::writeTiffAtomically(path, *bitmap); !s) {
            std::fprintf(stderr, "%s\n", s.error().message().c_str());
            return 1;
        }
    }
    const pid_t child = fork();
    if (child == 0) {
        _exit(openAndAnalyse(path));
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    std::filesystem::remove(path);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "opening and analysing the picture failed\n");
        return 1;
    }
    const double peak = double(usage.ru_maxrss) * 1024.0;
    std::printf("%d x %d TIFF: working bitmap %.0f MB, peak resident %.0f MB, ratio %.2fx\n", side,
                side, double(workingBytes) / 1e6, peak / 1e6, peak / double(workingBytes));
    return 0;
}
