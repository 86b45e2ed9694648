#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "analysis/AnalysisState.h"
#include "analysis/PairHistogram.h"
#include "controller/MeasureTexts.h"
#include "output/ResultFields.h"

namespace pv {

// A result that reads like an answer but is none, and why, in the words a careful colleague
// would use. The report keeps its texts; this goes beside them.
struct Caution {
    std::string text;
    // The coefficients it explains ("Rr", "R", "k1", "k2", "m1", "m2", "M1", "M2"), if any.
    std::vector<std::string> coefficients;

    bool operator==(const Caution&) const = default;
};

struct CautionFacts {
    const AnalysisState& analysis;
    const ResultFields& fields;
    const PairHistogram& histogram;
    bool backgroundCorrected = false;
    std::uint32_t pages = 1;  // of the file; only the first is analysed
    bool masked = false;      // a mask limits the pixels analysed
};

// The cautions the results as shown call for: pages left out, channels that are identical in
// every pixel, and
// every coefficient that reads "nan" or "inf" with the reason its formula had no answer.
std::vector<Caution> analysisCautions(const CautionFacts& facts);

// The further measures that read "nan", with the reason, named as the report names them.
std::vector<Caution> furtherMeasureCautions(const FurtherMeasureResults& results, RGBCombo combo);

}  // namespace pv
