#include "controller/MeasureTexts.h"

#include "controller/ResultTexts.h"
#include "core/Localization.h"

namespace pv {

namespace {

std::string valueText(double v) {
    return numberText("%0.4f", v);
}

std::string countText(std::optional<int> v) {
    return v ? printfText("%d", *v) : std::string("nan");
}

}  // namespace

FurtherMeasureResults histogramMeasures(const MeasureRequest& request, const JointCounts& counts) {
    return histogramMeasures(request, pairCountsOf(counts));
}

FurtherMeasureResults histogramMeasures(const MeasureRequest& request, PairCounts counts) {
    FurtherMeasureResults r;
    r.asked = request;
    r.spearman = request.spearman ? spearmansRho(counts) : 0.0;
    r.kendall = request.kendall ? kendallsTauB(counts) : 0.0;
    r.icq = request.icq ? intensityCorrelationQuotient(counts) : 0.0;
    if (request.costes) {
        r.costes = costesThresholds(counts);
    }
    return r;
}

std::vector<std::string> furtherMeasureNames(const MeasureRequest& request) {
    FurtherMeasureResults none;
    none.asked = request;
    std::vector<std::string> names;
    for (ResultLine& line : furtherMeasureLines(none)) {
        names.push_back(std::move(line.name));
    }
    return names;
}

std::vector<ResultLine> furtherMeasureLines(const FurtherMeasureResults& r) {
    std::vector<ResultLine> lines;
    auto add = [&lines](const char* name, std::string value) {
        lines.push_back({tr(name), std::move(value)});
    };
    const MeasureRequest& asked = r.asked;
    if (asked.spearman) {
        add("Spearman", valueText(r.spearman));
    }
    if (asked.kendall) {
        add("Kendall", valueText(r.kendall));
    }
    if (asked.icq) {
        add("ICQ", valueText(r.icq));
    }
    if (asked.costes) {
        const CostesResult& c = r.costes;
        const auto& t = c.thresholds;
        add("Costes Y threshold", countText(t ? std::optional(t->y) : std::nullopt));
        add("Costes X threshold", countText(t ? std::optional(t->x) : std::nullopt));
        add("Costes slope", valueText(c.slope));
        add("Costes intercept", valueText(c.intercept));
        add("Costes Rr", valueText(c.pearsonsAbove));
        add("tM1", valueText(c.tM1));
        add("tM2", valueText(c.tM2));
    }
    if (asked.significance) {
        const SignificanceResult& s = r.significance;
        add("Observed r", valueText(s.observedR));
        add("Shuffled r mean", valueText(s.shuffledMean));
        add("Shuffled r SD", valueText(s.shuffledSD));
        add("P-value", valueText(s.pValue));
        add("PSF size", countText(s.psfSize));
    }
    return lines;
}

}  // namespace pv
