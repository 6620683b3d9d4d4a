// One home that holds every layout the scan knows, scanned by the program's
// front end as a user runs it, over an Environment whose system places lie
// in the test's own directory (so that the machine's own crash reports stay
// out of it): `unbulk scan --json` must report exactly the items listed
// below, each measured and classified as expected, and nothing else. The numbers of each item are counted here, with lstat, from what the
// test wrote: every name of a file counts as a file, its bytes only once.

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Models/Categories.hpp"
#include "Platform/Processes.hpp"
#include "Support/FileURL.hpp"
#include "Support/Json.hpp"
#include "InProcessCommand.hpp"
#include "support/TempHome.hpp"
#include "support/TestEnvironment.hpp"

namespace {

namespace fs = std::filesystem;
using unbulk::Json;
using unbulk::RiskTier;
using Category = unbulk::StorageCategory;
using Strings = std::vector<std::string>;
constexpr auto safe = RiskTier::safeToDelete, review = RiskTier::reviewRequired;

struct HandCount {
    std::int64_t files = 0, logical = 0, allocated = 0;
    std::set<std::pair<dev_t, ino_t>> seen; // the files counted
};

// Adds the regular files at or below `path`, but not those of the other
// `items` inside it (links are neither followed nor counted); every name of a
// file counts as a file, its bytes only once.
void countByHand(const fs::path& path, const std::set<fs::path>& items, HandCount& count, bool top = true) {
    struct stat st {};
    if ((!top && items.contains(path)) || ::lstat(path.c_str(), &st) != 0) return;
    if (S_ISDIR(st.st_mode)) {
        for (const auto& entry : fs::directory_iterator(path)) countByHand(entry.path(), items, count, false);
    } else if (S_ISREG(st.st_mode)) {
        count.files += 1;
        if (!count.seen.emplace(st.st_dev, st.st_ino).second) return;
        count.logical += st.st_size;
        count.allocated += static_cast<std::int64_t>(st.st_blocks) * 512;
    }
}

struct Row {
    std::string path; // relative to the home
    Category category;
    RiskTier riskTier;
    std::string description, ruleId;
    // The files the home builder writes, at <path>/f0, <path>/f1... or at the
    // path itself for a file; none where the item is built by hand.
    std::vector<std::int64_t> sizes;
    bool isFile = false, isOrphaned = false, isLocked = false;
};

const std::string kModel = ".cache/huggingface/hub/models--meta-llama--Llama-3.2-1B";
const std::string kDockerImage = "Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw";

// Docker is looked for as an application in <system root>/Applications, or a
// process of this machine whose name holds one of Docker's names. Neither is
// expected here, which makes the image orphaned; where one is found the
// image is active (and locked while a process runs), and kept.
//
// One row per layout that meets another target's (npm's partial set,
// Homebrew's incomplete download inside its bottles, links into a model,
// hard links into a store...); the places of each target alone are the
// scanner tests' business.
std::vector<Row> expectedRows(const unbulk::Environment& environment) {
    const std::regex docker("docker|vpnkit", std::regex::icase);
    const bool running = std::ranges::any_of(environment.processes->runningProcessNames(),
                                             [&](const std::string& name) { return std::regex_search(name, docker); });
    const bool orphaned = !running && !fs::exists(environment.systemRoot + "/Applications/Docker.app");
    using enum Category;
    const auto dev = developerCache, ai = aiModelWeights, xcode = xcodeArtifacts;
    return {
        {".cache/uv/archive-v0", dev, safe, "uv Cache (archive-v0)", "dev.uv.cache", {48'000, 2'100}},
        // npm: two of its four known subfolders, so the whole folder gives no item.
        {".npm/_npx", dev, safe, "npm Download Cache (_npx)", "dev.npm.cache", {512, 9'000}},
        {".npm/_cacache", dev, safe, "npm Download Cache (_cacache)", "dev.npm.cache", {64'000, 1'000}},
        // A developer-named user cache: pip's, not the user caches'.
        {"Library/Caches/pip", dev, safe, "pip HTTP Response and Wheel Cache", "dev.pip.cache", {21'000}},
        {".cargo/registry/cache", dev, safe, "Cargo Crate Archive Cache (.crate)", "dev.cargo.cache", {70'000}},
        // Cargo's lock file: an item of no bytes.
        {".cargo/.package-cache", dev, safe, "Cargo Package Cache", "dev.cargo.cache", {0}, true},
        {".local/share/pnpm/store", dev, safe, "pnpm Virtual Store (~/.local/share/pnpm/store)", "dev.pnpm.store",
         {900, 25'000}},
        {"Library/Caches/Homebrew/downloads/node--22.2.0.bottle.tar.gz.incomplete", dev, safe,
         "Homebrew Incomplete Download: node--22.2.0.bottle.tar.gz.incomplete", "dev.homebrew.incomplete", {55'000},
         true, true},
        // The bottles, without the incomplete download among them.
        {"Library/Caches/Homebrew/downloads", dev, safe, "Homebrew Downloaded Bottles & Packages", "dev.homebrew.cache",
         {300'000, 130'000}},
        {kModel, ai, review, "HuggingFace Model: meta-llama/Llama-3.2-1B", "ai.huggingface.hub", {400'000, 2'000, 40}},
        {".cache/whisper/base.pt", ai, review, "OpenAI Whisper Model: base.pt", "ai.whisper.models", {145'000}, true},
        // Sparse, as Docker makes it: 64 MiB long, 1 MiB written.
        {kDockerImage, dockerVM, orphaned ? review : RiskTier::keep,
         orphaned ? "Docker VM Disk Image [Orphaned (Docker.app uninstalled & inactive)]"
                  : "Docker VM Disk Image [Active (Docker.app installed or running)]",
         "dev.docker.orphaned_vm", {}, true, orphaned, running},
        {"Library/Developer/Xcode/DerivedData/WebApp-fhzkxbqg", xcode, safe, "Xcode DerivedData: WebApp-fhzkxbqg",
         "dev.xcode.derived_data", {90'000, 600}},
        {"node_modules", strayDependencies, review, "Stray node_modules in User Home Root Directory",
         "dev.stray.node_modules", {}, false, true},
        {"Library/Caches/com.example.Editor", systemCaches, safe, "com.example.Editor Cache", "sys.user.caches",
         {75'000}},
        // In Library/Logs, and no user logs.
        {"Library/Logs/DiagnosticReports", crashReports, safe, "User Diagnostic & Crash Reports (.ips)",
         "sys.crash.user_reports", {6'200}},
    };
}

class ScanEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const Row& row : rows)
            for (std::size_t i = 0; i < row.sizes.size(); ++i)
                home.writeFile(row.isFile ? row.path : row.path + "/f" + std::to_string(i), row.sizes[i]);
        // Decoys that no target may report: hidden files, binaries beside
        // caches, partial downloads, loose files, caches of nobody's, links.
        for (const auto& [path, size] : std::vector<std::pair<std::string, std::uintmax_t>>{
                 {".cargo/bin/cargo", 100'000}, {".cache/whisper/small.pt.part", 3'000},
                 {".cache/huggingface/hub/.locks/models--meta-llama--Llama-3.2-1B/f0.lock", 0},
                 {"Library/Developer/Xcode/DerivedData/stray.log", 50}, {"Library/Caches/.DS_Store", 6'148},
                 {"Library/Caches/com.google.Keystone/Keystone.log", 12'000}})
            home.writeFile(path, size);
        home.writeFile(".cache/uv/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc55\n");
        home.makeSymlink(kModel + "/snapshots/4e20de36/model.safetensors", "../../f0");
        home.makeSymlink(kModel + "/snapshots/4e20de36/config.json", "../../f1");
        fs::resize_file(home.writeFile(kDockerImage, 1 << 20), 64 << 20);

        // node_modules left in the home, laid out by pnpm: a hidden state file,
        // two names of one store file, and a link to a package.
        home.writeFile("node_modules/.modules.yaml", 300);
        const std::string lodash = home.at(".local/share/pnpm/store/f1");
        fs::create_hard_link(lodash, home.makeDirectory("node_modules/.pnpm/lodash@4/node_modules/lodash") + "/a.js");
        fs::create_hard_link(lodash, home.makeDirectory("node_modules/.pnpm/lodash@4_1/node_modules/lodash") + "/a.js");
        home.makeSymlink("node_modules/lodash", ".pnpm/lodash@4/node_modules/lodash");
    }

    // Runs the scan; its items are exactly the `selected` rows, field by field,
    // largest first, and its summary adds them up (how a summary is built is
    // the model tests' business). Bad JSON throws, which fails the test.
    Json scanReportsExactly(const Strings& words, const std::function<bool(const Row&)>& selected) const {
        const Json document = Json::parse(unbulk::testing::runCommand(environment, words).standardOutput);
        std::map<std::string, Json> byPath;
        for (const auto& item : document["items"]) byPath[item.value("path", "")] = item;
        std::set<fs::path> items;
        for (const Row& row : rows) items.insert(home.at(row.path));
        std::int64_t count = 0, allocated = 0;
        for (const Row& row : rows) {
            if (!selected(row)) continue;
            const std::string path = home.at(row.path);
            HandCount n;
            countByHand(path, items, n);
            Json got = byPath[path].is_object() ? byPath[path] : Json::object();
            for (const char* key : {"id", "lastAccessedDate", "lastModifiedDate"}) got.erase(key);
            EXPECT_EQ(got, (Json{{"path", path}, {"url", unbulk::FileURL(path, !row.isFile).absoluteString()},
                                 {"category", rawValue(row.category)}, {"riskTier", rawValue(row.riskTier)},
                                 {"itemDescription", row.description}, {"ruleId", row.ruleId},
                                 {"fileCount", n.files}, {"logicalSizeBytes", n.logical},
                                 {"allocatedSizeBytes", n.allocated}, {"isOrphaned", row.isOrphaned},
                                 {"isLocked", row.isLocked}, {"requiresFullDiskAccess", false}}));
            byPath.erase(path);
            count += 1;
            allocated += n.allocated;
        }
        for (const auto& [path, item] : byPath) ADD_FAILURE() << "unexpected item: " << item.dump(2);
        EXPECT_EQ(document["items"].size(), static_cast<std::size_t>(count)); // none reported twice
        EXPECT_TRUE(std::is_sorted(document["items"].begin(), document["items"].end(), [](const Json& a, const Json& b) {
            return a.value("allocatedSizeBytes", 0L) > b.value("allocatedSizeBytes", 0L);
        }));
        EXPECT_EQ(document["summary"]["totalItems"], count);
        EXPECT_EQ(document["summary"]["totalAllocatedBytes"], allocated);
        EXPECT_EQ(document["warnings"], Json::array());
        return document;
    }

    unbulk::testing::TempHome home;
    const unbulk::Environment environment = unbulk::testing::testEnvironment(home);
    const std::vector<Row> rows = expectedRows(environment);
};

TEST_F(ScanEndToEndTest, ScanJsonReportsExactlyTheItemsOfEveryLayout) {
    const Json document = scanReportsExactly({"scan", "--json"}, [](const Row&) { return true; });
    EXPECT_EQ(document["scannedCategories"].size(), 16u); // all, as the command-line tests check in full
}

TEST_F(ScanEndToEndTest, DockerCategoryAloneReportsOnlyTheImage) {
    const Json document = scanReportsExactly({"scan", "--category", "DOCKER_VM", "--json"},
                                             [](const Row& row) { return row.category == Category::dockerVM; });
    EXPECT_EQ(document["scannedCategories"], Json::array({"DOCKER_VM"}));
}

} // namespace
