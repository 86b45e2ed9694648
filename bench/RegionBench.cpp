// Scatter-gram regions and background correction, per megapixel size, so that each time prints
// as a multiple of the byte-summing floor of the same bitmap.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <vector>

#include "BenchImages.h"
#include "analysis/AnalysisPass.h"
#include "analysis/RegionCensus.h"
#include "analysis/Reveal.h"
#include "analysis/ScatterGram.h"
#include "background/BackgroundCorrection.h"

namespace {

using pv::bench::fluorescenceImage;

// The outline a user draws: an oval over the bright, colocalised part of the scatter gram.
bool insideOval(pv::Point p) {
    const float dx = (p.x - 150.0f) / 90.0f;
    const float dy = (p.y - 140.0f) / 70.0f;
    return dx * dx + dy * dy <= 1.0f;
}

const pv::PairHistogram& histogramOf(int megapixels) {
    static std::map<int, std::unique_ptr<pv::PairHistogram>> cache;
    auto& slot = cache[megapixels];
    if (!slot) {
        const auto& img = fluorescenceImage(megapixels);
        slot = std::make_unique<pv::PairHistogram>();
        pv::AnalysisState state;
        std::vector<std::uint8_t> scatter(pv::kScatterGramBytes);
        pv::runAnalysisPass(img.bitmap.channels(), state, scatter.data(), *slot);
    }
    return *slot;
}

// What a region change costs after the pass: the selection from the outline and the recount.
void BM_RegionRecount(benchmark::State& state) {
    const pv::PairHistogram& histogram = histogramOf(int(state.range(0)));
    for (auto _ : state) {
        const pv::RegionSelection selection = pv::RegionSelection::fromPairTest(insideOval);
        const pv::RegionCount count = pv::countRegion(histogram, selection);
        benchmark::DoNotOptimize(count.census.totalPixelCount);
    }
}

void reveal(benchmark::State& state, bool withCopy) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    const pv::RegionSelection selection = pv::RegionSelection::fromPairTest(insideOval);
    const pv::RGBCombo pair = pv::RGBCombo::RedGreen;
    const pv::MinimumLevels levels;
    const pv::RevealColour white;
    std::optional<pv::Bitmap> target = img.bitmap.copy();
    if (!target) {
        state.SkipWithError("no memory for the copy");
        return;
    }
    for (auto _ : state) {
        if (withCopy) {
            target.reset();
            target = pv::revealedCopy(img.bitmap, pair, levels, selection, white);
        } else {
            pv::revealPixels(img.bitmap.channels(), target->writableChannels(), pair, levels,
                             selection, white);
        }
        benchmark::ClobberMemory();
    }
}

// The painting alone, into a copy made beforehand.
void BM_Reveal(benchmark::State& state) {
    reveal(state, false);
}
// The whole reveal as the controller runs it: a fresh copy painted in the same pass.
void BM_RevealWithCopy(benchmark::State& state) {
    reveal(state, true);
}

void BM_RemoveBackground(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    std::optional<pv::Bitmap> work = img.bitmap.copy();
    if (!work) {
        state.SkipWithError("no memory for the copy");
        return;
    }
    pv::BackgroundSettings settings;
    settings.channel = pv::BackgroundChannel(state.range(1));
    settings.redThreshold = settings.greenThreshold = settings.blueThreshold = 25;
    for (auto _ : state) {
        pv::removeBackground(work->writableChannels(), settings);
        benchmark::ClobberMemory();
    }
}

}  // namespace

BENCHMARK(BM_RegionRecount)->Arg(1)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Reveal)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RevealWithCopy)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RemoveBackground)
    ->Args({16, 3})
    ->Args({64, 3})
    ->Args({64, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
