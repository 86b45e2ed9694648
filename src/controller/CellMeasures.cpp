#include "controller/CellMeasures.h"

#include <new>

#include "analysis/LabelMeasures.h"
#include "core/Localization.h"

namespace pv {

Result<std::vector<FurtherMeasureResults>> cellFurtherMeasures(
    const FurtherMeasureResults& picture, const ChannelView& view, const LabelImage& labels,
    std::span<const std::uint32_t> cells, RGBCombo combo, const MaskView& mask,
    const std::string& labelPath, unsigned threads) {
    const Error memoryShort{labelPath,
                            tr("There is not enough memory for the cells' further measures.")};
    MeasureRequest histogramOnly = picture.asked;
    histogramOnly.significance = false;
    std::vector<FurtherMeasureResults> results(cells.size());
    try {
        const LabelBins bins = binsByLabel(view, labels, combo, mask, threads);
        forEachLabelCounts(
            bins, cells,
            [&](std::size_t i, const JointCounts& counts) {
                results[i] = histogramMeasures(histogramOnly, counts);
                results[i].asked = picture.asked;
            },
            threads);
    } catch (const std::bad_alloc&) {
        return memoryShort;
    }
    if (picture.asked.significance) {
        const MeasureRequest& asked = picture.asked;
        const auto tests =
            labelSignificance(view, labels, cells, combo, mask, picture.significance.psfSize,
                              asked.shuffles, asked.seed, threads);
        if (!tests) {
            return memoryShort;
        }
        for (std::size_t i = 0; i < cells.size(); ++i) {
            results[i].significance = (*tests)[i];
        }
    }
    return results;
}

}  // namespace pv
