#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "controller/PixmeraVeltroController.h"
#include "controller/StackBrowser.h"
#include "core/Result.h"
#include "image/LabelImage.h"

namespace pv {

// Where a region's edge runs: 1 for each pixel inside a region (a value other than 0) with a
// neighbour above, below, left or right that holds another value, 0 elsewhere. Rows of `wide`,
// top row first; valueAt(x, y) gives a pixel's value.
template <class ValueAt>
std::vector<std::uint8_t> outlineOf(int wide, int high, ValueAt valueAt) {
    std::vector<std::uint8_t> edge(std::size_t(wide) * std::size_t(high), 0);
    for (int y = 0; y < high; ++y) {
        for (int x = 0; x < wide; ++x) {
            const auto v = valueAt(x, y);
            if (v == 0) {
                continue;
            }
            const bool differs =
                (x > 0 && valueAt(x - 1, y) != v) || (x + 1 < wide && valueAt(x + 1, y) != v) ||
                (y > 0 && valueAt(x, y - 1) != v) || (y + 1 < high && valueAt(x, y + 1) != v);
            edge[std::size_t(y) * std::size_t(wide) + std::size_t(x)] = differs ? 1 : 0;
        }
    }
    return edge;
}

// The mask's edge, by outlineOf; nothing without a mask.
std::vector<std::uint8_t> maskOutline(const PixmeraVeltroController& controller);

// A label image over the picture, each cell's results at hand for the cell the user points
// at. The results are worked out for all cells in one pass, when first asked for after the
// labels or the picture's results changed (another picture, mask or pair, Calculate, the
// region), never per question.
class CellLabels {
  public:
    CellLabels(PixmeraVeltroController& controller, const StackBrowser& stack)
        : controller_(controller), stack_(stack) {}

    // Refused, naming the file, when it cannot be read or is not the picture's size; the
    // labels shown before stay then.
    Status load(const std::string& path);
    void clear();
    // Labels apply to the picture they were loaded over, or to every slice of the stack it was
    // a slice of; any other picture hides them for good.
    bool shown() const;
    const LabelImage& labels() const { return labels_; }
    const std::string& path() const { return path_; }
    // The edges of the cells, by outlineOf.
    const std::vector<std::uint8_t>& outline() const { return outline_; }

    // The label under pixel (x, y); 0 outside the cells or the picture.
    std::uint32_t labelAt(int x, int y) const;
    // The cell's results; null for the background or a label that holds no pixel (inside the
    // mask).
    const PixmeraVeltroController::CellFields* cell(std::uint32_t label);
    // The rows a panel shows of the cell: name and value. Once the picture's further measures
    // are calculated, the cell's follow: those of its histogram at once, the significance test's
    // once its result has been taken.
    std::vector<std::pair<std::string, std::string>> cellRows(std::uint32_t label);

    // The cell's own significance test, for a front end to run off its event loop with the
    // shuffles and seed of the picture's further measures. Due when those hold a test, and the
    // cell has neither a result nor a test that ended without one since it was chosen.
    bool testDue(std::uint32_t label);
    Result<BlockShuffleTest> significanceTest(std::uint32_t label);
    // How the test of the cell made at stamp() ended: with a result, kept for the cell, or
    // without (cancelled, memory short). False, and nothing kept, when the cells' results have
    // been worked out again since.
    bool takeSignificance(std::uint32_t label, std::uint64_t stamp,
                          const std::optional<SignificanceResult>& result);
    // The user chose the cell (again): a test that ended without a result may run again.
    void chose(std::uint32_t label);
    // Changes whenever the cells' results are worked out again.
    std::uint64_t stamp() const { return stamp_; }

  private:
    PixmeraVeltroController& controller_;
    const StackBrowser& stack_;
    std::weak_ptr<const Bitmap> picture_;  // loaded over
    std::string stackPath_;                // of the stack browsed then
    LabelImage labels_;
    std::string path_;
    std::vector<std::uint8_t> outline_;
    std::vector<PixmeraVeltroController::CellFields> cells_;  // by increasing label
    // What cells_ were worked out for: the picture's fields, the picture and the mask.
    struct Basis {
        ResultFields fields;
        std::weak_ptr<const Bitmap> picture;
        const std::uint8_t* mask = nullptr;
    };
    Basis basis() const;
    bool current() const;
    // Starts over the results of the cells' own tests.
    void restamp();
    Basis basis_;
    std::uint64_t stamp_ = 0;
    std::map<std::uint32_t, SignificanceResult> tested_;  // of the cells' own tests
    std::uint32_t untested_ = 0;  // the cell whose test ended without a result
};

}  // namespace pv
