#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "analysis/FurtherMeasures.h"
#include "analysis/Significance.h"
#include "output/ResultFields.h"

namespace pv {

// Which further measures the user asks for, and how the significance test runs.
struct MeasureRequest {
    bool spearman = false;
    bool kendall = false;
    bool icq = false;
    bool costes = false;
    bool significance = false;
    int shuffles = 200;
    std::uint64_t seed = 1;
    std::optional<int> psfSize;  // block side in pixels; estimated from the Y channel without

    bool any() const { return spearman || kendall || icq || costes || significance; }
};

// The results of one press of the further measures' Calculate.
struct FurtherMeasureResults {
    MeasureRequest asked;
    double spearman = 0.0;
    double kendall = 0.0;
    double icq = 0.0;
    CostesResult costes;
    SignificanceResult significance;
};

// The measures of the picture's joint counts that the request asks for; the significance
// result is left to whoever runs the test.
FurtherMeasureResults histogramMeasures(const MeasureRequest& request, const JointCounts& counts);
FurtherMeasureResults histogramMeasures(const MeasureRequest& request, PairCounts counts);

// The names of the lines the request gives, in report order (also the batch table's headers).
std::vector<std::string> furtherMeasureNames(const MeasureRequest& request);

// The lines of the report block: "%0.4f" unless a count of pixels, undefined values "nan".
std::vector<ResultLine> furtherMeasureLines(const FurtherMeasureResults& results);

}  // namespace pv
