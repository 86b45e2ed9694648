#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <numeric>
#include <vector>

#include "BenchImages.h"
#include "analysis/AnalysisPass.h"
#include "analysis/LabelAnalysis.h"
#include "analysis/LabelMeasures.h"
#include "analysis/ScatterGram.h"
#include "controller/MeasureTexts.h"

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

// About 5,000 square cells in a grid with a background gap between them, over a picture.
const pv::LabelImage& cellGrid(int megapixels) {
    static std::map<int, std::unique_ptr<pv::LabelImage>> grids;
    std::unique_ptr<pv::LabelImage>& grid = grids[megapixels];
    if (!grid) {
        const auto& img = fluorescenceImage(megapixels);
        const int w = img.bitmap.pixelsWide(), h = img.bitmap.pixelsHigh();
        const int side = w / 71;
        grid = std::make_unique<pv::LabelImage>(
            pv::LabelImage{w, h, pv::LabelImage::Labels(std::size_t(w) * std::size_t(h), 0)});
        for (int r = 0; r < h; ++r) {
            for (int c = 0; c < w; ++c) {
                const bool gap = r % side < 2 || c % side < 2;
                grid->labels[std::size_t(r) * std::size_t(w) + std::size_t(c)] =
                    gap ? 0
                        : std::uint16_t(std::min(r / side, 70) * 71 + std::min(c / side, 70) + 1);
            }
        }
    }
    return *grid;
}

std::size_t analyseCells(const pv::bench::BenchImage& img, const pv::LabelImage& labels,
                         unsigned threads = 0) {
    static const pv::RegionSelection region =
        pv::RegionSelection::fromPairTest([](pv::Point p) { return p.x > 40 && p.y > 40; });
    const auto results = pv::analyseLabels(img.bitmap.channels(), labels, pv::RGBCombo::RedGreen,
                                           {}, &region, {}, threads);
    benchmark::DoNotOptimize(results.data());
    return results.size();
}

// Cell by cell, analysed with a region as the command line does, against one whole pass.
void BM_LabelAnalysis(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    const pv::LabelImage& labels = cellGrid(int(state.range(0)));
    std::size_t cells = 0;
    for (auto _ : state) {
        cells = analyseCells(img, labels);
    }
    state.counters["cells"] = double(cells);
    state.SetLabel("vs BM_AnalysisPass/" + std::to_string(state.range(0)));
}

// The same two in turns, each cell-by-cell analysis right after a whole pass, so that whatever
// else the machine does at a moment weighs on both; the median of the per-turn ratios.
void BM_LabelAnalysisPaired(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    const pv::LabelImage& labels = cellGrid(int(state.range(0)));
    const auto threads = unsigned(state.range(1));  // 0: one per core
    pv::AnalysisState analysis;
    std::vector<std::uint8_t> scatter(pv::kScatterGramBytes);
    pv::PairHistogram histogram;
    std::vector<double> ratios;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        pv::runAnalysisPass(img.bitmap.channels(), analysis, scatter.data(), histogram, threads);
        const auto passed = std::chrono::steady_clock::now();
        analyseCells(img, labels, threads);
        const auto end = std::chrono::steady_clock::now();
        const double cells = std::chrono::duration<double>(end - passed).count();
        state.SetIterationTime(cells);
        ratios.push_back(cells / std::chrono::duration<double>(passed - start).count());
    }
    std::sort(ratios.begin(), ratios.end());
    state.counters["median_vs_pass"] = ratios.empty() ? 0 : ratios[ratios.size() / 2];
}

// Every cell's histogram measures, as --labels with --measures spearman,kendall,icq,costes
// works them out after the cells' pass: the labelled pixels' bins sorted by label, then each
// cell's pairs, counted in a reused histogram, and the measures of them.
void BM_LabelMeasures(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    const pv::LabelImage& labels = cellGrid(int(state.range(0)));
    std::vector<std::uint32_t> cells(71 * 71);
    std::iota(cells.begin(), cells.end(), 1u);
    pv::MeasureRequest request;
    request.spearman = request.kendall = request.icq = request.costes = true;
    std::vector<pv::FurtherMeasureResults> results(cells.size());
    std::size_t bins = 0;
    for (auto _ : state) {
        const pv::LabelBins sorted =
            pv::binsByLabel(img.bitmap.channels(), labels, pv::RGBCombo::RedGreen);
        pv::forEachLabelCounts(sorted, cells, [&](std::size_t i, pv::PairCounts counts) {
            results[i] = pv::histogramMeasures(request, counts);
        });
        bins = sorted.bins.size();
        benchmark::DoNotOptimize(results.data());
    }
    state.counters["cells"] = double(cells.size());
    state.counters["sorted_MB"] = double(bins * sizeof(std::uint16_t)) / 1e6;
    state.SetLabel("vs BM_AnalysisPass/" + std::to_string(state.range(0)));
}

}  // namespace

BENCHMARK(BM_LabelMeasures)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LabelAnalysis)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LabelAnalysisPaired)
    ->Args({64, 0})
    ->Args({64, 1})
    ->Unit(benchmark::kMillisecond)
    ->MinTime(3.0)
    ->UseManualTime();
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
