// Writes random TIFF files of every layout the decoder reads (1 to 16 bits; grey, min-is-white,
// palette and RGB; with and without extra samples; contiguous and planar; strips of one row,
// seven rows or the whole picture, and tiles; raw, LZW, deflate, PackBits and JPEG), at 72 dpi
// and at other resolutions, into the folder given. For comparing the outputs of two builds of
// the command line: see scripts/compare-outputs.
#include <tiffio.h>
#include <cstdio>
#include <string>
#include <vector>
static unsigned long long S = 88172645463325252ull;
static unsigned rnd() {
    S ^= S << 13;
    S ^= S >> 7;
    S ^= S << 17;
    return unsigned(S >> 16);
}
int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: pv_layout_files FOLDER\n");
        return 2;
    }
    const std::string folder = argv[1];
    int n = 0;
    struct Ph {
        int photometric, colours;
    } phs[] = {{PHOTOMETRIC_MINISBLACK, 1},
               {PHOTOMETRIC_MINISWHITE, 1},
               {PHOTOMETRIC_PALETTE, 1},
               {PHOTOMETRIC_RGB, 3}};
    for (int bits : {1, 2, 4, 8, 16})
        for (auto ph : phs)
            for (int extra : {0, 1, 2})
                for (int planar : {1, 2})
                    for (int layout : {0, 1, 2, 3})  // strips of 1 row, 7 rows, whole; tiles 16x16
                        for (int comp :
                             {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE,
                              COMPRESSION_PACKBITS, COMPRESSION_JPEG}) {
                            if (ph.colours == 3 && bits < 8)
                                continue;
                            if (ph.photometric == PHOTOMETRIC_PALETTE && bits > 8)
                                continue;
                            if (comp == COMPRESSION_JPEG &&
                                (bits != 8 || ph.photometric == PHOTOMETRIC_PALETTE ||
                                 ph.photometric == PHOTOMETRIC_MINISWHITE || extra))
                                continue;
                            if ((rnd() % 3) && comp != COMPRESSION_NONE && comp != COMPRESSION_JPEG)
                                continue;  // thin out
                            const int spp = ph.colours + extra;
                            const unsigned w = 37 + rnd() % 60, h = 29 + rnd() % 50;
                            char name[64];
                            std::snprintf(name, sizeof name, "/t%03d.tif", n++);
                            TIFF* t = TIFFOpen((folder + name).c_str(), "w");
                            if (!t) {
                                return 1;
                            }
                            TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
                            TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
                            TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
                            TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
                            TIFFSetField(t, TIFFTAG_PHOTOMETRIC, ph.photometric);
                            TIFFSetField(t, TIFFTAG_PLANARCONFIG, planar);
                            TIFFSetField(t, TIFFTAG_COMPRESSION, comp);
                            if (comp == COMPRESSION_JPEG)
                                TIFFSetField(t, TIFFTAG_JPEGQUALITY, 90);
                            if (extra) {
                                std::vector<uint16_t> ex(extra, EXTRASAMPLE_UNASSALPHA);
                                TIFFSetField(t, TIFFTAG_EXTRASAMPLES, extra, ex.data());
                            }
                            if (n % 2) {
                                TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
                                TIFFSetField(t, TIFFTAG_XRESOLUTION, 300.f);
                                TIFFSetField(t, TIFFTAG_YRESOLUTION, 150.f);
                            }
                            std::vector<uint16_t> cmap[3];
                            if (ph.photometric == PHOTOMETRIC_PALETTE) {
                                for (auto& c : cmap) {
                                    c.resize(1u << bits);
                                    for (auto& v : c)
                                        v = rnd();
                                }
                                TIFFSetField(t, TIFFTAG_COLORMAP, cmap[0].data(), cmap[1].data(),
                                             cmap[2].data());
                            }
                            const int planes = planar == 2 ? spp : 1;
                            if (layout == 3) {
                                TIFFSetField(t, TIFFTAG_TILEWIDTH, 16);
                                TIFFSetField(t, TIFFTAG_TILELENGTH, 16);
                                const tmsize_t ts = TIFFTileSize(t);
                                std::vector<unsigned char> buf(ts);
                                for (int p = 0; p < planes; ++p)
                                    for (unsigned y = 0; y < h; y += 16)
                                        for (unsigned x = 0; x < w; x += 16) {
                                            for (auto& c : buf)
                                                c = (rnd() % 4 == 0) ? 0 : rnd();
                                            TIFFWriteTile(t, buf.data(), x, y, 0, p);
                                        }
                            } else {
                                TIFFSetField(t, TIFFTAG_ROWSPERSTRIP,
                                             layout == 0   ? 1u
                                             : layout == 1 ? 7u
                                                           : h);
                                const tmsize_t ls = TIFFScanlineSize(t);
                                std::vector<unsigned char> buf(ls);
                                for (int p = 0; p < planes; ++p)
                                    for (unsigned y = 0; y < h; ++y) {
                                        for (auto& c : buf)
                                            c = (rnd() % 4 == 0) ? 0 : rnd();
                                        if (bits == 16 && (y % 5 == 0))
                                            for (size_t i = 1; i < buf.size(); i += 2)
                                                buf[i] &= 0x0f;
                                        TIFFWriteScanline(t, buf.data(), y, p);
                                    }
                            }
                            TIFFClose(t);
                        }
    std::printf("%d files\n", n);
}
