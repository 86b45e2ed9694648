#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>

#include "image/Bitmap.h"

namespace pv::bench {

struct BenchImage {
    Bitmap bitmap;
};

// Side length of the square test image of `megapixels` (1, 16, 64, ...).
inline int sideOf(int megapixels) {
    int side = 1024;
    while (std::int64_t(side) * side < std::int64_t(megapixels) * 1024 * 1024) {
        side *= 2;
    }
    return side;
}

// Looks like a two-colour fluorescence picture: a dim, noisy background (about half of each
// channel exactly 0) under bright red, green and overlapping blobs. Deterministic.
inline BenchImage makeFluorescenceImage(int megapixels) {
    const int side = sideOf(megapixels);
    BenchImage img;
    img.bitmap = *Bitmap::create(side, side, 3, false, false);
    std::uint64_t s = 0x9E3779B97F4A7C15ull;
    auto next = [&s] {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return s;
    };
    for (int r = 0; r < side; ++r) {
        std::uint8_t* p = img.bitmap.row(0, r);
        for (int i = 0; i < side * 3; i += 3) {
            const std::uint64_t v = next();
            p[i + 0] = std::uint8_t((v & 1) ? (v >> 8) % 14 : 0);
            p[i + 1] = std::uint8_t((v & 2) ? (v >> 16) % 14 : 0);
            p[i + 2] = std::uint8_t((v & 12) == 0 ? (v >> 24) % 6 : 0);
        }
    }
    const int blobs = megapixels * 300;
    for (int b = 0; b < blobs; ++b) {
        const int radius = 3 + int(next() % 18);
        const int cx = int(next() % std::uint64_t(side));
        const int cy = int(next() % std::uint64_t(side));
        const int kind = int(next() % 3);  // red, green or both
        const int peak = 80 + int(next() % 176);
        for (int y = std::max(0, cy - radius); y < std::min(side, cy + radius); ++y) {
            std::uint8_t* p = img.bitmap.row(0, y);
            for (int x = std::max(0, cx - radius); x < std::min(side, cx + radius); ++x) {
                const int d2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
                if (d2 >= radius * radius) {
                    continue;
                }
                const int v = peak * (radius * radius - d2) / (radius * radius) + int(next() % 8);
                const auto add = [v](std::uint8_t& sample) {
                    sample = std::uint8_t(std::min(255, int(sample) + v));
                };
                if (kind != 1) {
                    add(p[3 * x + 0]);
                }
                if (kind != 0) {
                    add(p[3 * x + 1]);
                }
            }
        }
    }
    return img;
}

// The decode-and-normalise benchmark belongs beside this one (its own file in bench/): it can
// write fluorescenceImage(mp) as a TIFF once, time reading it back, and register with the
// megapixels as its first argument so that the run prints its ratio to BM_Floor as well.

// One image per size for the whole run, so that every benchmark of a size reads the same bytes.
inline const BenchImage& fluorescenceImage(int megapixels) {
    static std::map<int, std::unique_ptr<BenchImage>> cache;
    auto& slot = cache[megapixels];
    if (!slot) {
        slot = std::make_unique<BenchImage>(makeFluorescenceImage(megapixels));
    }
    return *slot;
}

}  // namespace pv::bench
