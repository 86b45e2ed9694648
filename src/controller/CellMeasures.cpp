#include "controller/CellMeasures.h"

#include <new>

#include "analysis/LabelMeasures.h"
#include "core/Localization.h"

namespace pv {

Result<std::vector<FurtherMeasureResults>> cellFurtherMeasures(
    const FurtherMeasureResults& picture, const ChannelView& view, const LabelImage& labels,
    std::span<const std::uint32_t> cells, RGBCombo combo, const MaskView& mask,
    const std::string& labelPath, unsigned threads, const CellMeasureOptions& options) {
    const Error memoryShort{labelPath,
                            tr("There is not enough memory for the cells' further measures.")};
    MeasureRequest asked = picture.asked;
    asked.significance = asked.significance && options.significance;
    MeasureRequest histogramOnly = asked;
    histogramOnly.significance = false;
    std::vector<FurtherMeasureResults> results(cells.size());
    try {
        const LabelBins bins = binsByLabel(view, labels, combo, mask, threads);
        forEachLabelCounts(
            bins, cells,
            [&](std::size_t i, PairCounts counts) {
                results[i] = histogramMeasures(histogramOnly, counts);
                results[i].asked = asked;
            },
            threads);
        if (!asked.significance) {
            return results;
        }
        const std::vector<CellBox> boxes = cellBoxes(view, labels, mask);
        std::uint64_t boxed = 0;
        for (const std::uint32_t label : cells) {
            boxed += label < boxes.size() ? boxes[label].pixels() : 0;
        }
        const std::uint64_t pixels = std::uint64_t(view.width) * std::uint64_t(view.height);
        if (pixels > 0 && boxed > kMostCellBoxCover * pixels) {
            return Error{labelPath,
                         tr("the cells' bounding boxes add up to %1 pixels, %2 times the "
                            "picture's %3 (at most %4 times): the significance test of a cell "
                            "shuffles its whole box. Leave significance out of the measures for "
                            "these labels, or label compact cells",
                            {std::to_string(boxed), std::to_string(boxed / pixels),
                             std::to_string(pixels), std::to_string(kMostCellBoxCover)})};
        }
        const auto tests = labelSignificance(view, labels, boxes, cells, combo, mask,
                                             picture.significance.psfSize, asked.shuffles,
                                             asked.seed, threads, options.cancel, options.progress);
        if (!tests) {
            if (options.cancel && options.cancel()) {
                return Error{labelPath, tr("The cells' significance test was cancelled.")};
            }
            return memoryShort;
        }
        for (std::size_t i = 0; i < cells.size(); ++i) {
            results[i].significance = (*tests)[i];
        }
    } catch (const std::bad_alloc&) {
        return memoryShort;
    }
    return results;
}

}  // namespace pv
