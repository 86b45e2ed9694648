// Peak memory of the controller analysing a stack of many slices as one population, against one
// slice's working bitmap plus the joint histogram: the slices are read one at a time, so the
// number of slices must not matter.
//   pv_stack_peak_memory [SLICES] [SIDE]     (default 200 slices of 1024 x 1024, two channels)
#include <sys/resource.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "analysis/PairHistogram.h"
#include "controller/PixmeraVeltroController.h"
#include "image/StackLayout.h"

namespace {

// An ImageJ hyperstack of two grey channels, channel fastest, as a confocal series is saved.
bool writeStack(const std::string& path, int slices, int side) {
    TIFF* t = TIFFOpen(path.c_str(), "w8");
    if (!t) {
        return false;
    }
    std::vector<std::uint8_t> row(static_cast<std::size_t>(side));
    const std::string description = "ImageJ=1.54f\nimages=" + std::to_string(2 * slices) +
                                    "\nchannels=2\nslices=" + std::to_string(slices) +
                                    "\nhyperstack=true\nmode=composite\n";
    for (int page = 0; page < 2 * slices; ++page) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, side);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, side);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 64);
        if (page == 0) {
            TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
        }
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                row[std::size_t(x)] = std::uint8_t((x * 7 + y * 3 + page * 11) % 200);
            }
            if (TIFFWriteScanline(t, row.data(), std::uint32_t(y), 0) < 0) {
                TIFFClose(t);
                return false;
            }
        }
        TIFFWriteDirectory(t);
    }
    TIFFClose(t);
    return true;
}

long residentKilobytes() {
    std::FILE* f = std::fopen("/proc/self/status", "r");
    long kb = 0;
    char line[256];
    while (f && std::fgets(line, sizeof line, f)) {
        if (std::sscanf(line, "VmRSS: %ld", &kb) == 1) {
            break;
        }
    }
    if (f) {
        std::fclose(f);
    }
    return kb;
}

}  // namespace

int main(int argc, char** argv) {
    const int slices = argc > 1 ? std::atoi(argv[1]) : 200;
    const int side = argc > 2 ? std::atoi(argv[2]) : 1024;
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("pv-stack-" + std::to_string(::getpid()) + ".tif"))
                                 .string();
    if (!writeStack(path, slices, side)) {
        std::fprintf(stderr, "cannot write the stack\n");
        return 1;
    }
    // The child reports its resident size before opening the stack through a pipe; its peak
    // comes from wait4.
    int fds[2];
    if (pipe(fds) != 0) {
        return 1;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        pv::NullControllerPort port;
        pv::PixmeraVeltroController controller(port);
        controller.awakeFromNib();
        controller.applicationDidFinishLaunching();
        const long before = residentKilobytes();
        if (write(fds[1], &before, sizeof before) != sizeof before) {
            _exit(1);
        }
        auto layout = pv::readStackLayout(path);
        if (!layout) {
            _exit(1);
        }
        std::vector<pv::PixmeraVeltroController::SlicePair> pairs;
        for (int z = 0; z < layout->slices; ++z) {
            pairs.emplace_back(pv::ChannelSource{path, {}, layout->pageOf(0, z, 0)},
                               pv::ChannelSource{path, {}, layout->pageOf(1, z, 0)});
        }
        const bool ok = controller.openStack(pairs).ok() &&
                        controller.analysis().census.totalPixelCount ==
                            std::int32_t(std::int64_t(side) * side * slices);
        _exit(ok ? 0 : 1);
    }
    close(fds[1]);
    long before = 0;
    const bool heard = read(fds[0], &before, sizeof before) == sizeof before;
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    std::filesystem::remove(path);
    if (!heard || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "analysing the stack failed\n");
        return 1;
    }
    const double slice = double(side) * side * 3;
    const double histogram = double(pv::PairHistogram::kBins) * sizeof(std::uint64_t);
    const double grown = double(usage.ru_maxrss - before) * 1024.0;
    std::printf(
        "%d slices of %d x %d, two channels: peak grew by %.1f MB = %.2fx one slice's "
        "working bitmap (%.1f MB) plus the histogram (%.1f MB)\n",
        slices, side, side, grown / 1e6, (grown - histogram) / slice, slice / 1e6, histogram / 1e6);
    return 0;
}
