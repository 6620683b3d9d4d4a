// How much the one-task-per-bundle scan gains: 300 generated bundles of 200
// files each in a temporary Applications folder, scanned with every core and
// with oneTBB held to one thread.

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <unistd.h>

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include "Uninstaller/AppScanner.hpp"

namespace {

namespace fs = std::filesystem;

// Made once for the process and removed at exit.
struct Applications {
    Applications() {
        root = fs::temp_directory_path() / ("unbulk-bench-apps-" + std::to_string(::getpid()));
        for (int app = 0; app < 300; ++app) {
            const fs::path bundle = root / ("App" + std::to_string(app) + ".app") / "Contents";
            fs::create_directories(bundle / "Resources");
            std::ofstream(bundle / "Info.plist")
                << "<?xml version=\"1.0\"?><plist "
                   "version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>com.bench.app"
                << app << "</string></dict></plist>";
            for (int file = 0; file < 200; ++file) {
                std::ofstream(bundle / "Resources" / ("r" + std::to_string(file))) << std::string(512, 'x');
            }
        }
    }
    ~Applications() { fs::remove_all(root); }
    fs::path root;
};

const Applications& applications() {
    static const Applications instance;
    return instance;
}

void scan(benchmark::State& state) {
    const unbulk::AppScanner scanner(
        {.applicationsURLs = std::vector<unbulk::FileURL>{unbulk::FileURL(applications().root.string(), true)},
         .fileSystem = unbulk::makeDefaultFileSystem(),
         .homeURL = unbulk::FileURL("/nonexistent", true),
         .protectedAppGuard = std::make_shared<const unbulk::ProtectedAppGuard>(
             unbulk::makeDefaultFileSystem(), unbulk::makeDefaultCodeSigning(), unbulk::makeDefaultProcesses(),
             [](const std::string&) { return false; })});
    const auto threads = static_cast<std::size_t>(state.range(0));
    std::unique_ptr<tbb::global_control> limit;
    if (threads > 0)
        limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism, threads);
    for (auto _ : state) {
        auto apps = scanner.scanInstalledApps(false);
        if (apps.size() != 300) state.SkipWithError("wrong number of applications");
        benchmark::DoNotOptimize(apps);
    }
}

} // namespace

// 1: one thread; 0: every core.
BENCHMARK(scan)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
