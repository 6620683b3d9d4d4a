// How fast the live rule set answers "which rules match this path?": the 24
// built-in rules against 100,000 generated paths under a home that exists only
// as a name (matching never touches the disk).

#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Rules/RuleRegistry.hpp"

namespace {

const unbulk::FileURL home("/Users/bench", true);

// A deterministic mix: about half the paths lie in places the built-in rules
// know (some deep, some with names outside every pattern), the rest in the
// rest of a developer's home.
std::vector<std::string> generatePaths(std::size_t count) {
    const std::vector<std::string> known{
        "Library/Caches/Homebrew/downloads", "Library/Caches/com.apple.Safari", ".npm/_cacache/content-v2/sha512",
        ".cache/huggingface/hub/models--bert", ".cache/whisper", ".cargo/registry/cache/index.crates.io",
        "Library/Developer/Xcode/DerivedData/App-abc/Build", ".gradle/caches/modules-2", "Library/Logs/DiagnosticReports",
        "Library/Caches/Google/Chrome/Default/Cache", ".ollama/models/blobs", "go/pkg/mod/cache/download"};
    const std::vector<std::string> elsewhere{"Documents/reports", "Projects/app/src/components", "Desktop/shots",
                                             "Music/Library", ".config/nvim/lua", "Projects/app/node_modules/react"};
    const std::vector<std::string> names{"index.js", "x.incomplete", "model.pt", "data.bin", "README.md",
                                         "e\u0301te\u0301.txt", "Cache_Data", "f_000123"};
    std::mt19937 random(20261121);
    std::vector<std::string> out;
    out.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto& base = (random() % 2 == 0) ? known[random() % known.size()] : elsewhere[random() % elsewhere.size()];
        std::string path = home.path() + "/" + base;
        for (unsigned depth = random() % 4; depth > 0; --depth) path += "/d" + std::to_string(random() % 50);
        path += "/" + names[random() % names.size()];
        out.push_back(std::move(path));
    }
    return out;
}

void BM_MatchingRules(benchmark::State& state) {
    unbulk::RuleRegistry registry(std::nullopt, home, unbulk::makeDefaultFileSystem(), unbulk::systemClock());
    const auto paths = generatePaths(100'000);
    std::size_t matched = 0;
    for (auto _ : state) {
        for (const auto& path : paths) matched += registry.matchingRules(path).size();
    }
    benchmark::DoNotOptimize(matched);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * paths.size()));
    state.counters["paths_per_second"] =
        benchmark::Counter(static_cast<double>(state.iterations() * paths.size()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_MatchingRules)->Unit(benchmark::kMillisecond)->MinTime(2.0);

} // namespace

BENCHMARK_MAIN();
