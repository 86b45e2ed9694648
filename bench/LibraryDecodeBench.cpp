// PNG and JPEG: our decoders against the libraries' own decode loops over the same files (every
// row read into one buffer), each labelled with the loop it is measured against.
#include <benchmark/benchmark.h>
#include <jpeglib.h>
#include <png.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BenchImages.h"
#include "image/ImageFile.h"

namespace {

namespace fs = std::filesystem;

std::string scratchPath(const std::string& name) {
    return (fs::temp_directory_path() / ("pv-lib-" + std::to_string(::getpid()) + "-" + name))
        .string();
}

// The bench picture of 16 megapixels; 16-bit samples spread the levels over twelve bits.
bool writePng(const std::string& path, bool sixteenBit) {
    const pv::Bitmap& b = pv::bench::fluorescenceImage(16).bitmap;
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(f);
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, png_uint_32(b.pixelsWide()), png_uint_32(b.pixelsHigh()),
                 sixteenBit ? 16 : 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    std::vector<png_byte> wide(std::size_t(b.pixelsWide()) * 6);
    for (int y = 0; y < b.pixelsHigh(); ++y) {
        const std::uint8_t* row = b.row(0, y);
        if (sixteenBit) {
            for (std::size_t i = 0; i < std::size_t(b.pixelsWide()) * 3; ++i) {
                const unsigned v = row[i] * 16u + unsigned((i * 7 + std::size_t(y)) % 16);
                wide[2 * i] = png_byte(v >> 8);
                wide[2 * i + 1] = png_byte(v);
            }
            png_write_row(png, wide.data());
        } else {
            png_write_row(png, row);
        }
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return std::fclose(f) == 0;
}

bool writeJpeg(const std::string& path, bool progressive) {
    const pv::Bitmap& b = pv::bench::fluorescenceImage(16).bitmap;
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        return false;
    }
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    jpeg_stdio_dest(&c, f);
    c.image_width = JDIMENSION(b.pixelsWide());
    c.image_height = JDIMENSION(b.pixelsHigh());
    c.input_components = 3;
    c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, 95, TRUE);
    if (progressive) {
        jpeg_simple_progression(&c);
    }
    jpeg_start_compress(&c, TRUE);
    for (int y = 0; y < b.pixelsHigh(); ++y) {
        auto row = const_cast<JSAMPROW>(b.row(0, y));
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    return std::fclose(f) == 0;
}

const std::string& fileNamed(const std::string& name) {
    static struct Files {
        std::map<std::string, std::string> paths;
        ~Files() {
            for (const auto& [n, p] : paths) {
                fs::remove(p);
            }
        }
    } files;
    std::string& path = files.paths[name];
    if (path.empty()) {
        path = scratchPath(name);
        const bool ok = name == "png-16MP"        ? writePng(path, false)
                        : name == "png16bit-16MP" ? writePng(path, true)
                        : name == "jpeg-16MP"     ? writeJpeg(path, false)
                                                  : writeJpeg(path, true);
        if (!ok) {
            path.clear();
        }
    }
    return path;
}

// libpng's loop: every row into one buffer, as it comes.
bool libpngRead(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        return false;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    std::vector<png_byte> pixels;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        std::fclose(f);
        return false;
    }
    png_init_io(png, f);
    png_read_info(png, info);
    const std::size_t rowBytes = png_get_rowbytes(png, info);
    const png_uint_32 high = png_get_image_height(png, info);
    pixels.resize(rowBytes * high);
    for (png_uint_32 y = 0; y < high; ++y) {
        png_read_row(png, pixels.data() + y * rowBytes, nullptr);
    }
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(f);
    return true;
}

// libjpeg's loop: every scanline into one buffer.
bool libjpegRead(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        return false;
    }
    jpeg_decompress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_decompress(&c);
    jpeg_stdio_src(&c, f);
    jpeg_read_header(&c, TRUE);
    jpeg_start_decompress(&c);
    const std::size_t rowBytes = std::size_t(c.output_width) * std::size_t(c.output_components);
    std::vector<JSAMPLE> pixels(rowBytes * c.output_height);
    while (c.output_scanline < c.output_height) {
        JSAMPROW row = pixels.data() + c.output_scanline * rowBytes;
        jpeg_read_scanlines(&c, &row, 1);
    }
    jpeg_finish_decompress(&c);
    jpeg_destroy_decompress(&c);
    std::fclose(f);
    return true;
}

void BM_LibraryDecode(benchmark::State& state, const std::string& name) {
    const std::string& path = fileNamed(name);
    const bool png = name.rfind("png", 0) == 0;
    for (auto _ : state) {
        if (path.empty() || !(png ? libpngRead(path) : libjpegRead(path))) {
            state.SkipWithError("cannot write or read the test file");
            return;
        }
    }
}

void BM_Decode(benchmark::State& state, const std::string& name) {
    const std::string& path = fileNamed(name);
    for (auto _ : state) {
        pv::Result<pv::Picture> picture = pv::readImageFile(path);
        if (!picture) {
            state.SkipWithError(picture.error().message().c_str());
            return;
        }
        benchmark::DoNotOptimize(picture->bitmap.get());
    }
    state.SetLabel("vs BM_LibraryDecode/" + name);
}

const bool registered = [] {
    for (const char* name : {"png-16MP", "png16bit-16MP", "jpeg-16MP", "jpegprogressive-16MP"}) {
        benchmark::RegisterBenchmark((std::string("BM_LibraryDecode/") + name).c_str(),
                                     BM_LibraryDecode, std::string(name))
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)  // several runs of even the slowest, whose first is often an outlier
            ->UseRealTime();
        benchmark::RegisterBenchmark((std::string("BM_Decode/") + name).c_str(), BM_Decode,
                                     std::string(name))
            ->Unit(benchmark::kMillisecond)
            ->MinTime(2.0)  // several runs of even the slowest, whose first is often an outlier
            ->UseRealTime();
    }
    return true;
}();

}  // namespace
