#pragma once

// Files and processes shared by the benchmarks that time opening files: TIFFs written as
// common writers lay them out, and the command line run as its own process.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "image/Bitmap.h"

extern char** environ;

namespace pv::bench {

inline std::string scratchPath(const std::string& name) {
    return (std::filesystem::temp_directory_path() /
            ("pv-bench-" + std::to_string(::getpid()) + "-" + name))
        .string();
}

struct TiffWriting {
    int compression = COMPRESSION_NONE;
    bool sixteenBit = false;
};

// The bench picture as a TIFF at 300 dpi, the way common writers lay it out: libtiff's default
// strips of about 8 KB uncompressed, 32 rows a strip when compressed. 16-bit samples spread the
// 8-bit levels over twelve bits, with noise in the low bits, as a camera's would be.
inline bool writeTiff(const std::string& path, const pv::Bitmap& b, const TiffWriting& how) {
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

}  // namespace pv::bench
