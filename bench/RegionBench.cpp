// Scatter-gram regions, the reveal and background correction, per megapixel size, so that each
// time prints as a multiple of the byte-summing floor of the same bitmap.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <vector>

#include "BenchImages.h"
#include "analysis/AnalysisPass.h"
#include "analysis/RegionCensus.h"
#include "analysis/ScatterGram.h"
#include "background/BackgroundCorrection.h"
#include "controller/WorkingImage.h"

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

// A document holding the bench picture of the size, as the controller holds a loaded one. The
// picture borrows the bitmap, so that every benchmark of a size reads the floor's bytes.
pv::WorkingImage documentOf(int megapixels) {
    const pv::Bitmap& bitmap = fluorescenceImage(megapixels).bitmap;
    pv::WorkingImage document;
    document.load(
        pv::Picture::at72dpi(std::shared_ptr<const pv::Bitmap>(&bitmap, [](const pv::Bitmap*) {})));
    return document;
}

const pv::RegionSelection& ovalSelection() {
    static const pv::RegionSelection selection = pv::RegionSelection::fromPairTest(insideOval);
    return selection;
}

// The reveal as the document runs it from the second time on: painted over the last revealed
// picture, which nobody else holds.
void BM_Reveal(benchmark::State& state) {
    pv::WorkingImage document = documentOf(int(state.range(0)));
    const pv::AnalysisState analysis;
    document.reveal(ovalSelection(), analysis, 0);
    const pv::Bitmap* first = document.revealedImage().bitmap.get();
    for (auto _ : state) {
        document.reveal(ovalSelection(), analysis, 0);
        benchmark::ClobberMemory();
    }
    if (document.revealedImage().bitmap.get() != first) {
        state.SkipWithError("the revealed picture was not painted over");
    }
}

// The first reveal: a new bitmap each time, the last one freed before (as clearing it does).
void BM_RevealFirst(benchmark::State& state) {
    pv::WorkingImage document = documentOf(int(state.range(0)));
    const pv::AnalysisState analysis;
    for (auto _ : state) {
        document.clearReveal();
        if (!document.reveal(ovalSelection(), analysis, 0)) {
            state.SkipWithError("no memory for the revealed picture");
            return;
        }
        benchmark::ClobberMemory();
    }
}

pv::BackgroundSettings backgroundSettings(benchmark::State& state) {
    pv::BackgroundSettings settings;
    settings.channel = pv::BackgroundChannel(state.range(1));
    settings.redThreshold = settings.greenThreshold = settings.blueThreshold = 25;
    return settings;
}

// The correction alone, in place.
void BM_RemoveBackground(benchmark::State& state) {
    const auto& img = fluorescenceImage(int(state.range(0)));
    std::optional<pv::Bitmap> work = img.bitmap.copy();
    if (!work) {
        state.SkipWithError("no memory for the copy");
        return;
    }
    const pv::BackgroundSettings settings = backgroundSettings(state);
    for (auto _ : state) {
        pv::removeBackground(work->writableChannels(), settings);
        benchmark::ClobberMemory();
    }
}

// The correction as the document applies it: into a new picture, which replaces the one
// corrected (freed unless it is the loaded one).
void BM_BackgroundCorrection(benchmark::State& state) {
    pv::WorkingImage document = documentOf(int(state.range(0)));
    const pv::BackgroundSettings settings = backgroundSettings(state);
    for (auto _ : state) {
        if (!document.applyBackgroundCorrection(settings, 0)) {
            state.SkipWithError("no memory for the corrected picture");
            return;
        }
        benchmark::ClobberMemory();
    }
}

// The corrections' cases: all channels and the green one.
void backgroundCases(benchmark::internal::Benchmark* b) {
    b->Args({16, 3})->Args({64, 3})->Args({64, 1})->Unit(benchmark::kMillisecond)->UseRealTime();
}

}  // namespace

BENCHMARK(BM_RegionRecount)->Arg(1)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Reveal)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RevealFirst)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RemoveBackground)->Apply(backgroundCases);
BENCHMARK(BM_BackgroundCorrection)->Apply(backgroundCases);
