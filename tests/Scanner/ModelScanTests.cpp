#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <tuple>

#include <gtest/gtest.h>

#include "Scanner/DeveloperTargets.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using testing::FileSystemCall;

// A model item as the scan should make it of a place, its sizes measured
// here: it needs review, and is neither orphaned nor locked.
void expectItem(const DiscoveredItem& item, const std::string& path, const std::string& description,
                const std::string& ruleId, std::optional<std::int64_t> fileCount = std::nullopt) {
    const auto [logical, allocated, files] = testing::diskUsage(path);
    EXPECT_EQ(std::tuple(item.path, item.itemDescription, item.ruleId, item.category, item.riskTier, item.isOrphaned,
                         item.isLocked, item.requiresFullDiskAccess, item.fileCount, item.logicalSizeBytes,
                         item.allocatedSizeBytes),
              std::tuple(path, description, ruleId, StorageCategory::aiModelWeights, RiskTier::reviewRequired, false,
                         false, false, fileCount.value_or(std::max<std::int64_t>(files, 1)), logical, allocated));
}

class ModelScanTest : public ::testing::Test {
protected:
    std::vector<DiscoveredItem> scan(StorageCategory category) const {
        // Like the real checker: part of the name of a running process.
        auto isRunning = [this](const std::string& name) { return running.find(name) != std::string::npos; };
        // Docker.app counts in any applications folder, not only the first.
        const std::vector applications{FileURL(home.root() + "/Applications", true), FileURL(at("Applications"), true)};
        const DeveloperTargets targets(FileURL(home.path(), true), applications, std::vector<FileURL>{}, fileSystem,
                                       nullptr, isRunning);
        auto items = targets.scan({category}, {});
        // Listings come in the platform's order; Docker's images keep the order of their candidates.
        if (category != StorageCategory::dockerVM) std::ranges::sort(items, {}, &DiscoveredItem::path);
        return items;
    }
    std::string at(std::string_view relative) const { return home.at(relative); }

    testing::TempHome home;
    std::shared_ptr<testing::FaultyFileSystem> fileSystem = std::make_shared<testing::FaultyFileSystem>();
    std::string running; // the names of the running processes, one after the other
    const std::string hub = ".cache/huggingface/hub", whisper = ".cache/whisper/", lms = ".cache/lm-studio/models/";
    const std::string vms = "Library/Containers/com.docker.docker/Data/vms/";
    const std::string orphanedImage = "Docker VM Disk Image [Orphaned (Docker.app uninstalled & inactive)]";
    const std::string activeImage = "Docker VM Disk Image [Active (Docker.app installed or running)]";
};

// The hub's lock folder and a partial Whisper download are among the decoys of ScanEndToEndTests.
TEST_F(ModelScanTest, ModelPlacesGiveTheirItems) {
    home.writeFile(hub + "/models--meta--llama--3/blobs/b1", 1100);
    home.writeFile(hub + "/models--meta--llama--3/snapshots/main/config.json", 7);
    home.writeFile(hub + "/version.txt", 1); // plain files are passed over
    home.writeFile(whisper + "base.PT", 1500);        // the extension test ignores case
    home.writeFile(whisper + "tiny.pt", 0);           // an empty checkpoint is still offered
    home.writeFile(whisper + "large.pt/part-1", 300); // a folder counts as one file
    home.writeFile(whisper + "large.pt/part-2", 400);
    home.writeFile(lms + "lmstudio-community/Qwen/q.gguf", 3000);
    home.makeDirectory(lms + "empty-publisher");      // offered as the publisher
    home.writeFile(".cache/vllm/torch_compile_cache/a", 80);
    home.writeFile(".vllm/kernels/k.bin", 90);

    const auto items = scan(StorageCategory::aiModelWeights);
    ASSERT_EQ(items.size(), 8u);
    const std::string lm = "ai.lmstudio.models", vllm = "vLLM Model Weights & Kernel Cache", wm = "ai.whisper.models";
    expectItem(items[0], at(hub + "/models--meta--llama--3"), "HuggingFace Model: meta/llama/3", "ai.huggingface.hub");
    expectItem(items[1], at(lms + "empty-publisher"), "LM Studio Model: empty-publisher", lm);
    expectItem(items[2], at(lms + "lmstudio-community/Qwen"), "LM Studio Model: lmstudio-community/Qwen", lm);
    expectItem(items[3], at(".cache/vllm"), vllm, "ai.vllm.weights");
    expectItem(items[4], at(whisper + "base.PT"), "OpenAI Whisper Model: base.PT", wm, 1);
    expectItem(items[5], at(whisper + "large.pt"), "OpenAI Whisper Model: large.pt", wm, 1);
    expectItem(items[6], at(whisper + "tiny.pt"), "OpenAI Whisper Model: tiny.pt", wm, 1);
    expectItem(items[7], at(".vllm"), vllm, "ai.vllm.weights");
}

// The state of every image is decided once, from Docker.app and from
// Docker's processes; images of one VM folder come in the order of their places.
TEST_F(ModelScanTest, DockerImagesFollowTheStateOfDocker) {
    const std::vector<std::string> images = {vms + "0/data/Docker.raw", vms + "0/Docker.raw",
                                             vms + "0/data/Docker.qcow2"};
    for (const auto& image : images) home.writeFile(image, 8192);
    home.writeFile(vms + "0/data/other.raw", 100);
    for (const auto& [installed, processes, orphaned, locked] :
         {std::tuple{false, "launchd vpnkit-bridge", false, true}, {false, "launchd sshd", true, false},
          {true, "launchd", false, false}}) {
        SCOPED_TRACE(::testing::Message() << "installed " << installed << ", running " << processes);
        fs::remove_all(at("Applications"));
        if (installed) home.makeDirectory("Applications/Docker.app/Contents");
        running = processes;
        const auto items = scan(StorageCategory::dockerVM);
        ASSERT_EQ(items.size(), images.size());
        for (std::size_t i = 0; i < images.size(); ++i) {
            const DiscoveredItem& it = items[i];
            EXPECT_EQ(std::tuple(it.path, it.itemDescription, it.riskTier, it.isOrphaned, it.isLocked, it.ruleId),
                      std::tuple(at(images[i]), orphaned ? orphanedImage : activeImage,
                                 orphaned ? RiskTier::reviewRequired : RiskTier::keep, orphaned, locked,
                                 "dev.docker.orphaned_vm"));
            EXPECT_EQ(std::tuple(it.fileCount, it.logicalSizeBytes), std::tuple(1, 8192));
        }
    }
    // An image that cannot be read is still offered, with no bytes and the flag.
    fileSystem->failOn(FileSystemCall::linkStatus, at(images[0]), EACCES);
    const DiscoveredItem unread = scan(StorageCategory::dockerVM).at(0);
    EXPECT_EQ(std::tuple(unread.path, unread.logicalSizeBytes, unread.allocatedSizeBytes, unread.fileCount,
                         unread.requiresFullDiskAccess),
              std::tuple(at(images[0]), 0, 0, 1, true));
}

} // namespace
} // namespace unbulk
