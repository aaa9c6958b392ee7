// How long a layout takes to be ready, and a text to become key strokes.

#include <benchmark/benchmark.h>

#include <random>

#include "layouts/typing.h"
#include "layouts/unicode.h"

namespace {

const char *const kLayouts[][2] = {{"us", ""}, {"de", ""}, {"fr", "bepo"}, {"gr", "polytonic"}};

void layoutReady(benchmark::State &state) {
    const auto &[layout, variant] = kLayouts[state.range(0)];
    state.SetLabel(std::string(layout) + (*variant != '\0' ? std::string(" ") + variant : ""));
    for (auto _ : state) benchmark::DoNotOptimize(quillon::Typist({layout, variant}));
}

void typeText(benchmark::State &state) {
    const auto &[layout, variant] = kLayouts[state.range(0)];
    const quillon::Typist typist({layout, variant});
    const std::u32string all = typist.characters();
    std::mt19937 random(1);
    std::string text, error;
    for (int i = 0; i < 100000; ++i) text += quillon::utf8(all[random() % all.size()]);
    for (auto _ : state)
        benchmark::DoNotOptimize(typist.type(text, quillon::UnicodeInput::kRefuse, error));
}

BENCHMARK(layoutReady)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(typeText)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
