// Writes the bundled sample picture: a synthetic two-colour fluorescence image of cells, made
// the same on every machine. Only integer arithmetic drives the randomness (splitmix64, not the
// std distributions, whose output differs between library versions), and the floating-point
// work uses only +, -, *, / and sqrt, which IEEE rounds exactly.
//
// usage: make-sample OUTPUT.tif

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "image/Bitmap.h"
#include "output/Export.h"

namespace {

constexpr int kWide = 512;
constexpr int kHigh = 384;

class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // In [0, 1), from the top 53 bits.
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    double between(double low, double high) { return low + (high - low) * uniform(); }
    // Roughly normal with mean 0 and deviation 1: the sum of four uniforms, rescaled.
    double gaussianish() {
        return (uniform() + uniform() + uniform() + uniform() - 2.0) * 1.7320508075688772;
    }

  private:
    std::uint64_t state_;
};

double smoothstep(double edge0, double edge1, double x) {
    const double t = std::clamp((x - edge0) / (edge1 - edge0), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

// Smooth random texture in [0, 1]: random values on a coarse lattice, blended between.
class ValueNoise {
  public:
    ValueNoise(Random& random, double cellSize) : cell_(cellSize) {
        columns_ = int(kWide / cellSize) + 2;
        rows_ = int(kHigh / cellSize) + 2;
        lattice_.resize(std::size_t(columns_ * rows_));
        for (double& v : lattice_) {
            v = random.uniform();
        }
    }
    double at(double x, double y) const {
        const double gx = x / cell_, gy = y / cell_;
        const int ix = int(gx), iy = int(gy);
        const double fx = smoothstep(0.0, 1.0, gx - ix), fy = smoothstep(0.0, 1.0, gy - iy);
        const double top = lerp(value(ix, iy), value(ix + 1, iy), fx);
        const double bottom = lerp(value(ix, iy + 1), value(ix + 1, iy + 1), fx);
        return lerp(top, bottom, fy);
    }

  private:
    static double lerp(double a, double b, double t) { return a + (b - a) * t; }
    double value(int ix, int iy) const { return lattice_[std::size_t(iy * columns_ + ix)]; }

    double cell_;
    int columns_ = 0;
    int rows_ = 0;
    std::vector<double> lattice_;
};

struct Channels {
    std::vector<double> red = std::vector<double>(kWide * kHigh, 0.0);
    std::vector<double> green = std::vector<double>(kWide * kHigh, 0.0);
    std::vector<double> blue = std::vector<double>(kWide * kHigh, 0.0);
};

// A soft-edged, textured ellipse, brightest in the cytoplasm with a dimmer nucleus.
struct Cell {
    double cx, cy;        // centre
    double a, b;          // semi-axes
    double ux, uy;        // unit vector along the first axis
    double red, green;    // peak intensities
    double nucleusDepth;  // 0: no visible nucleus

    // 0 outside, 1 deep inside, as the ellipse's normalised radius.
    double radius(double x, double y) const {
        const double dx = x - cx, dy = y - cy;
        const double u = (dx * ux + dy * uy) / a, v = (-dx * uy + dy * ux) / b;
        return std::sqrt(u * u + v * v);
    }
};

void paintCell(Channels& image, const Cell& cell, const ValueNoise& coarse,
               const ValueNoise& fine) {
    const double reach = std::max(cell.a, cell.b) * 1.2;
    const int x0 = std::max(0, int(cell.cx - reach)),
              x1 = std::min(kWide - 1, int(cell.cx + reach));
    const int y0 = std::max(0, int(cell.cy - reach)),
              y1 = std::min(kHigh - 1, int(cell.cy + reach));
    for (int y = y0; y <= y1; ++y) {
        for (int x = x0; x <= x1; ++x) {
            const double r = cell.radius(x, y);
            const double body = 1.0 - smoothstep(0.7, 1.1, r);
            if (body <= 0.0) {
                continue;
            }
            const double nucleus = 1.0 - cell.nucleusDepth * (1.0 - smoothstep(0.2, 0.45, r));
            const double texture = 0.55 + 0.3 * coarse.at(x, y) + 0.15 * fine.at(x, y);
            const double level = body * nucleus * texture;
            const std::size_t i = std::size_t(y * kWide + x);
            image.red[i] += cell.red * level;
            image.green[i] += cell.green * level;
        }
    }
}

// A small round area of one value (a saturated spot, or a faint blue nucleus with a soft rim).
void paintSpot(std::vector<double>& channel, double cx, double cy, double radius, double value,
               bool soft) {
    for (int y = std::max(0, int(cy - radius - 1)); y <= std::min(kHigh - 1, int(cy + radius + 1));
         ++y) {
        for (int x = std::max(0, int(cx - radius - 1));
             x <= std::min(kWide - 1, int(cx + radius + 1)); ++x) {
            const double d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy)) / radius;
            const double weight = soft ? 1.0 - smoothstep(0.6, 1.0, d) : (d <= 1.0 ? 1.0 : 0.0);
            auto& v = channel[std::size_t(y * kWide + x)];
            v = std::max(v, value * weight);
        }
    }
}

Cell randomCell(Random& random, double red, double green) {
    Cell c{};
    c.a = random.between(18.0, 32.0);
    c.b = c.a * random.between(0.6, 0.95);
    double vx = random.between(-1.0, 1.0), vy = random.between(-1.0, 1.0);
    const double length = std::sqrt(vx * vx + vy * vy) + 1e-9;
    c.ux = vx / length;
    c.uy = vy / length;
    c.red = red * random.between(0.7, 1.0);
    c.green = green * random.between(0.7, 1.0);
    c.nucleusDepth = random.between(0.0, 0.5);
    return c;
}

// Places a cell where it does not touch the ones already placed; false when no room was found.
bool place(Random& random, Cell& cell, const std::vector<Cell>& placed) {
    for (int attempt = 0; attempt < 500; ++attempt) {
        cell.cx = random.between(cell.a + 6.0, kWide - cell.a - 6.0);
        cell.cy = random.between(cell.a + 6.0, kHigh - cell.a - 6.0);
        const bool free = std::none_of(placed.begin(), placed.end(), [&](const Cell& other) {
            const double dx = cell.cx - other.cx, dy = cell.cy - other.cy;
            const double gap = std::max(cell.a, cell.b) + std::max(other.a, other.b) + 4.0;
            return dx * dx + dy * dy < gap * gap;
        });
        if (free) {
            return true;
        }
    }
    return false;
}

Channels makeImage() {
    Random random(0x5EED'CE11'2024ull);
    Channels image;
    const ValueNoise coarse(random, 7.0);
    const ValueNoise fine(random, 2.5);
    const ValueNoise illumination(random, 160.0);

    std::vector<Cell> cells;
    std::vector<Cell> placed;  // footprints, one per group of overlapping cells
    const auto add = [&](double red, double green) {
        Cell c = randomCell(random, red, green);
        if (place(random, c, placed)) {
            placed.push_back(c);
            cells.push_back(c);
        }
    };
    for (int i = 0; i < 6; ++i) {
        add(random.between(140.0, 220.0), 0.0);  // red only
        add(0.0, random.between(140.0, 220.0));  // green only
    }
    for (int i = 0; i < 4; ++i) {
        // fully colocalised, in varying proportions
        add(random.between(110.0, 200.0), random.between(110.0, 200.0));
    }
    for (int i = 0; i < 4; ++i) {
        // a red and a green cell lying partly over each other; yellow where they meet
        Cell red = randomCell(random, random.between(140.0, 210.0), 0.0);
        Cell footprint = red;
        footprint.a *= 1.8;
        footprint.b = footprint.a;
        if (!place(random, footprint, placed)) {
            continue;
        }
        placed.push_back(footprint);
        red.cx = footprint.cx;
        red.cy = footprint.cy;
        Cell green = randomCell(random, 0.0, random.between(140.0, 210.0));
        const double shift = (red.a + green.a) * random.between(0.35, 0.6);
        green.cx = red.cx + shift * red.ux;
        green.cy = red.cy + shift * red.uy;
        cells.push_back(red);
        cells.push_back(green);
    }
    for (const Cell& c : cells) {
        paintCell(image, c, coarse, fine);
    }

    // Faint blue nuclei in two of the cells.
    for (std::size_t k = 0; k < 2 && k < cells.size(); ++k) {
        const Cell& c = cells[cells.size() / 2 + k];
        paintSpot(image.blue, c.cx, c.cy, c.b * 0.4, random.between(30.0, 45.0), true);
    }

    // Dim, unevenly lit, noisy background in red and green only; cells get shot noise.
    for (int y = 0; y < kHigh; ++y) {
        for (int x = 0; x < kWide; ++x) {
            const std::size_t i = std::size_t(y * kWide + x);
            const double light = 6.0 + 4.0 * illumination.at(x, y);
            image.red[i] += light + 1.6 * random.gaussianish() +
                            0.5 * std::sqrt(image.red[i]) * random.gaussianish();
            image.green[i] += light + 1.0 + 1.6 * random.gaussianish() +
                              0.5 * std::sqrt(image.green[i]) * random.gaussianish();
            if (image.blue[i] > 0.0) {
                image.blue[i] += 2.0 * random.gaussianish();
            }
        }
    }

    // A few small saturated spots inside cells: red, green and both.
    for (int k = 0; k < 6; ++k) {
        const Cell& c = cells[std::size_t(random.next() % cells.size())];
        const double sx = c.cx + random.between(-0.4, 0.4) * c.a;
        const double sy = c.cy + random.between(-0.4, 0.4) * c.b;
        const double radius = random.between(1.5, 2.8);
        if (k % 3 != 1) {
            paintSpot(image.red, sx, sy, radius, 255.0, false);
        }
        if (k % 3 != 0) {
            paintSpot(image.green, sx, sy, radius, 255.0, false);
        }
    }
    return image;
}

std::uint8_t toByte(double v) {
    return std::uint8_t(std::clamp(std::floor(v + 0.5), 0.0, 255.0));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make-sample OUTPUT.tif\n");
        return 2;
    }
    const Channels image = makeImage();
    auto bitmap = pv::Bitmap::create(kWide, kHigh, 3, false, false);
    if (!bitmap) {
        std::fprintf(stderr, "make-sample: out of memory\n");
        return 1;
    }
    for (int y = 0; y < kHigh; ++y) {
        std::uint8_t* row = bitmap->row(0, y);
        for (int x = 0; x < kWide; ++x) {
            const std::size_t i = std::size_t(y * kWide + x);
            row[3 * x + 0] = toByte(image.red[i]);
            row[3 * x + 1] = toByte(image.green[i]);
            row[3 * x + 2] = toByte(image.blue[i]);
        }
    }
    const pv::Status status = pv::writeTiffAtomically(argv[1], *bitmap);
    if (!status) {
        std::fprintf(stderr, "make-sample: %s\n", status.error().message().c_str());
        return 1;
    }
    return 0;
}
