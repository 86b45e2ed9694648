#pragma once

// Measures written out from their definitions over a list of pixels, to check the fast ones.

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

namespace pv::test {

// Every line of the further measures' block, in report order.
inline const std::vector<std::string> kMeasureNames = {"Spearman",
                                                       "Kendall",
                                                       "ICQ",
                                                       "Costes Y threshold",
                                                       "Costes X threshold",
                                                       "Costes slope",
                                                       "Costes intercept",
                                                       "Costes Rr",
                                                       "tM1",
                                                       "tM2",
                                                       "Observed r",
                                                       "Shuffled r mean",
                                                       "Shuffled r SD",
                                                       "P-value",
                                                       "PSF size"};

using Values = std::vector<long double>;

// Pearson's r; NaN with fewer than two values or a constant list.
inline double pearson(const Values& a, const Values& b) {
    const long double n = a.size();
    if (a.size() < 2) {
        return NAN;
    }
    const long double ma = std::accumulate(a.begin(), a.end(), 0.0L) / n;
    const long double mb = std::accumulate(b.begin(), b.end(), 0.0L) / n;
    long double ab = 0, aa = 0, bb = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        ab += (a[i] - ma) * (b[i] - mb);
        aa += (a[i] - ma) * (a[i] - ma);
        bb += (b[i] - mb) * (b[i] - mb);
    }
    if (aa == 0 || bb == 0) {
        return NAN;
    }
    return double(ab / std::sqrt(aa * bb));
}

// Ranks by sorting, ties sharing their average rank.
inline Values ranks(const Values& v) {
    std::vector<std::size_t> order(v.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(),
              [&v](std::size_t a, std::size_t b) { return v[a] < v[b]; });
    Values r(v.size());
    for (std::size_t i = 0; i < order.size();) {
        std::size_t j = i;
        while (j < order.size() && v[order[j]] == v[order[i]]) {
            ++j;
        }
        for (std::size_t k = i; k < j; ++k) {
            r[order[k]] = (i + 1 + j) / 2.0L;  // ranks i+1 ... j
        }
        i = j;
    }
    return r;
}

}  // namespace pv::test
