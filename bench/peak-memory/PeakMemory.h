#pragma once

// Peak memory of opening and analysing a large TIFF, as a multiple of its working bitmap.
// The work runs in a child process so that its peak resident size is its own.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "image/Bitmap.h"
#include "output/Export.h"

namespace pv::bench {

// Writes a TIFF of about `megapixels`, has `openAndAnalyse(path)` open and analyse it in a
// child process (which returns 0 when all went well), and prints the child's peak resident
// size against the picture's working bitmap. Returns the exit status for main().
template <typename Work>
int reportPeakMemory(int megapixels, Work openAndAnalyse) {
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

}  // namespace pv::bench
