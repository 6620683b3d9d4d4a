#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Scanner/DeveloperTargets.hpp"
#include "Support/Paths.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

extern char** environ;

namespace unbulk {
namespace {

using testing::FaultyFileSystem;
using testing::FileSystemCall;
using testing::TempHome;

// What an item should say about a place in the fake home. Sizes and file
// counts come from the files the test wrote below that place.
struct Expected {
    std::string relative;
    std::string description;
    std::string ruleId;
};

// A fake home that remembers every file it was given, so that a test can ask
// what a place below it should measure, by lstat and independently of the
// code under test.
class Home {
public:
    std::string file(const std::string& relative, std::size_t size) {
        std::string path = home_.writeFile(relative, size);
        files_.push_back(path);
        return path;
    }
    std::string directory(const std::string& relative) { return home_.makeDirectory(relative); }
    std::string at(const std::string& relative) const { return home_.at(relative); }
    const TempHome& temp() const { return home_; }

    struct Sizes {
        std::int64_t logical = 0;
        std::int64_t allocated = 0;
        std::int64_t files = 0;
    };
    Sizes below(const std::string& relative) const {
        const std::string root = home_.at(relative);
        Sizes sizes;
        for (const auto& path : files_) {
            if (!paths::isSameOrBelow(path, root)) continue;
            struct stat info {};
            EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
            sizes.logical += info.st_size;
            sizes.allocated += static_cast<std::int64_t>(info.st_blocks) * 512;
            ++sizes.files;
        }
        return sizes;
    }

private:
    TempHome home_;
    std::vector<std::string> files_;
};

DeveloperTargets makeTargets(const Home& home, std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem(),
                             ProcessRunningCheck isRunning = [](const std::string&) { return false; },
                             std::vector<FileURL> applications = {}) {
    return DeveloperTargets(FileURL(home.temp().path(), true), std::move(applications), std::vector<FileURL>{},
                            std::move(fileSystem), nullptr, std::move(isRunning));
}

std::vector<DiscoveredItem> scanModels(const DeveloperTargets& targets, const ScanProgressHandler& progress = {}) {
    return targets.scan({StorageCategory::aiModelWeights}, progress);
}

std::vector<DiscoveredItem> sortedByPath(std::vector<DiscoveredItem> items) {
    std::sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    return items;
}

// A model-weights item: review required, neither orphaned nor locked.
// `fixedFileCount` stands for the count an item carries whatever was measured.
void expectModelItem(const DiscoveredItem& item, const Home& home, const Expected& expected,
                     std::optional<std::int64_t> fixedFileCount = std::nullopt) {
    SCOPED_TRACE(expected.description + " at " + expected.relative);
    const Home::Sizes sizes = home.below(expected.relative);
    EXPECT_EQ(item.path, home.at(expected.relative));
    EXPECT_EQ(item.itemDescription, expected.description);
    EXPECT_EQ(item.category, StorageCategory::aiModelWeights);
    EXPECT_EQ(item.riskTier, RiskTier::reviewRequired);
    EXPECT_EQ(item.ruleId, expected.ruleId);
    EXPECT_FALSE(item.isOrphaned);
    EXPECT_FALSE(item.isLocked);
    EXPECT_FALSE(item.requiresFullDiskAccess);
    EXPECT_EQ(item.fileCount, fixedFileCount.value_or(std::max<std::int64_t>(sizes.files, 1)));
    EXPECT_EQ(item.logicalSizeBytes, sizes.logical);
    EXPECT_EQ(item.allocatedSizeBytes, sizes.allocated);
}

void expectModelItems(const std::vector<DiscoveredItem>& items, const Home& home, std::vector<Expected> expected,
                      std::optional<std::int64_t> fixedFileCount = std::nullopt) {
    ASSERT_EQ(items.size(), expected.size());
    const auto sorted = sortedByPath(items);
    std::sort(expected.begin(), expected.end(), [&](const auto& a, const auto& b) {
        return home.at(a.relative) < home.at(b.relative);
    });
    for (std::size_t i = 0; i < sorted.size(); ++i) expectModelItem(sorted[i], home, expected[i], fixedFileCount);
}

// ---- model weights

TEST(ModelScanTests, HuggingFaceHubGivesOneItemPerRepositoryNamedByTheRule) {
    Home home;
    const std::string hub = ".cache/huggingface/hub/";
    const std::vector<std::pair<std::string, std::string>> names = {
        {"models--org--model", "org/model"},
        {"models--meta--llama--3", "meta/llama/3"},
        {"datasets--org--set", "datasets/org/set"},  // not a model, listed all the same
        {"x--models--y", "x/y"},                     // "models--" goes wherever it stands
        {"a---b", "a/-b"},                           // left to right, no overlaps
        {"plain", "plain"},
    };
    std::vector<Expected> expected;
    std::size_t size = 100;
    for (const auto& [folder, name] : names) {
        home.file(hub + folder + "/blobs/" + std::to_string(size), size);
        home.file(hub + folder + "/snapshots/main/config.json", 7);
        expected.push_back({hub + folder, "HuggingFace Model: " + name, "ai.huggingface.hub"});
        size += 1000;
    }
    home.file(hub + "version.txt", 1);     // plain files are passed over
    home.file(hub + ".locks/x.lock", 3);   // and hidden entries skipped

    expectModelItems(scanModels(makeTargets(home)), home, expected);
}

TEST(ModelScanTests, HuggingFaceHubFallsBackToTheWholeFolder) {
    const std::string hub = ".cache/huggingface/hub";
    const std::vector<std::pair<std::string, std::function<void(Home&, FaultyFileSystem&)>>> cases = {
        {"only hidden entries", [&](Home& home, FaultyFileSystem&) { home.file(hub + "/.locks/a.lock", 12); }},
        {"empty", [&](Home& home, FaultyFileSystem&) { home.directory(hub); }},
        {"unlistable",
         [&](Home& home, FaultyFileSystem& fileSystem) {
             home.file(hub + "/models--org--model/blob", 4000);
             fileSystem.failOn(FileSystemCall::contentsOfDirectory, home.at(hub), EACCES);
         }},
    };
    for (const auto& [name, setUp] : cases) {
        SCOPED_TRACE(name);
        Home home;
        auto fileSystem = std::make_shared<FaultyFileSystem>();
        setUp(home, *fileSystem);
        const auto items = scanModels(makeTargets(home, fileSystem));
        ASSERT_EQ(items.size(), 1u);
        expectModelItem(items[0], home, {hub, "HuggingFace Model Hub Cache", "ai.huggingface.hub"});
    }
}

TEST(ModelScanTests, WhisperOffersEachCheckpointByItselfWithOneFile) {
    Home home;
    const std::string whisper = ".cache/whisper/";
    home.file(whisper + "base.PT", 1500);       // the extension test ignores case
    home.file(whisper + "tiny.pt", 0);          // an empty checkpoint is still offered
    home.file(whisper + ".hidden.pt", 20);      // hidden entries are listed here
    home.file(whisper + "large.pt/part-1", 300); // a folder counts as one file
    home.file(whisper + "large.pt/part-2", 400);
    home.file(whisper + "base.pt.part", 500);   // a partial download is no model
    home.file(whisper + "notes.txt", 5);

    expectModelItems(scanModels(makeTargets(home)), home,
                     {
                         {whisper + "base.PT", "OpenAI Whisper Model: base.PT", "ai.whisper.models"},
                         {whisper + "tiny.pt", "OpenAI Whisper Model: tiny.pt", "ai.whisper.models"},
                         {whisper + ".hidden.pt", "OpenAI Whisper Model: .hidden.pt", "ai.whisper.models"},
                         {whisper + "large.pt", "OpenAI Whisper Model: large.pt", "ai.whisper.models"},
                     },
                     1);
}

TEST(ModelScanTests, WhisperFolderWithoutCheckpointsGivesNothing) {
    Home home;
    home.file(".cache/whisper/base.pt.part", 500);
    home.file(".cache/whisper/README", 5);
    EXPECT_TRUE(scanModels(makeTargets(home)).empty());
}

TEST(ModelScanTests, WhisperFolderThatListsNothingIsOfferedWhole) {
    const std::string whisper = ".cache/whisper";
    for (const bool unlistable : {false, true}) {
        SCOPED_TRACE(unlistable ? "unlistable" : "empty");
        Home home;
        auto fileSystem = std::make_shared<FaultyFileSystem>();
        home.directory(whisper);
        if (unlistable) {
            home.file(whisper + "/base.pt", 900);
            fileSystem->failOn(FileSystemCall::contentsOfDirectory, home.at(whisper), EIO);
        }
        const auto items = scanModels(makeTargets(home, fileSystem));
        ASSERT_EQ(items.size(), 1u);
        expectModelItem(items[0], home, {whisper, "OpenAI Whisper Speech Models Cache", "ai.whisper.models"});
    }
}

TEST(ModelScanTests, LMStudioGivesOneItemPerModelUnderEachPublisher) {
    Home home;
    const std::string first = ".cache/lm-studio/models/";
    home.file(first + "lmstudio-community/Qwen-7B-GGUF/qwen.gguf", 3000);
    home.file(first + "lmstudio-community/Qwen-7B-GGUF/.meta", 10);
    home.file(first + "lmstudio-community/loose.gguf", 50); // a file is a model too
    home.directory(first + "empty-publisher");
    home.file(first + "hidden-only/.DS_Store", 6); // lists as empty: offered as the publisher
    home.file(first + "index.json", 2);            // plain files in the root are passed over
    home.directory(".lmstudio/models");            // the second root, empty: offered whole

    expectModelItems(
        scanModels(makeTargets(home)), home,
        {
            {first + "lmstudio-community/Qwen-7B-GGUF", "LM Studio Model: lmstudio-community/Qwen-7B-GGUF",
             "ai.lmstudio.models"},
            {first + "lmstudio-community/loose.gguf", "LM Studio Model: lmstudio-community/loose.gguf",
             "ai.lmstudio.models"},
            {first + "empty-publisher", "LM Studio Model: empty-publisher", "ai.lmstudio.models"},
            {first + "hidden-only", "LM Studio Model: hidden-only", "ai.lmstudio.models"},
            {".lmstudio/models", "LM Studio Local Models Cache", "ai.lmstudio.models"},
        });
}

TEST(ModelScanTests, LMStudioListingsThatFailGiveTheFolderWhole) {
    Home home;
    auto fileSystem = std::make_shared<FaultyFileSystem>();
    home.file(".cache/lm-studio/models/pub/model/w.gguf", 700);
    home.file(".lmstudio/models/other/model/w.gguf", 800);
    fileSystem->failOn(FileSystemCall::contentsOfDirectory, home.at(".cache/lm-studio/models/pub"), EACCES);
    fileSystem->failOn(FileSystemCall::contentsOfDirectory, home.at(".lmstudio/models"), EACCES);

    const auto items = scanModels(makeTargets(home, fileSystem));
    ASSERT_EQ(items.size(), 2u);
    expectModelItem(items[0], home,
                    {".cache/lm-studio/models/pub", "LM Studio Model: pub", "ai.lmstudio.models"});
    expectModelItem(items[1], home, {".lmstudio/models", "LM Studio Local Models Cache", "ai.lmstudio.models"});
}

// One place of each kind: the sections come in their fixed order, and the
// places that go whole (assets, Ollama, both vLLM paths) carry their own text.
TEST(ModelScanTests, SectionsRunInOrderAndWholeFoldersGoWhole) {
    Home home;
    home.file(".vllm/kernels/k.bin", 90);
    home.file(".cache/vllm/torch_compile_cache/a", 80);
    home.file(".lmstudio/models/pub/model.gguf", 70);
    home.file(".ollama/models/blobs/sha256-1", 60);
    home.file(".ollama/models/manifests/registry/library/llama/latest", 6);
    home.file(".cache/whisper/small.pt", 50);
    home.file(".cache/huggingface/assets/org/set/data.arrow", 40);
    home.file(".cache/huggingface/hub/models--org--m/blob", 30);

    std::vector<ScanProgress> reports;
    const auto items = scanModels(makeTargets(home), [&](const ScanProgress& p) { reports.push_back(p); });

    const std::vector<Expected> expected = {
        {".cache/huggingface/hub/models--org--m", "HuggingFace Model: org/m", "ai.huggingface.hub"},
        {".cache/huggingface/assets", "HuggingFace Assets & Preprocessed Datasets", "ai.huggingface.hub"},
        {".cache/whisper/small.pt", "OpenAI Whisper Model: small.pt", "ai.whisper.models"},
        {".ollama/models", "Ollama Local Model Layers & Manifests (GGUF)", "ai.ollama.models"},
        {".lmstudio/models/pub/model.gguf", "LM Studio Model: pub/model.gguf", "ai.lmstudio.models"},
        {".cache/vllm", "vLLM Model Weights & Kernel Cache", "ai.vllm.weights"},
        {".vllm", "vLLM Model Weights & Kernel Cache", "ai.vllm.weights"},
    };
    ASSERT_EQ(items.size(), expected.size());
    ASSERT_EQ(reports.size(), expected.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        expectModelItem(items[i], home, expected[i]);
        EXPECT_EQ(reports[i].currentCategory, StorageCategory::aiModelWeights);
        EXPECT_EQ(reports[i].currentPath, items[i].path);
        EXPECT_EQ(reports[i].itemsFound, 1);
        EXPECT_EQ(reports[i].totalAllocatedBytesScanned, items[i].allocatedSizeBytes);
        EXPECT_EQ(reports[i].totalLogicalBytesScanned, items[i].logicalSizeBytes);
    }
    // A model scan does not look at Docker.
    home.file("Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw", 10);
    EXPECT_EQ(scanModels(makeTargets(home)).size(), expected.size());
}

// ---- Docker

const std::string vms = "Library/Containers/com.docker.docker/Data/vms";
const std::string orphanedText = "Docker VM Disk Image [Orphaned (Docker.app uninstalled & inactive)]";
const std::string activeText = "Docker VM Disk Image [Active (Docker.app installed or running)]";

std::vector<DiscoveredItem> scanDocker(const DeveloperTargets& targets) {
    return targets.scan({StorageCategory::dockerVM}, {});
}

// A checker that answers as the real one does: is any of these names
// running, by substring and without regard to case. It records the questions.
struct FakeProcesses {
    std::vector<std::string> running;
    std::vector<std::string> asked;
    ProcessRunningCheck checker() {
        return [this](const std::string& name) {
            asked.push_back(name);
            auto lower = [](std::string text) {
                for (auto& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                return text;
            };
            return std::any_of(running.begin(), running.end(), [&](const std::string& process) {
                return lower(process).find(lower(name)) != std::string::npos;
            });
        };
    }
};

void expectDockerItem(const DiscoveredItem& item, const Home& home, const std::string& relative, bool orphaned,
                      bool locked) {
    SCOPED_TRACE(relative);
    const Home::Sizes sizes = home.below(relative);
    EXPECT_EQ(item.path, home.at(relative));
    EXPECT_EQ(item.itemDescription, orphaned ? orphanedText : activeText);
    EXPECT_EQ(item.category, StorageCategory::dockerVM);
    EXPECT_EQ(item.riskTier, orphaned ? RiskTier::reviewRequired : RiskTier::keep);
    EXPECT_EQ(item.ruleId, "dev.docker.orphaned_vm");
    EXPECT_EQ(item.isOrphaned, orphaned);
    EXPECT_EQ(item.isLocked, locked);
    EXPECT_FALSE(item.requiresFullDiskAccess);
    EXPECT_EQ(item.fileCount, 1);
    EXPECT_EQ(item.logicalSizeBytes, sizes.logical);
    EXPECT_EQ(item.allocatedSizeBytes, sizes.allocated);
}

TEST(ModelScanTests, DockerImageStateFollowsTheApplicationAndTheProcesses) {
    struct Case {
        const char* name;
        bool installed;
        std::vector<std::string> running;
        bool orphaned;
        bool locked;
    };
    const std::vector<Case> cases = {
        {"absent, vpnkit-bridge alive", false, {"launchd", "vpnkit-bridge"}, false, true},
        {"absent, nothing of Docker's", false, {"launchd", "sshd", "containerd"}, true, false},
        {"installed and idle", true, {"launchd"}, false, false},
        {"installed and running", true, {"com.docker.backend"}, false, true},
        {"absent, engine by another case", false, {"DOCKERD"}, false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Home home;
        const std::string image = vms + "/0/data/Docker.raw";
        home.file(image, 12345);
        // Docker.app is looked for in every applications folder, not only the first.
        std::vector<FileURL> applications = {FileURL(home.temp().root() + "/Applications", true),
                                             FileURL(home.at("Applications"), true)};
        home.directory("Applications");
        if (c.installed) home.directory("Applications/Docker.app/Contents");
        FakeProcesses processes{c.running, {}};

        const auto items =
            scanDocker(makeTargets(home, makeDefaultFileSystem(), processes.checker(), applications));
        ASSERT_EQ(items.size(), 1u);
        expectDockerItem(items[0], home, image, c.orphaned, c.locked);
    }
}

TEST(ModelScanTests, DockerAsksForEachProcessNameOnceInOrder) {
    Home home;
    home.file(vms + "/0/data/Docker.raw", 100);
    home.file(vms + "/1/Docker.raw", 100);
    FakeProcesses processes;
    const auto items = scanDocker(makeTargets(home, makeDefaultFileSystem(), processes.checker()));
    EXPECT_EQ(items.size(), 2u);
    EXPECT_EQ(processes.asked, (std::vector<std::string>{"Docker", "com.docker.virtualization", "com.docker.backend",
                                                         "vpnkit", "docker"}));

    // The first name that runs ends the questions.
    processes = FakeProcesses{{"vpnkit-forwarder"}, {}};
    scanDocker(makeTargets(home, makeDefaultFileSystem(), processes.checker()));
    EXPECT_EQ(processes.asked,
              (std::vector<std::string>{"Docker", "com.docker.virtualization", "com.docker.backend", "vpnkit"}));
}

TEST(ModelScanTests, DockerImagesOfOneFolderComeInCandidateOrder) {
    Home home;
    home.file(vms + "/0/Docker.raw", 4096 * 3);
    home.file(vms + "/0/data/Docker.qcow2", 5000);
    home.file(vms + "/0/data/Docker.raw", 4096 * 5);
    home.file(vms + "/0/data/other.raw", 100);      // not a candidate
    home.file(vms + "/.hidden/data/Docker.raw", 7); // hidden entries are skipped
    home.file(vms + "/stray-file", 9);              // a file holds no candidates

    const auto items = scanDocker(makeTargets(home));
    ASSERT_EQ(items.size(), 3u);
    expectDockerItem(items[0], home, vms + "/0/data/Docker.raw", true, false);
    expectDockerItem(items[1], home, vms + "/0/Docker.raw", true, false);
    expectDockerItem(items[2], home, vms + "/0/data/Docker.qcow2", true, false);
}

TEST(ModelScanTests, DockerWithoutAListableVMFolderGivesNothing) {
    Home home;
    EXPECT_TRUE(scanDocker(makeTargets(home)).empty());

    home.file(vms + "/0/data/Docker.raw", 100);
    auto fileSystem = std::make_shared<FaultyFileSystem>();
    fileSystem->failOn(FileSystemCall::contentsOfDirectory, home.at(vms), EACCES);
    EXPECT_TRUE(scanDocker(makeTargets(home, fileSystem)).empty());
}

TEST(ModelScanTests, DockerImageThatCannotBeReadIsStillOffered) {
    Home home;
    const std::string image = home.file(vms + "/0/data/Docker.raw", 8192);
    auto fileSystem = std::make_shared<FaultyFileSystem>();
    fileSystem->failOn(FileSystemCall::linkStatus, image, EACCES);

    const auto items = scanDocker(makeTargets(home, fileSystem));
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].path, image);
    EXPECT_EQ(items[0].itemDescription, orphanedText);
    EXPECT_EQ(items[0].riskTier, RiskTier::reviewRequired);
    EXPECT_EQ(items[0].logicalSizeBytes, 0);
    EXPECT_EQ(items[0].allocatedSizeBytes, 0);
    EXPECT_EQ(items[0].fileCount, 1);
    EXPECT_TRUE(items[0].requiresFullDiskAccess);
}

// A real process whose short name is "vpnkit-bridge" (a copy of sleep) is
// found by the real checker, and locks the image.
class ChildProcess {
public:
    explicit ChildProcess(const std::string& program) {
        std::string name = paths::lastComponent(program);
        std::string seconds = "60";
        char* argv[] = {name.data(), seconds.data(), nullptr};
        if (::posix_spawn(&pid_, program.c_str(), nullptr, nullptr, argv, environ) != 0) pid_ = -1;
    }
    ~ChildProcess() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    bool started() const { return pid_ > 0; }

private:
    pid_t pid_ = -1;
};

TEST(ModelScanTests, DockerDaemonSeenThroughTheRealProcessChecker) {
    const ProcessRunningCheck checker = DeveloperTargets::defaultProcessChecker();
    for (const char* name : {"Docker", "com.docker.virtualization", "com.docker.backend", "vpnkit", "docker"}) {
        if (checker(name)) GTEST_SKIP() << "a process named like " << name << " already runs on this machine";
    }
    Home home;
    const std::string image = vms + "/0/data/Docker.raw";
    home.file(image, 2048);
    EXPECT_FALSE(scanDocker(makeTargets(home, makeDefaultFileSystem(), checker)).at(0).isLocked);

    const std::string program = home.temp().root() + "/bin/vpnkit-bridge";
    std::filesystem::create_directories(home.temp().root() + "/bin");
    std::filesystem::copy_file("/bin/sleep", program);
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    ChildProcess child(program);
    ASSERT_TRUE(child.started());
    // The child takes its name when exec is done; give it a moment.
    for (int i = 0; i < 100 && !checker("vpnkit"); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));

    const auto items = scanDocker(makeTargets(home, makeDefaultFileSystem(), checker));
    ASSERT_EQ(items.size(), 1u);
    expectDockerItem(items[0], home, image, false, true);
}

} // namespace
} // namespace unbulk
