#include <benchmark/benchmark.h>

#include <vector>

#include "BenchImages.h"
#include "analysis/AnalysisPass.h"
#include "analysis/FurtherMeasures.h"
#include "analysis/ScatterGram.h"
#include "analysis/Significance.h"

namespace {

using pv::bench::fluorescenceImage;

constexpr int kShuffles = 200;

// Every measure of the joint histogram, after the pass: the time must not grow with the picture.
void BM_HistogramMeasures(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    pv::PairHistogram histogram;
    pv::countPairs(img.bitmap.channels(), pv::RGBCombo::RedGreen, {}, histogram);
    for (auto _ : state) {
        const pv::JointCounts counts = pv::jointCountsOf(histogram);
        benchmark::DoNotOptimize(pv::spearmansRho(counts));
        benchmark::DoNotOptimize(pv::kendallsTauB(counts));
        benchmark::DoNotOptimize(pv::intensityCorrelationQuotient(counts));
        benchmark::DoNotOptimize(pv::costesThresholds(counts).thresholds);
    }
    if (state.range(0) > 1) {
        state.SetLabel("vs BM_HistogramMeasures/1");
    }
}

// The floor of the significance test: as many automatic passes as it has shuffles.
void BM_AnalysisPasses(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    pv::AnalysisState analysis;
    std::vector<std::uint8_t> scatter(pv::kScatterGramBytes);
    pv::PairHistogram histogram;
    for (auto _ : state) {
        for (int i = 0; i < kShuffles; ++i) {
            pv::runAnalysisPass(img.bitmap.channels(), analysis, scatter.data(), histogram);
        }
        benchmark::DoNotOptimize(analysis.sums.sumPixelsXYAxis);
    }
}

// The whole test as the program runs it: the block side estimated (second argument 0) or given,
// the pixels laid out by block, then the shuffles on every core. Small blocks are the hard case:
// more of them to shuffle, each a shorter run.
void BM_Significance(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    int side = 0;
    for (auto _ : state) {
        side = state.range(1) > 0 ? int(state.range(1))
                                  : pv::estimatePsfSize(img.bitmap.channels(), 0);
        pv::BlockShuffleTest test(side);
        test.addPlane(img.bitmap.channels(), pv::RGBCombo::RedGreen);
        benchmark::DoNotOptimize(test.run(kShuffles, 1)->pValue);
    }
    state.counters["psf"] = side;
    state.SetLabel("vs BM_AnalysisPasses/" + std::to_string(state.range(0)));
}

}  // namespace

BENCHMARK(BM_HistogramMeasures)->Arg(1)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_AnalysisPasses)->Arg(16)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Significance)
    ->Args({16, 0})
    ->Args({16, 3})
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
