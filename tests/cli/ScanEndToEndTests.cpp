// One home that holds every layout the scan knows, scanned by the built
// program as a user runs it: `unbulk scan --json` must report exactly the
// items listed below, each measured and classified as expected, and nothing
// else. Sizes of what the test wrote are its own numbers; allocated bytes are
// counted here with lstat, a hard-linked file once.

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Models/Categories.hpp"
#include "Platform/Processes.hpp"
#include "Support/ByteCount.hpp"
#include "Support/FileURL.hpp"
#include "Support/Json.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace {

namespace fs = std::filesystem;
using unbulk::Json;
using unbulk::RiskTier;
using unbulk::StorageCategory;
using unbulk::testing::ProcessOptions;
using unbulk::testing::ProcessResult;
using unbulk::testing::TempHome;

// ---- counting by hand

struct HandCount {
    std::int64_t files = 0;
    std::int64_t logical = 0;
    std::int64_t allocated = 0;
};

// Adds the regular files at or below `path` (links are neither followed nor
// counted); every name of a file counts as a file, its bytes only once.
void countByHand(const fs::path& path, HandCount& count, std::set<std::pair<dev_t, ino_t>>& seen) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return;
    if (S_ISDIR(st.st_mode)) {
        for (const auto& entry : fs::directory_iterator(path)) countByHand(entry.path(), count, seen);
        return;
    }
    if (!S_ISREG(st.st_mode)) return;
    count.files += 1;
    if (!seen.emplace(st.st_dev, st.st_ino).second) return;
    count.logical += st.st_size;
    count.allocated += static_cast<std::int64_t>(st.st_blocks) * 512;
}

HandCount countByHand(const std::vector<std::string>& paths) {
    HandCount count;
    std::set<std::pair<dev_t, ino_t>> seen;
    for (const auto& path : paths) countByHand(path, count, seen);
    return count;
}

std::string lowercased(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::optional<std::string> findProgram(const std::string& name) {
    const char* pathVariable = std::getenv("PATH");
    std::string_view rest = pathVariable ? pathVariable : "/usr/bin:/bin";
    while (!rest.empty()) {
        auto colon = rest.find(':');
        std::string candidate = std::string(rest.substr(0, colon)) + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
        rest = colon == std::string_view::npos ? std::string_view{} : rest.substr(colon + 1);
    }
    return std::nullopt;
}

// ---- what the scan must find

struct ExpectedItem {
    std::string path; // relative to the home
    StorageCategory category;
    RiskTier riskTier;
    std::string description;
    std::string ruleId;
    // Files and bytes the test wrote; absent where git wrote the files, which
    // are then counted by hand.
    std::optional<std::int64_t> fileCount;
    std::optional<std::int64_t> logicalBytes;
    bool isOrphaned = false;
    bool isLocked = false;
    // What the allocated bytes are counted from, when not the whole path.
    std::vector<std::string> allocatedFrom = {};
};

// What an item comes to once its numbers are known.
struct Resolved {
    const ExpectedItem* row;
    std::string path;
    std::int64_t fileCount;
    std::int64_t logical;
    std::int64_t allocated;
};

constexpr auto developerCache = StorageCategory::developerCache;
constexpr auto aiModelWeights = StorageCategory::aiModelWeights;
constexpr auto dockerVM = StorageCategory::dockerVM;
constexpr auto xcodeArtifacts = StorageCategory::xcodeArtifacts;
constexpr auto strayDependencies = StorageCategory::strayDependencies;
constexpr auto systemCaches = StorageCategory::systemCaches;
constexpr auto systemLogs = StorageCategory::systemLogs;
constexpr auto crashReports = StorageCategory::crashReports;
constexpr auto mailDownloads = StorageCategory::mailDownloads;
constexpr auto browserCaches = StorageCategory::browserCaches;
constexpr auto safe = RiskTier::safeToDelete;
constexpr auto review = RiskTier::reviewRequired;

const std::string kDockerImage = "Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw";
const std::string kGitRecord = "Projects/webapp/.git/worktrees/webapp-hotfix";
const std::string kBottles = "Library/Caches/Homebrew/downloads/";

class ScanEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Crash reports of the whole machine are measured too; a machine that
        // has them would add an item that this home does not control.
        if (fs::exists("/Library/Logs/DiagnosticReports")) {
            GTEST_SKIP() << "this machine has /Library/Logs/DiagnosticReports";
        }
        buildHome();
        if (HasFatalFailure()) return;
        expected_ = expectedItems();
        for (const auto& row : expected_) resolved_.push_back(resolve(row));
    }

    // ---- the home

    void write(const std::string& relative, std::uintmax_t size) const { home_.writeFile(relative, size); }

    void buildHome() {
        // uv: one item per bucket; its plain files and hidden lock at the top are not.
        write(".cache/uv/archive-v0/Xk3pQ/numpy/__init__.py", 48'000);
        write(".cache/uv/archive-v0/Xk3pQ/numpy-2.1.0.dist-info/METADATA", 2'100);
        write(".cache/uv/wheels-v1/pypi/requests/requests-2.32.3-py3-none-any.whl", 64'000);
        home_.writeFile(".cache/uv/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc55\n");
        write(".cache/uv/.lock", 0);

        // npm: three of its four known subfolders, so the whole folder gives no item.
        write(".npm/_cacache/index-v5/1f/aa/0123", 310);
        write(".npm/_cacache/content-v2/sha512/ab/cd/ef01", 120'000);
        write(".npm/_npx/6f2a/package.json", 512);
        write(".npm/_npx/6f2a/node_modules/cowsay/index.js", 9'000);
        write(".npm/_logs/2024-05-01T10_00_00_000Z-debug-0.log", 7'300);
        write(".npm/_update-notifier-last-checked", 0);

        // Bun's install cache, beside its binary, which is no cache.
        write(".bun/install/cache/left-pad@1.3.0@@@1/package.json", 700);
        write(".bun/install/cache/left-pad@1.3.0@@@1/index.js", 1'200);
        write(".bun/bin/bun", 90'000);

        // pip in both places; the second is also a developer-named user cache.
        write(".cache/pip/http-v2/a/b/c/d/e/abcdef0123", 33'000);
        write("Library/Caches/pip/wheels/ab/cd/pkg-1.0-py3-none-any.whl", 21'000);

        // Cargo's five places; its binaries and credentials are not offered.
        write(".cargo/registry/cache/index.crates.io-6f17d22bba15001f/serde-1.0.200.crate", 77'000);
        write(".cargo/registry/src/index.crates.io-6f17d22bba15001f/serde-1.0.200/src/lib.rs", 13'000);
        write(".cargo/registry/src/index.crates.io-6f17d22bba15001f/serde-1.0.200/Cargo.toml", 2'500);
        write(".cargo/git/db/ring-1a2b3c/HEAD", 23);
        write(".cargo/git/db/ring-1a2b3c/objects/pack/pack-1.pack", 40'000);
        write(".cargo/git/checkouts/ring-1a2b3c/4d5e6f/src/lib.rs", 6'000);
        write(".cargo/.package-cache", 0); // cargo's lock file: an item of no bytes
        write(".cargo/bin/cargo", 100'000);
        write(".cargo/credentials.toml", 64);

        // pnpm's store; one content file is hard-linked into ~/node_modules below.
        write(".local/share/pnpm/store/v3/files/3a/bcdef-index.json", 900);
        const std::string lodash = home_.writeFile(".local/share/pnpm/store/v3/files/7c/0123", 25'000);

        // Homebrew: two bottles, an abandoned download, a cask and the API metadata.
        write(kBottles + "4f1c--wget--1.24.5.arm64_sonoma.bottle.tar.gz", 300'000);
        write(kBottles + "9a2e--jq--1.7.1.arm64_sonoma.bottle.tar.gz", 130'000);
        write(kBottles + "c0ff--node--22.2.0.arm64_sonoma.bottle.tar.gz.incomplete", 55'000);
        home_.makeSymlink("Library/Caches/Homebrew/wget--1.24.5.arm64_sonoma.bottle.tar.gz",
                          "downloads/4f1c--wget--1.24.5.arm64_sonoma.bottle.tar.gz");
        write("Library/Caches/Homebrew/Cask/firefox--126.0.dmg", 200'000);
        write("Library/Caches/Homebrew/api/formula.jws.json", 26'000);
        write("Library/Caches/Homebrew/api/cask.jws.json", 11'000);

        // Gradle's three, beside its settings, which are no cache.
        write(".gradle/caches/modules-2/files-2.1/com.google.guava/guava/33.0.0-jre/ab12/guava-33.0.0-jre.jar",
              180'000);
        write(".gradle/caches/transforms-4/f00d/results.bin", 5'000);
        write(".gradle/wrapper/dists/gradle-8.7-bin/bhs2wmbdwecv87pi65oeuq5iu/gradle-8.7-bin.zip", 250'000);
        write(".gradle/wrapper/dists/gradle-8.7-bin/bhs2wmbdwecv87pi65oeuq5iu/gradle-8.7-bin.zip.ok", 0);
        write(".gradle/daemon/8.7/daemon-4242.out.log", 14'000);
        write(".gradle/gradle.properties", 80);

        // git: a worktree made by git itself, whose checkout is then deleted.
        makeRepositoryWithOrphanedWorktree();

        // Hugging Face: one model of the hub (its snapshot names are links
        // into blobs), hidden locks and a plain file beside it, and the assets.
        const std::string model = ".cache/huggingface/hub/models--meta-llama--Llama-3.2-1B/";
        write(model + "blobs/9e2f01", 400'000);
        write(model + "blobs/7a1c02", 2'000);
        home_.makeSymlink(model + "snapshots/4e20de36/model.safetensors", "../../blobs/9e2f01");
        home_.makeSymlink(model + "snapshots/4e20de36/config.json", "../../blobs/7a1c02");
        write(model + "refs/main", 40);
        write(".cache/huggingface/hub/.locks/models--meta-llama--Llama-3.2-1B/9e2f01.lock", 0);
        home_.writeFile(".cache/huggingface/hub/version.txt", "1");
        write(".cache/huggingface/assets/datasets/squad/processed.arrow", 45'000);

        // Whisper: a model, and a partial download that is none.
        write(".cache/whisper/base.pt", 145'000);
        write(".cache/whisper/small.pt.part", 3'000);

        // Ollama, LM Studio (publisher/model) and both vLLM places.
        write(".ollama/models/blobs/sha256-6a0746a1ec1a", 350'000);
        write(".ollama/models/manifests/registry.ollama.ai/library/llama3.2/latest", 1'300);
        write(".lmstudio/models/lmstudio-community/Qwen2.5-7B-Instruct-GGUF/Qwen2.5-7B-Instruct-Q4_K_M.gguf",
              420'000);
        write(".cache/vllm/torch_compile_cache/ab12/rank_0/model.py", 8'000);
        write(".vllm/models/facebook/opt-125m/pytorch_model.bin", 250'500);

        // Docker's VM image is sparse, as Docker makes it: 64 MiB long, 1 MiB written.
        const std::string image = home_.writeFile(kDockerImage, 1 << 20);
        fs::resize_file(image, 64 << 20);

        // Xcode: two DerivedData folders and a plain file beside them, an
        // archive, the simulator caches.
        const std::string derived = "Library/Developer/Xcode/DerivedData/";
        write(derived + "WebApp-fhzkxbqgplmdekcwxnsfxqpnuzwd/Build/Intermediates.noindex/WebApp.build/main.o", 90'000);
        write(derived + "WebApp-fhzkxbqgplmdekcwxnsfxqpnuzwd/Index.noindex/DataStore/v5/units/main.o-1", 4'000);
        write(derived + "WebApp-fhzkxbqgplmdekcwxnsfxqpnuzwd/info.plist", 600);
        write(derived + "ModuleCache.noindex/Foundation-1A2B.pcm", 30'000);
        write(derived + "stray.log", 50);
        const std::string archive = "Library/Developer/Xcode/Archives/2024-05-01/WebApp 5-1-24, 10.00.xcarchive/";
        write(archive + "Info.plist", 700);
        write(archive + "Products/Applications/WebApp.app/WebApp", 110'000);
        write("Library/Developer/CoreSimulator/Caches/dyld/23E214/dyld_sim_shared_cache_arm64e", 160'000);

        // node_modules left in the home, laid out by pnpm: a hidden state
        // file, two names of one store file, and a link to a package.
        write("node_modules/.modules.yaml", 300);
        home_.makeDirectory("node_modules/.pnpm/lodash@4.17.21/node_modules/lodash");
        home_.makeDirectory("node_modules/.pnpm/lodash@4.17.21_peer@1/node_modules/lodash");
        fs::create_hard_link(lodash, home_.at("node_modules/.pnpm/lodash@4.17.21/node_modules/lodash/lodash.js"));
        fs::create_hard_link(lodash,
                             home_.at("node_modules/.pnpm/lodash@4.17.21_peer@1/node_modules/lodash/lodash.js"));
        home_.makeSymlink("node_modules/lodash", ".pnpm/lodash@4.17.21/node_modules/lodash");

        // User caches: one application's, a browser-named and a developer-named
        // folder that the section passes over, and a hidden file.
        write("Library/Caches/com.example.Editor/Cache.db", 75'000);
        write("Library/Caches/com.example.Editor/fsCachedData/1A2B", 3'500);
        write("Library/Caches/com.google.Keystone/Keystone.log", 12'000);
        write("Library/Caches/Yarn/v6/npm-left-pad-1.3.0.tgz", 16'000);
        write("Library/Caches/.DS_Store", 6'148);

        // Logs, crash reports in both user places, the legacy Mail downloads.
        write("Library/Logs/com.example.Editor/editor.log", 18'000);
        write("Library/Logs/DiagnosticReports/WebApp-2024-05-01-100000.ips", 6'200);
        write("Library/Logs/CrashReporter/MobileDevice/iPhone/WebApp.crash", 2'700);
        write("Library/Mail Downloads/3F2A/invoice.pdf", 41'000);

        // Browsers: Safari's user cache, Chrome, Firefox's profiles.
        write("Library/Caches/com.apple.Safari/Cache.db", 52'000);
        write("Library/Caches/Google/Chrome/Default/Cache/Cache_Data/data_1", 88'000);
        write("Library/Caches/Firefox/Profiles/abcd1234.default-release/cache2/entries/0A1B", 36'000);
    }

    void git(const std::string& directory, const std::vector<std::string>& arguments) const {
        std::vector<std::string> all{"-C", directory, "-c", "user.name=Unbulk Test", "-c",
                                     "user.email=test@example.invalid", "-c", "init.defaultBranch=main"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        ProcessResult result = unbulk::testing::runProcess(
            git_, all,
            {.environment = {{"HOME", home_.path()},
                             {"XDG_CONFIG_HOME", home_.at(".config")},
                             {"GIT_CONFIG_NOSYSTEM", "1"},
                             {"GIT_TERMINAL_PROMPT", "0"}}});
        ASSERT_EQ(result.exitStatus, 0) << "git " << arguments.front() << ": " << result.standardError;
    }

    void makeRepositoryWithOrphanedWorktree() {
        auto found = findProgram("git");
        ASSERT_TRUE(found) << "git is needed to make a worktree record";
        git_ = *found;
        const std::string repository = home_.makeDirectory("Projects/webapp");
        ASSERT_NO_FATAL_FAILURE(git(repository, {"init", "-q"}));
        home_.writeFile("Projects/webapp/README.md", "# webapp\n");
        ASSERT_NO_FATAL_FAILURE(git(repository, {"add", "README.md"}));
        ASSERT_NO_FATAL_FAILURE(git(repository, {"commit", "-q", "-m", "first"}));
        ASSERT_NO_FATAL_FAILURE(git(repository, {"worktree", "add", "-q", "../webapp-hotfix"}));
        ASSERT_TRUE(fs::is_regular_file(home_.at(kGitRecord + "/gitdir"))) << "git keeps its records elsewhere";
        fs::remove_all(home_.at("Projects/webapp-hotfix"));
    }

    // ---- the expectation

    // Docker is looked for on this machine itself: an application in
    // /Applications, or a process whose name holds one of Docker's names.
    // Neither is expected here, which makes the image orphaned; where one is
    // found the image is active (and locked while a process runs), and kept.
    static bool dockerProcessRunning() {
        for (const auto& name : unbulk::makeDefaultProcesses()->runningProcessNames()) {
            const std::string lower = lowercased(name);
            if (lower.find("docker") != std::string::npos || lower.find("vpnkit") != std::string::npos) return true;
        }
        return false;
    }

    std::vector<ExpectedItem> expectedItems() const {
        const bool running = dockerProcessRunning();
        const bool installed = fs::exists("/Applications/Docker.app");
        const bool orphaned = !installed && !running;
        const std::string dockerState =
            orphaned ? "Orphaned (Docker.app uninstalled & inactive)" : "Active (Docker.app installed or running)";

        const std::string lmStudio = ".lmstudio/models/lmstudio-community/Qwen2.5-7B-Instruct-GGUF";
        const std::string derived = "Library/Developer/Xcode/DerivedData/";
        const std::string incomplete = kBottles + "c0ff--node--22.2.0.arm64_sonoma.bottle.tar.gz.incomplete";
        const std::string vllm = "vLLM Model Weights & Kernel Cache";
        // path, category, tier, description, rule id, files, logical bytes, orphaned, locked
        return {
            {".cache/uv/archive-v0", developerCache, safe, "uv Cache (archive-v0)", "dev.uv.cache", 2, 50'100},
            {".cache/uv/wheels-v1", developerCache, safe, "uv Cache (wheels-v1)", "dev.uv.cache", 1, 64'000},
            {".npm/_cacache", developerCache, safe, "npm Download Cache (_cacache)", "dev.npm.cache", 2, 120'310},
            {".npm/_npx", developerCache, safe, "npm Download Cache (_npx)", "dev.npm.cache", 2, 9'512},
            {".npm/_logs", developerCache, safe, "npm Download Cache (_logs)", "dev.npm.cache", 1, 7'300},
            {".bun/install/cache", developerCache, safe, "Bun Package Install Cache", "dev.bun.cache", 2, 1'900},
            {".cache/pip", developerCache, safe, "pip HTTP Response and Wheel Cache", "dev.pip.cache", 1, 33'000},
            {"Library/Caches/pip", developerCache, safe, "pip HTTP Response and Wheel Cache", "dev.pip.cache", 1,
             21'000},
            {".cargo/registry/cache", developerCache, safe, "Cargo Crate Archive Cache (.crate)", "dev.cargo.cache", 1,
             77'000},
            {".cargo/registry/src", developerCache, safe, "Cargo Unpacked Crate Source Cache", "dev.cargo.cache", 2,
             15'500},
            {".cargo/git/db", developerCache, safe, "Cargo Bare Git Repositories", "dev.cargo.cache", 2, 40'023},
            {".cargo/git/checkouts", developerCache, safe, "Cargo Git Checkout Cache", "dev.cargo.cache", 1, 6'000},
            {".cargo/.package-cache", developerCache, safe, "Cargo Package Cache", "dev.cargo.cache", 1, 0},
            {".local/share/pnpm/store", developerCache, safe, "pnpm Virtual Store (~/.local/share/pnpm/store)",
             "dev.pnpm.store", 2, 25'900},
            {incomplete, developerCache, safe,
             "Homebrew Incomplete Download: c0ff--node--22.2.0.arm64_sonoma.bottle.tar.gz.incomplete",
             "dev.homebrew.incomplete", 1, 55'000, true},
            {"Library/Caches/Homebrew/downloads", developerCache, safe, "Homebrew Downloaded Bottles & Packages",
             "dev.homebrew.cache", 2, 430'000, false, false,
             {kBottles + "4f1c--wget--1.24.5.arm64_sonoma.bottle.tar.gz",
              kBottles + "9a2e--jq--1.7.1.arm64_sonoma.bottle.tar.gz"}},
            {"Library/Caches/Homebrew/Cask", developerCache, safe, "Homebrew Cask Download Cache",
             "dev.homebrew.cache", 1, 200'000},
            {"Library/Caches/Homebrew/api", developerCache, safe, "Homebrew API Metadata Cache", "dev.homebrew.cache",
             2, 37'000},
            {".gradle/caches", developerCache, safe, "Gradle Dependency & Transform Cache", "dev.gradle.cache", 2,
             185'000},
            {".gradle/wrapper/dists", developerCache, safe, "Gradle Wrapper Distributions", "dev.gradle.cache", 2,
             250'000},
            {".gradle/daemon", developerCache, safe, "Gradle Daemon Execution Logs & State", "dev.gradle.cache", 1,
             14'000},
            {kGitRecord, developerCache, safe, "Orphaned Git Worktree: webapp/webapp-hotfix (target deleted)",
             "dev.git.orphaned_worktrees", std::nullopt, std::nullopt, true},

            {".cache/huggingface/hub/models--meta-llama--Llama-3.2-1B", aiModelWeights, review,
             "HuggingFace Model: meta-llama/Llama-3.2-1B", "ai.huggingface.hub", 3, 402'040},
            {".cache/huggingface/assets", aiModelWeights, review, "HuggingFace Assets & Preprocessed Datasets",
             "ai.huggingface.hub", 1, 45'000},
            {".cache/whisper/base.pt", aiModelWeights, review, "OpenAI Whisper Model: base.pt", "ai.whisper.models", 1,
             145'000},
            {".ollama/models", aiModelWeights, review, "Ollama Local Model Layers & Manifests (GGUF)",
             "ai.ollama.models", 2, 351'300},
            {lmStudio, aiModelWeights, review, "LM Studio Model: lmstudio-community/Qwen2.5-7B-Instruct-GGUF",
             "ai.lmstudio.models", 1, 420'000},
            {".cache/vllm", aiModelWeights, review, vllm, "ai.vllm.weights", 1, 8'000},
            {".vllm", aiModelWeights, review, vllm, "ai.vllm.weights", 1, 250'500},

            {kDockerImage, dockerVM, orphaned ? review : RiskTier::keep, "Docker VM Disk Image [" + dockerState + "]",
             "dev.docker.orphaned_vm", 1, 64 << 20, orphaned, running},

            {derived + "WebApp-fhzkxbqgplmdekcwxnsfxqpnuzwd", xcodeArtifacts, safe,
             "Xcode DerivedData: WebApp-fhzkxbqgplmdekcwxnsfxqpnuzwd", "dev.xcode.derived_data", 3, 94'600},
            {derived + "ModuleCache.noindex", xcodeArtifacts, safe, "Xcode DerivedData: ModuleCache.noindex",
             "dev.xcode.derived_data", 1, 30'000},
            {"Library/Developer/Xcode/Archives", xcodeArtifacts, review, "Xcode Release Archives (.xcarchive)",
             "dev.xcode.archives", 2, 110'700},
            {"Library/Developer/CoreSimulator/Caches", xcodeArtifacts, safe, "Xcode Simulator Runtime Caches",
             "dev.xcode.simulator_caches", 1, 160'000},

            {"node_modules", strayDependencies, review, "Stray node_modules in User Home Root Directory",
             "dev.stray.node_modules", 3, 25'300, true},

            {"Library/Caches/com.example.Editor", systemCaches, safe, "com.example.Editor Cache", "sys.user.caches", 2,
             78'500},
            {"Library/Logs/com.example.Editor", systemLogs, safe, "com.example.Editor Log Data", "sys.user.logs", 1,
             18'000},
            {"Library/Logs/DiagnosticReports", crashReports, safe, "User Diagnostic & Crash Reports (.ips)",
             "sys.crash.user_reports", 1, 6'200},
            {"Library/Logs/CrashReporter", crashReports, safe, "Legacy User Crash Reports", "sys.crash.user_reports", 1,
             2'700},
            {"Library/Mail Downloads", mailDownloads, review, "Legacy Mail Downloads", "sys.mail.downloads", 1,
             41'000},
            {"Library/Caches/com.apple.Safari", browserCaches, safe, "Safari WebKit User Cache", "sys.browser.safari",
             1, 52'000},
            {"Library/Caches/Google/Chrome", browserCaches, safe, "Google Chrome Cache", "sys.browser.chrome", 1,
             88'000},
            {"Library/Caches/Firefox/Profiles", browserCaches, safe, "Mozilla Firefox Profile Caches",
             "sys.browser.firefox", 1, 36'000},
        };
    }

    Resolved resolve(const ExpectedItem& row) const {
        std::vector<std::string> from;
        for (const auto& relative : row.allocatedFrom) from.push_back(home_.at(relative));
        if (from.empty()) from.push_back(home_.at(row.path));
        const HandCount count = countByHand(from);
        const HandCount whole = countByHand({home_.at(row.path)});
        return Resolved{&row, home_.at(row.path), row.fileCount.value_or(std::max<std::int64_t>(whole.files, 1)),
                        row.logicalBytes.value_or(whole.logical), count.allocated};
    }

    // ---- running the program

    ProcessResult run(const std::vector<std::string>& words) const {
        ProcessOptions options;
        options.environment = {{"HOME", home_.path()}, {"XDG_DATA_HOME", home_.at(".local/share")}};
        ProcessResult result = unbulk::testing::runProcess(UNBULK_BINARY, words, options);
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitStatus, 0) << result.standardError;
        EXPECT_EQ(result.standardError, "");
        return result;
    }

    Json scanJson(const std::vector<std::string>& words) const {
        ProcessResult result = run(words);
        Json document = Json::parse(result.standardOutput, nullptr, false);
        EXPECT_TRUE(document.is_object()) << result.standardOutput;
        return document.is_object() ? document : Json::object();
    }

    // The items of `document` are exactly `rows`, field by field, largest
    // first, and its summary adds them up.
    static void expectExactly(Json document, const std::vector<const Resolved*>& rows) {
        const Json items = document.value("items", Json::array());
        std::map<std::string, Json> byPath;
        for (const auto& item : items) {
            const std::string path = item.value("path", "");
            EXPECT_TRUE(byPath.emplace(path, item).second) << "reported twice: " << path;
        }

        std::map<std::string, Json> breakdown; // category raw value -> expected summary
        std::int64_t logical = 0, allocated = 0, safeBytes = 0, reviewBytes = 0;
        for (const Resolved* expected : rows) {
            const ExpectedItem& row = *expected->row;
            SCOPED_TRACE(row.description + " at " + row.path);
            auto found = byPath.find(expected->path);
            if (found == byPath.end()) {
                ADD_FAILURE() << "missing";
            } else {
                const Json& item = found->second;
                EXPECT_EQ(item["category"], std::string(unbulk::rawValue(row.category)));
                EXPECT_EQ(item["riskTier"], std::string(unbulk::rawValue(row.riskTier)));
                EXPECT_EQ(item["itemDescription"], row.description);
                EXPECT_EQ(item["ruleId"], row.ruleId);
                EXPECT_EQ(item["fileCount"], expected->fileCount);
                EXPECT_EQ(item["logicalSizeBytes"], expected->logical);
                EXPECT_EQ(item["allocatedSizeBytes"], expected->allocated);
                EXPECT_EQ(item["isOrphaned"], row.isOrphaned);
                EXPECT_EQ(item["isLocked"], row.isLocked);
                EXPECT_EQ(item["requiresFullDiskAccess"], false);
                auto url = unbulk::FileURL::parse(item.value("url", ""));
                EXPECT_TRUE(url && url->path() == expected->path && url->isDirectory() == fs::is_directory(url->path()))
                    << item["url"];
                byPath.erase(found);
            }

            const std::string category(unbulk::rawValue(row.category));
            Json& summary = breakdown[category];
            if (summary.is_null()) {
                summary = {{"category", category},
                           {"riskTier", std::string(unbulk::rawValue(row.riskTier))},
                           {"itemCount", 0},
                           {"totalLogicalBytes", 0},
                           {"totalAllocatedBytes", 0},
                           {"safeToDeleteBytes", 0},
                           {"reviewRequiredBytes", 0},
                           {"requiresFullDiskAccess", false}};
            }
            const auto tier = unbulk::riskTierFromRawValue(summary["riskTier"].get<std::string>());
            summary["riskTier"] = std::string(unbulk::rawValue(std::max(*tier, row.riskTier)));
            summary["itemCount"] = summary["itemCount"].get<std::int64_t>() + 1;
            summary["totalLogicalBytes"] = summary["totalLogicalBytes"].get<std::int64_t>() + expected->logical;
            summary["totalAllocatedBytes"] = summary["totalAllocatedBytes"].get<std::int64_t>() + expected->allocated;
            const char* tierBytes = row.riskTier == safe     ? "safeToDeleteBytes"
                                    : row.riskTier == review ? "reviewRequiredBytes"
                                                             : nullptr;
            if (tierBytes) summary[tierBytes] = summary[tierBytes].get<std::int64_t>() + expected->allocated;
            logical += expected->logical;
            allocated += expected->allocated;
            if (row.riskTier == safe) safeBytes += expected->allocated;
            if (row.riskTier == review) reviewBytes += expected->allocated;
        }
        for (const auto& [path, item] : byPath) ADD_FAILURE() << "unexpected item: " << item.dump(2);

        std::int64_t previous = INT64_MAX;
        for (const auto& item : items) {
            const auto size = item.value("allocatedSizeBytes", std::int64_t{0});
            EXPECT_LE(size, previous) << "items are not largest first at " << item["path"];
            previous = size;
        }

        Json summary = document["summary"];
        EXPECT_EQ(summary["totalItems"], rows.size());
        EXPECT_EQ(summary["totalLogicalBytes"], logical);
        EXPECT_EQ(summary["totalAllocatedBytes"], allocated);
        EXPECT_EQ(summary["safeUnbulkableBytes"], safeBytes);
        EXPECT_EQ(summary["reviewUnbulkableBytes"], reviewBytes);
        EXPECT_EQ(summary["requiresFullDiskAccess"], false);
        const Json entries = summary.value("categoryBreakdown", Json::array());
        EXPECT_EQ(entries.size(), breakdown.size());
        previous = INT64_MAX;
        for (const auto& entry : entries) {
            const std::string category = entry.value("category", "");
            EXPECT_EQ(entry, breakdown[category]) << category;
            const auto size = entry.value("totalAllocatedBytes", std::int64_t{0});
            EXPECT_LE(size, previous) << "breakdown is not largest first at " << category;
            previous = size;
        }
        EXPECT_EQ(document["warnings"], Json::array());
    }

    std::vector<const Resolved*> allRows() const {
        std::vector<const Resolved*> rows;
        for (const auto& r : resolved_) rows.push_back(&r);
        return rows;
    }

    TempHome home_;
    std::string git_;
    std::vector<ExpectedItem> expected_;
    std::vector<Resolved> resolved_;
};

TEST_F(ScanEndToEndTest, ScanJsonReportsExactlyTheItemsOfEveryLayout) {
    Json document = scanJson({"scan", "--json"});
    expectExactly(document, allRows());
    EXPECT_EQ(document["scannedCategories"],
              Json::array({"AI_MODEL_WEIGHTS", "APPLICATION_BUNDLES", "BROWSER_CACHES", "CRASH_REPORTS",
                           "DEVELOPER_CACHE", "DOCKER_VM", "DYNAMIC_RULE", "LARGE_FILES", "LEFTOVERS", "MAIL_DOWNLOADS",
                           "STARTUP_ITEMS", "STRAY_DEPENDENCIES", "SYSTEM_CACHES", "SYSTEM_LOGS", "UNKNOWN_ANOMALY",
                           "XCODE_ARTIFACTS"}));
}

TEST_F(ScanEndToEndTest, DockerCategoryAloneReportsOnlyTheImage) {
    Json document = scanJson({"scan", "--category", "DOCKER_VM", "--json"});
    std::vector<const Resolved*> docker;
    for (const auto& r : resolved_) {
        if (r.row->category == dockerVM) docker.push_back(&r);
    }
    ASSERT_EQ(docker.size(), 1u);
    expectExactly(document, docker);
    EXPECT_EQ(document["scannedCategories"], Json::array({"DOCKER_VM"}));
}

TEST_F(ScanEndToEndTest, TextReportCountsWhatTheJsonReports) {
    Json document = scanJson({"scan", "--json"});
    const ProcessResult text = run({"scan"});
    const std::string line = "\nFound " + std::to_string(resolved_.size()) + " items taking " +
                             unbulk::formatByteCount(document["summary"]["totalAllocatedBytes"].get<std::int64_t>()) +
                             "\n";
    EXPECT_EQ(document["items"].size(), resolved_.size());
    EXPECT_NE(text.standardOutput.find(line), std::string::npos) << text.standardOutput;
}

} // namespace
