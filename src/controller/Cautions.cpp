#include "controller/Cautions.h"

#include <cctype>
#include <cmath>
#include <tuple>
#include <utility>

#include "controller/ResultTexts.h"
#include "core/Localization.h"

namespace pv {

namespace {

__extension__ using Int128 = __int128;

std::string lowercase(std::string s) {
    for (char& c : s) {
        c = char(std::tolower(static_cast<unsigned char>(c)));
    }
    return s;
}

// What printf makes of a NaN or an infinity: the field holds no number.
bool undefined(const std::string& text) {
    return text.find("nan") != std::string::npos || text.find("inf") != std::string::npos;
}

// "Rr", "Rr and R", "Rr, R and k1".
std::string nameList(const std::vector<std::string>& names) {
    std::string out;
    for (std::size_t i = 0; i < names.size(); ++i) {
        out += i == 0 ? "" : i + 1 == names.size() ? " and " : ", ";
        out += names[i];
    }
    return out;
}

// Collects undefined coefficients under the reason they share, in the order reasons arise.
class Reasons {
  public:
    void add(const std::string& reason, const std::string& coefficient) {
        for (auto& [text, names] : reasons_) {
            if (text == reason) {
                names.push_back(coefficient);
                return;
            }
        }
        reasons_.push_back({reason, {coefficient}});
    }

    void appendTo(std::vector<Caution>& out) const {
        for (const auto& [reason, names] : reasons_) {
            const std::string verb = names.size() == 1 ? "is" : "are";
            out.push_back({tr("%1 %2 undefined: %3", {nameList(names), verb, reason}), names});
        }
    }

  private:
    std::vector<std::pair<std::string, std::vector<std::string>>> reasons_;
};

// n·ΣV² − (ΣV)² is zero exactly when every counted value is the same.
bool constant(std::int64_t n, std::int64_t sum, std::int64_t sumOfSquares) {
    return Int128(n) * sumOfSquares == Int128(sum) * sum;
}

// Asked of every file of a batch, so it stops at the first pair off the diagonal, which in a
// real picture comes within the first row.
bool channelsIdentical(const PairHistogram& h) {
    if (h.counts.size() != std::size_t(PairHistogram::kBins)) {
        return false;
    }
    bool any = false;
    for (int t = 0; t < h.occurringThirdStates(); ++t) {
        for (int y = 0; y < 256; ++y) {
            for (int x = 0; x < 256; ++x) {
                if (h.count(t, y, x) != 0) {
                    if (y != x) {
                        return false;
                    }
                    any = any || y > 0;
                }
            }
        }
    }
    return any;
}

}  // namespace

std::vector<Caution> analysisCautions(const CautionFacts& facts) {
    std::vector<Caution> out;
    const PairLabels labels = pairLabels(facts.analysis.rgbCombo);
    const std::string y = lowercase(labels.yAxis), x = lowercase(labels.xAxis);
    if (facts.pages > 1) {
        out.push_back({tr("only page 1 of %1 was analysed", {std::to_string(facts.pages)}), {}});
    }
    if (facts.masked && facts.analysis.census.totalPixelCount == 0) {
        // Every other caution would only repeat this one.
        out.push_back({tr("the mask holds no pixel: there is nothing to analyse"), {}});
        return out;
    }
    if (channelsIdentical(facts.histogram)) {
        out.push_back({tr("the %1 and %2 channels are identical in every pixel: is the picture "
                          "grey?",
                          {y, x}),
                       {}});
    }

    const PairSums& s = facts.analysis.sums;
    const ResultFields& f = facts.fields;
    const std::string noSignal =
        facts.backgroundCorrected
            ? tr("no pixel has %1 or %2 above 0 after the background correction", {y, x})
            : tr("no pixel has %1 or %2 above 0", {y, x});
    const std::string yZero = tr("the %1 channel is 0 in every pixel", {y});
    const std::string xZero = tr("the %1 channel is 0 in every pixel", {x});
    const auto zeroReason = [&](bool yChannel) {
        return s.sumPixelCount == 0 ? noSignal : yChannel ? yZero : xZero;
    };
    Reasons image;
    if (undefined(f.coefficient_Rr)) {
        const bool yFlat = constant(s.sumPixelCount, s.sumPixelsYAxis, s.sumPixelsYSquaredAxis);
        const bool xFlat = constant(s.sumPixelCount, s.sumPixelsXAxis, s.sumPixelsXSquaredAxis);
        const std::string reason = s.sumPixelCount == 0    ? noSignal
                                   : s.sumPixelsYAxis == 0 ? yZero
                                   : s.sumPixelsXAxis == 0 ? xZero
                                   : yFlat && xFlat
                                       ? tr("the %1 and %2 channels are constant", {y, x})
                                   : yFlat ? tr("the %1 channel is constant", {y})
                                           : tr("the %1 channel is constant", {x});
        image.add(reason, "Rr");
    }
    if (undefined(f.coefficient_R)) {
        image.add(zeroReason(s.sumPixelsYAxis == 0), "R");
    }
    // k and m of the Y channel divide by its sums, those of the X channel by its own.
    const std::tuple<const std::string*, const char*, bool> oneChannel[] = {
        {&f.coefficient_k1, "k1", true},
        {&f.coefficient_k2, "k2", false},
        {&f.coefficient_m1, "m1", true},
        {&f.coefficient_m2, "m2", false}};
    for (const auto& [text, name, yChannel] : oneChannel) {
        if (undefined(*text)) {
            image.add(zeroReason(yChannel), name);
        }
    }
    image.appendTo(out);

    const RegionSums& r = facts.analysis.roiSums;
    Reasons region;
    const std::string empty = tr("the region holds no pixels with %1 or %2 above 0", {y, x});
    if (undefined(f.coefficient_M1)) {
        region.add(
            r.sumROIPixelsXAxis == 0 ? empty : tr("no pixel of the region has %1 above 0", {y}),
            "M1");
    }
    if (undefined(f.coefficient_M2)) {
        region.add(
            r.sumROIPixelsYAxis == 0 ? empty : tr("no pixel of the region has %1 above 0", {x}),
            "M2");
    }
    region.appendTo(out);
    return out;
}

std::vector<Caution> furtherMeasureCautions(const FurtherMeasureResults& r, RGBCombo combo) {
    const PairLabels labels = pairLabels(combo);
    const std::string y = lowercase(labels.yAxis), x = lowercase(labels.xAxis);
    const MeasureRequest& asked = r.asked;
    Reasons reasons;
    const std::string ranked =
        tr("the pixels with %1 or %2 above 0 hold a single value of a channel, or none", {y, x});
    for (const auto& [on, value, name] :
         {std::tuple(asked.spearman, r.spearman, "Spearman"),
          std::tuple(asked.kendall, r.kendall, "Kendall"), std::tuple(asked.icq, r.icq, "ICQ")}) {
        if (on && std::isnan(value)) {
            reasons.add(ranked, name);
        }
    }
    std::vector<Caution> out;
    reasons.appendTo(out);
    if (asked.costes && !r.costes.thresholds) {
        out.push_back({tr("the Costes thresholds are undefined: a channel is constant, or the %1 "
                          "and %2 channels do not vary together",
                          {y, x}),
                       {}});
    }
    const SignificanceResult& s = r.significance;
    if (asked.significance && std::isnan(s.pValue)) {
        out.push_back({s.blocks < 2 ? tr("the significance test has no answer: fewer than two "
                                         "whole blocks of %1 x %1 pixels fit the picture",
                                         {std::to_string(s.psfSize)})
                                    : tr("the significance test has no answer: a channel is "
                                         "constant over the analysed pixels"),
                       {}});
    }
    return out;
}

}  // namespace pv
