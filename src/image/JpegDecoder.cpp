#include <csetjmp>
#include <cstdio>
#include <memory>
#include <optional>

// jpeglib.h needs FILE and size_t declared first, and jerror.h needs jpeglib.h's
// configuration to declare every warning code.
#include <jpeglib.h>
//
#include <jerror.h>

#include "image/DecoderSupport.h"

namespace pv::decode {

namespace {

// All state the longjmp-guarded functions touch lives here, outside their frames.
struct JpegJob {
    jpeg_decompress_struct cinfo{};
    jpeg_error_mgr errors{};
    jpeg_progress_mgr progress{};
    std::jmp_buf escape{};
    std::FILE* file = nullptr;
    bool created = false;
    bool hitEnd = false;
    bool noMemory = false;
    bool tooManyScans = false;
    bool cmyk = false;
    std::unique_ptr<JSAMPLE[]> row;
    Bitmap* out = nullptr;
};

JpegJob& jobOf(j_common_ptr cinfo) {
    return *static_cast<JpegJob*>(cinfo->client_data);
}

// Each scan of a progressive file makes libjpeg walk the whole picture again, so a small file
// of thousands of scans keeps it busy for minutes. Real encoders write about ten; libjpeg-turbo's
// own tools stop at 500.
constexpr int kMaxScans = 500;

void jpegFail(j_common_ptr cinfo) {
    jobOf(cinfo).noMemory = cinfo->err->msg_code == JERR_OUT_OF_MEMORY;
    std::longjmp(jobOf(cinfo).escape, 1);
}
void jpegSilence(j_common_ptr) {}
// libjpeg fills missing or undecodable data with grey and carries on; a picture partly made up
// would be analysed as if it were real, so these warnings end the reading.
void jpegNotice(j_common_ptr cinfo, int level) {
    if (level >= 0) {
        return;
    }
    switch (cinfo->err->msg_code) {
        case JWRN_JPEG_EOF:
            jobOf(cinfo).hitEnd = true;
            std::longjmp(jobOf(cinfo).escape, 1);
        case JWRN_ARITH_BAD_CODE:
        case JWRN_BOGUS_PROGRESSION:
        case JWRN_HIT_MARKER:
        case JWRN_HUFF_BAD_CODE:
        case JWRN_MUST_RESYNC:
        case JWRN_NOT_SEQUENTIAL:
        case JWRN_TOO_MUCH_DATA:
            std::longjmp(jobOf(cinfo).escape, 1);
        default:
            return;  // metadata it could not use (JFIF version, ICC profile): the pixels are whole
    }
}
void jpegProgress(j_common_ptr cinfo) {
    auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
    if (d->input_scan_number > kMaxScans) {
        jobOf(cinfo).tooManyScans = true;
        std::longjmp(jobOf(cinfo).escape, 1);
    }
}

// The fewest bytes that can code the picture: a Huffman-coded 8 x 8 block takes at least a
// one-bit DC code, and in a sequential file also a one-bit end-of-block code (a progressive
// file codes the empty AC bands of many blocks in one run). Arithmetic coding can spend far
// less than a bit on a flat block, and it reads zeros once its data ends, so a file of a few
// hundred bytes could make us decode (and allocate) a picture of any size. Such files are
// refused past a thousand blocks a byte, a ratio that only synthetic flat pictures reach.
std::uint64_t leastJpegBytes(const jpeg_decompress_struct& c) {
    std::uint64_t blocks = 0;
    for (int i = 0; i < c.num_components; ++i) {
        blocks += std::uint64_t(c.comp_info[i].width_in_blocks) * c.comp_info[i].height_in_blocks;
    }
    if (c.arith_code) {
        return blocks / 1024;
    }
    return blocks * (c.progressive_mode ? 1 : 2) / 8;
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
    job.progress.progress_monitor = jpegProgress;
    job.cinfo.progress = &job.progress;  // after creating, which clears it
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

// A progressive file is read whole here, before any of our memory is committed to it.
bool startJpeg(JpegJob& job) {
    if (setjmp(job.escape)) {
        return false;
    }
    jpeg_start_decompress(&job.cinfo);
    return true;
}

// A progressive file that ended before some component's first scan leaves it flat grey, and
// libjpeg says nothing.
bool everyComponentArrived(const jpeg_decompress_struct& c) {
    if (!c.progressive_mode || !c.coef_bits) {
        return true;
    }
    for (int i = 0; i < c.num_components; ++i) {
        if (c.coef_bits[i][0] < 0) {
            return false;
        }
    }
    return true;
}

bool readJpegRows(JpegJob& job) {
    if (setjmp(job.escape)) {
        return false;
    }
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

Error jpegFailure(const JpegJob& job) {
    if (job.noMemory) {
        return failure(kNoMemory);
    }
    if (job.tooManyScans) {
        return failure(
            "the picture is stored in more than %1 passes; no real camera or program writes "
            "that many, so the file is damaged",
            {std::to_string(kMaxScans)});
    }
    return failure(job.hitEnd ? kTruncated : kDamaged);
}

}  // namespace

Result<Picture> decodeJpeg(const std::string& path, std::uint64_t fileSize,
                           const SizeCheck& sizeCheck) {
    auto job = std::make_unique<JpegJob>();
    JpegCleanup cleanup{*job};
    job->file = std::fopen(path.c_str(), "rb");
    if (!job->file) {
        return failure("the file cannot be opened");
    }
    if (!readJpegHeader(*job)) {
        return jpegFailure(*job);
    }
    if (job->cmyk) {
        return failure("CMYK pictures are not supported; save the picture as RGB");
    }
    const jpeg_decompress_struct& c = job->cinfo;
    if (c.output_components != 1 && c.output_components != 3) {
        return failure(kDamaged);
    }
    if (auto refused = refusedSize(sizeCheck, c.output_width, c.output_height)) {
        return *refused;
    }
    if (auto error = unholdablePicture(c.output_width, c.output_height, 3, false)) {
        return *error;
    }
    if (leastJpegBytes(c) > fileSize) {
        return tooSmallFor(c.image_width, c.image_height);
    }
    if (!startJpeg(*job)) {
        return jpegFailure(*job);
    }
    if (!everyComponentArrived(c)) {
        return failure(kTruncated);
    }
    auto bitmap = allocatePicture(c.output_width, c.output_height, 3, false, false);
    if (!bitmap) {
        return bitmap.error();
    }
    job->row.reset(new (std::nothrow) JSAMPLE[c.output_width]);
    if (!job->row) {
        return failure(kNoMemory);
    }
    job->out = &bitmap.value();
    if (!readJpegRows(*job)) {
        return jpegFailure(*job);
    }
    Picture picture = pictureAtResolution(std::move(bitmap.value()), jfifDPI(c, c.X_density),
                                          jfifDPI(c, c.Y_density));
    picture.grey = c.output_components == 1;
    return picture;
}

}  // namespace pv::decode
