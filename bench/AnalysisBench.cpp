#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <memory>
#include <vector>

#include "BenchImages.h"
#include "analysis/AnalysisPass.h"
#include "analysis/LabelAnalysis.h"
#include "analysis/ScatterGram.h"

namespace {

using pv::bench::fluorescenceImage;

// The floor: one plain pass over every byte of the same working bitmap.
void BM_Floor(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    const std::uint8_t* data = img.bitmap.bitmapData();
    const std::size_t n = img.bitmap.totalBytes();
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < n; ++i) {
            sum += data[i];
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(n));
}

void runPass(benchmark::State& state, const pv::bench::BenchImage& img, unsigned threads) {
    pv::AnalysisState analysis;
    std::vector<std::uint8_t> scatter(pv::kScatterGramBytes);
    pv::PairHistogram histogram;
    for (auto _ : state) {
        pv::runAnalysisPass(img.bitmap.channels(), analysis, scatter.data(), histogram, threads);
        benchmark::DoNotOptimize(analysis.sums.sumPixelsXYAxis);
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) *
                            std::int64_t(img.bitmap.totalBytes()));
}

// The automatic pass as the program runs it (one worker per core).
void BM_AnalysisPass(benchmark::State& state) {
    runPass(state, fluorescenceImage(int(state.range(0))), 0);
}

void BM_AnalysisPassOneThread(benchmark::State& state) {
    runPass(state, fluorescenceImage(int(state.range(0))), 1);
}

// After background correction most of a picture is one value: runs of a single bin.
void BM_AnalysisPassBlack(benchmark::State& state) {
    static std::map<int, std::unique_ptr<pv::bench::BenchImage>> black;
    auto& img = black[int(state.range(0))];
    if (!img) {
        img = std::make_unique<pv::bench::BenchImage>(
            pv::bench::makeFluorescenceImage(int(state.range(0))));
        std::uint8_t* data = img->bitmap.bitmapData();
        std::replace_if(
            data, data + img->bitmap.totalBytes(), [](auto v) { return v < 40; }, 0);
    }
    runPass(state, *img, unsigned(state.range(1)));
}

// Cell by cell: the picture cut into a grid of about 5,000 square cells with a background gap
// between them, analysed with a region as the command line does, against one whole pass.
void BM_LabelAnalysis(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    const int w = img.bitmap.pixelsWide(), h = img.bitmap.pixelsHigh();
    const int side = w / 71;
    pv::LabelImage labels{w, h, std::vector<std::uint16_t>(std::size_t(w) * std::size_t(h))};
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            const bool gap = r % side < 2 || c % side < 2;
            labels.labels[std::size_t(r) * std::size_t(w) + std::size_t(c)] =
                gap ? 0 : std::uint16_t(std::min(r / side, 70) * 71 + std::min(c / side, 70) + 1);
        }
    }
    const pv::RegionSelection region =
        pv::RegionSelection::fromPairTest([](pv::Point p) { return p.x > 40 && p.y > 40; });
    std::size_t cells = 0;
    for (auto _ : state) {
        const auto results =
            pv::analyseLabels(img.bitmap.channels(), labels, pv::RGBCombo::RedGreen, {}, &region);
        cells = results.size();
        benchmark::DoNotOptimize(results.data());
    }
    state.counters["cells"] = double(cells);
    state.SetLabel("vs BM_AnalysisPass/" + std::to_string(state.range(0)));
}

}  // namespace

BENCHMARK(BM_LabelAnalysis)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Floor)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_AnalysisPass)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_AnalysisPassOneThread)
    ->Arg(1)
    ->Arg(16)
    ->Arg(64)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_AnalysisPassBlack)
    ->Args({16, 0})
    ->Args({16, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
