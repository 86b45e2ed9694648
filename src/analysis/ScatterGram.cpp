#include "analysis/ScatterGram.h"

#include <algorithm>
#include <cstring>

namespace pv {

std::optional<Bitmap> makeEmptyScatterGram() {
    return Bitmap::create(kScatterGramSize, kScatterGramSize, 3, false, false,
                          kScatterGramBytesPerRow, true);
}

std::array<std::string_view, 4> colorBarNames(RGBCombo combo) {
    static constexpr std::array<std::array<std::string_view, 4>, 6> kBars = {{
        {"brv-grad", "bgh-grad", "gyv-grad", "ryh-grad"},
        {"brv-grad", "bbh-grad", "bmv-grad", "rmh-grad"},
        {"bgv-grad", "brh-grad", "ryv-grad", "gyh-grad"},
        {"bgv-grad", "bbh-grad", "bcv-grad", "gch-grad"},
        {"bbv-grad", "brh-grad", "rmv-grad", "bmh-grad"},
        {"bbv-grad", "bgh-grad", "gcv-grad", "bch-grad"},
    }};
    return kBars[std::size_t(combo)];
}

const std::array<std::string_view, 18>& allColorBarNames() {
    static constexpr std::array<std::string_view, 18> kNames = {
        "brv-grad", "bgv-grad", "bbv-grad", "brh-grad", "bgh-grad", "bbh-grad",
        "gyv-grad", "ryv-grad", "bmv-grad", "rmv-grad", "bcv-grad", "gcv-grad",
        "ryh-grad", "gyh-grad", "rmh-grad", "bmh-grad", "gch-grad", "bch-grad"};
    return kNames;
}

namespace {

struct Rgb {
    int r, g, b;
};

std::optional<Rgb> colorOfLetter(char letter) {
    switch (letter) {
        case 'r':
            return Rgb{255, 0, 0};
        case 'g':
            return Rgb{0, 255, 0};
        case 'b':
            return Rgb{0, 0, 255};
        case 'y':
            return Rgb{255, 255, 0};
        case 'm':
            return Rgb{255, 0, 255};
        case 'c':
            return Rgb{0, 255, 255};
        default:
            return std::nullopt;
    }
}

// Rounded to nearest, halves upwards: position i of n runs from a (i = 0) to b (i = n - 1),
// so a 0-to-255 ramp gives round(i * 255 / (n - 1)). A single position is the start colour.
std::uint8_t rampValue(int a, int b, long i, long n) {
    if (n <= 1) {
        return std::uint8_t(a);
    }
    const long span = n - 1;
    return std::uint8_t((2 * (a * (span - i) + b * i) + span) / (2 * span));
}

}  // namespace

std::optional<Bitmap> makeColorBarGradient(std::string_view name, int width, int height) {
    const auto& names = allColorBarNames();
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        return std::nullopt;
    }
    // A leading b is black on the bars that start from the scatter gram's black corner, that
    // is when the ramp ends in a primary colour; before a mixture it is blue.
    const bool endsInPrimary = name[1] == 'r' || name[1] == 'g' || name[1] == 'b';
    const Rgb start = name[0] == 'b' && endsInPrimary ? Rgb{0, 0, 0} : *colorOfLetter(name[0]);
    const Rgb end = *colorOfLetter(name[1]);
    const bool vertical = name[2] == 'v';

    auto bitmap = Bitmap::create(width, height, 3, false, false);
    if (!bitmap) {
        return std::nullopt;
    }
    const long n = vertical ? height : width;
    for (int row = 0; row < height; ++row) {
        std::uint8_t* p = bitmap->row(0, row);
        for (int col = 0; col < width; ++col) {
            // Vertical ramps start at the bottom row, which is the last in memory.
            const long i = vertical ? long(height - 1 - row) : long(col);
            p[3 * col + 0] = rampValue(start.r, end.r, i, n);
            p[3 * col + 1] = rampValue(start.g, end.g, i, n);
            p[3 * col + 2] = rampValue(start.b, end.b, i, n);
        }
    }
    return bitmap;
}

}  // namespace pv
