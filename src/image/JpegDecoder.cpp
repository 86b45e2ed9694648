#include <csetjmp>
#include <cstdio>
#include <memory>
#include <optional>

// jpeglib.h needs FILE and size_t declared first.
#include <jerror.h>
#include <jpeglib.h>

#include "image/DecoderSupport.h"

namespace pv::decode {

namespace {

// All state the longjmp-guarded functions touch lives here, outside their frames.
struct JpegJob {
    jpeg_decompress_struct cinfo{};
    jpeg_error_mgr errors{};
    std::jmp_buf escape{};
    std::FILE* file = nullptr;
    bool created = false;
    bool hitEnd = false;
    bool cmyk = false;
    std::unique_ptr<JSAMPLE[]> row;
    Bitmap* out = nullptr;
};

JpegJob& jobOf(j_common_ptr cinfo) {
    return *static_cast<JpegJob*>(cinfo->client_data);
}

void jpegFail(j_common_ptr cinfo) {
    std::longjmp(jobOf(cinfo).escape, 1);
}
void jpegSilence(j_common_ptr) {}
void jpegNotice(j_common_ptr cinfo, int level) {
    // libjpeg pads a cut-off file with a fake end and carries on; we want to know.
    if (level < 0 && cinfo->err->msg_code == JWRN_JPEG_EOF) {
        jobOf(cinfo).hitEnd = true;
    }
}

bool readJpegHeader(JpegJob& job) {
    job.cinfo.err = jpeg_std_error(&job.errors);
    job.cinfo.client_data = &job;
    job.errors.error_exit = jpegFail;
    job.errors.output_message = jpegSilence;
    job.errors.emit_message = jpegNotice;
    if (setjmp(job.escape)) {
        return false;
    }
    jpeg_create_decompress(&job.cinfo);
    job.created = true;
    jpeg_stdio_src(&job.cinfo, job.file);
    jpeg_read_header(&job.cinfo, TRUE);
    switch (job.cinfo.jpeg_color_space) {
        case JCS_GRAYSCALE:
            job.cinfo.out_color_space = JCS_GRAYSCALE;
            break;
        case JCS_CMYK:
        case JCS_YCCK:
            job.cmyk = true;
            return true;
        default:
            job.cinfo.out_color_space = JCS_RGB;
            break;
    }
    jpeg_calc_output_dimensions(&job.cinfo);
    return true;
}

bool readJpegRows(JpegJob& job) {
    if (setjmp(job.escape)) {
        return false;
    }
    jpeg_start_decompress(&job.cinfo);
    const bool grey = job.cinfo.output_components == 1;
    while (job.cinfo.output_scanline < job.cinfo.output_height) {
        const int y = int(job.cinfo.output_scanline);
        std::uint8_t* dst = job.out->row(0, y);
        JSAMPROW target = grey ? job.row.get() : dst;
        if (jpeg_read_scanlines(&job.cinfo, &target, 1) != 1) {
            return false;
        }
        if (grey) {
            for (JDIMENSION x = 0; x < job.cinfo.output_width; ++x) {
                dst[3 * x] = dst[3 * x + 1] = dst[3 * x + 2] = job.row[x];
            }
        }
    }
    return true;
}

struct JpegCleanup {
    JpegJob& job;
    ~JpegCleanup() {
        if (job.created) {
            jpeg_destroy_decompress(&job.cinfo);
        }
        if (job.file) {
            std::fclose(job.file);
        }
    }
};

double jfifDPI(const jpeg_decompress_struct& c, UINT16 density) {
    switch (c.density_unit) {
        case 1:
            return usableDPI(density);
        case 2:
            return usableDPI(double(density) * 2.54);
        default:
            return 72.0;  // only an aspect ratio, or nothing
    }
}

}  // namespace

Result<Picture> decodeJpeg(const std::string& path) {
    auto job = std::make_unique<JpegJob>();
    JpegCleanup cleanup{*job};
    job->file = std::fopen(path.c_str(), "rb");
    if (!job->file) {
        return failure("the file cannot be opened");
    }
    if (!readJpegHeader(*job)) {
        return failure(job->hitEnd ? kTruncated : kDamaged);
    }
    if (job->cmyk) {
        return failure("CMYK pictures are not supported; save the picture as RGB");
    }
    const jpeg_decompress_struct& c = job->cinfo;
    if (c.output_components != 1 && c.output_components != 3) {
        return failure(kDamaged);
    }
    auto bitmap = allocatePicture(c.output_width, c.output_height, 3, false, false);
    if (!bitmap) {
        return bitmap.error();
    }
    job->row.reset(new (std::nothrow) JSAMPLE[c.output_width]);
    if (!job->row) {
        return failure("there is not enough memory to open the picture");
    }
    job->out = &bitmap.value();
    if (!readJpegRows(*job) || job->hitEnd) {
        return failure(job->hitEnd ? kTruncated : kDamaged);
    }
    return pictureAtResolution(std::move(bitmap.value()), jfifDPI(c, c.X_density),
                               jfifDPI(c, c.Y_density));
}

}  // namespace pv::decode
