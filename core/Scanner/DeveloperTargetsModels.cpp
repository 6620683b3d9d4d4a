#include "Scanner/DeveloperTargets.hpp"

#include <array>
#include <string_view>

#include "Support/Paths.hpp"
#include "Support/Text.hpp"

namespace unbulk {
namespace {

constexpr std::string_view huggingFaceRuleId = "ai.huggingface.hub";
constexpr std::string_view whisperRuleId = "ai.whisper.models";
constexpr std::string_view ollamaRuleId = "ai.ollama.models";
constexpr std::string_view lmStudioRuleId = "ai.lmstudio.models";
constexpr std::string_view vllmRuleId = "ai.vllm.weights";
constexpr std::string_view dockerRuleId = "dev.docker.orphaned_vm";

constexpr std::array<std::string_view, 2> lmStudioRoots = {".cache/lm-studio/models", ".lmstudio/models"};
constexpr std::array<std::string_view, 2> vllmPaths = {".cache/vllm", ".vllm"};

// Short names of the processes that show Docker at work: the desktop
// application, its virtualisation and backend helpers, the network proxy
// (vpnkit, vpnkit-bridge, ...) and the engine itself.
constexpr std::array<std::string_view, 5> dockerProcessNames = {"Docker", "com.docker.virtualization",
                                                                "com.docker.backend", "vpnkit", "docker"};

// Where a VM folder keeps its disk image, by Docker Desktop version.
constexpr std::array<std::string_view, 3> dockerImageCandidates = {"data/Docker.raw", "Docker.raw",
                                                                   "data/Docker.qcow2"};

constexpr std::string_view dockerOrphanedState = "Orphaned (Docker.app uninstalled & inactive)";
constexpr std::string_view dockerActiveState = "Active (Docker.app installed or running)";

// A listed entry is a directory when the directory read says so, or when it
// is a link (or of unknown kind) that leads to one.
bool isDirectoryEntry(const FileSystem& fileSystem, const FileURL& entry) {
    return entry.isDirectory() || fileSystem.isDirectory(entry.path());
}

// The hub keeps a repository in "models--<org>--<name>" (or "datasets--...",
// "spaces--..."). Shown as "<org>/<name>": every "models--" goes, wherever it
// stands, and every remaining "--" becomes "/".
std::string huggingFaceModelName(std::string_view folderName) {
    return text::replacingAll(text::replacingAll(std::string(folderName), "models--", ""), "--", "/");
}

bool hasWhisperModelExtension(const std::string& path) {
    const std::string extension = paths::pathExtension(path);
    return extension.size() == 2 && (extension[0] == 'p' || extension[0] == 'P') &&
           (extension[1] == 't' || extension[1] == 'T');
}

} // namespace

// ---- model weights

namespace {

void offerModel(ItemCollector& collector, const FileURL& url, std::string description, std::string_view ruleId,
                const MeasuredMetrics& metrics, std::optional<std::int64_t> fileCount = std::nullopt) {
    collector.add({.url = url,
                   .category = StorageCategory::aiModelWeights,
                   .description = std::move(description),
                   .fallbackRuleId = std::string(ruleId),
                   .fileCount = fileCount},
                  metrics);
}

// Offers a measured place unless it vanished since it was found.
void offerMeasuredModel(ItemCollector& collector, const FileURL& url, const MeasuredMetrics& metrics,
                        std::string description, std::string_view ruleId) {
    if (ItemMeasurer::passesKeepTest(metrics)) offerModel(collector, url, std::move(description), ruleId, metrics);
}

} // namespace

std::vector<DiscoveredItem> DeveloperTargets::scanAIModelWeights(const ScanProgressHandler& progress) const {
    ItemCollector collector(riskClassifier_, progress);
    auto offerPlace = [&](std::string_view relative, std::string description, std::string_view ruleId) {
        if (auto url = fileSystem_->existingURL(homeChild(relative).path())) {
            offerMeasuredModel(collector, *url, measureItem(*url), std::move(description), ruleId);
        }
    };
    scanHuggingFace(collector);
    offerPlace(".cache/huggingface/assets", "HuggingFace Assets & Preprocessed Datasets", huggingFaceRuleId);
    scanWhisper(collector);
    // Ollama shares layers between models, so its store goes whole.
    offerPlace(".ollama/models", "Ollama Local Model Layers & Manifests (GGUF)", ollamaRuleId);
    scanLMStudio(collector);
    for (std::string_view relative : vllmPaths) offerPlace(relative, "vLLM Model Weights & Kernel Cache", vllmRuleId);
    return collector.take();
}

// Hugging Face hub: one item per cached repository, so that one model can go
// and another stay. A hub that cannot be listed, or holds nothing but hidden
// bookkeeping (.locks), is offered whole.
void DeveloperTargets::scanHuggingFace(ItemCollector& collector) const {
    const auto hub = fileSystem_->existingURL(homeChild(".cache/huggingface/hub").path());
    if (!hub) return;
    const auto entries = list(*hub, ListOptions{.skipHiddenFiles = true});
    if (!entries || entries->empty()) {
        offerMeasuredModel(collector, *hub, measureItem(*hub), "HuggingFace Model Hub Cache", huggingFaceRuleId);
        return;
    }
    for (const FileURL& entry : *entries) {
        if (!isDirectoryEntry(*fileSystem_, entry)) continue;
        offerMeasuredModel(collector, entry, measureItem(entry),
                           "HuggingFace Model: " + huggingFaceModelName(entry.lastComponent()), huggingFaceRuleId);
    }
}

// Whisper: each checkpoint (*.pt, hidden ones too) by itself. A partial
// download ("base.pt.part") is not a model and is passed over.
void DeveloperTargets::scanWhisper(ItemCollector& collector) const {
    const auto whisper = fileSystem_->existingURL(homeChild(".cache/whisper").path());
    if (!whisper) return;
    const auto entries = list(*whisper, ListOptions{});
    if (!entries || entries->empty()) {
        offerMeasuredModel(collector, *whisper, measureItem(*whisper), "OpenAI Whisper Speech Models Cache",
                           whisperRuleId);
        return;
    }
    for (const FileURL& entry : *entries) {
        if (!hasWhisperModelExtension(entry.path())) continue;
        offerModel(collector, entry, "OpenAI Whisper Model: " + entry.lastComponent(), whisperRuleId,
                   measureItem(entry), 1);
    }
}

// LM Studio: <root>/<publisher>/<model>, one item per model; a root or a
// publisher with nothing to list below it is offered whole.
void DeveloperTargets::scanLMStudio(ItemCollector& collector) const {
    const ListOptions skipHidden{.skipHiddenFiles = true};
    for (std::string_view relative : lmStudioRoots) {
        const auto root = fileSystem_->existingURL(homeChild(relative).path());
        if (!root) continue;
        const auto publishers = list(*root, skipHidden);
        if (!publishers || publishers->empty()) {
            offerMeasuredModel(collector, *root, measureItem(*root), "LM Studio Local Models Cache", lmStudioRuleId);
            continue;
        }
        for (const FileURL& publisher : *publishers) {
            if (!isDirectoryEntry(*fileSystem_, publisher)) continue;
            const std::string publisherName = publisher.lastComponent();
            const auto models = list(publisher, skipHidden);
            if (!models || models->empty()) {
                offerMeasuredModel(collector, publisher, measureItem(publisher), "LM Studio Model: " + publisherName,
                                   lmStudioRuleId);
                continue;
            }
            for (const FileURL& model : *models) {
                offerMeasuredModel(collector, model, measureItem(model),
                                   "LM Studio Model: " + publisherName + "/" + model.lastComponent(), lmStudioRuleId);
            }
        }
    }
}

// ---- Docker

bool DeveloperTargets::isDockerAppInstalled() const {
    for (const FileURL& applications : applicationsURLs_) {
        if (fileSystem_->fileExists(applications.appending("Docker.app", true).path())) return true;
    }
    return false;
}

bool DeveloperTargets::isDockerDaemonRunning() const {
    for (std::string_view name : dockerProcessNames) {
        if (isProcessRunning_(std::string(name))) return true;
    }
    return false;
}

std::vector<DiscoveredItem> DeveloperTargets::scanDockerVMs(const ScanProgressHandler& progress) const {
    // Decided once: a daemon that starts while the images are measured is
    // not seen by this scan.
    const bool installed = isDockerAppInstalled();
    const bool running = isDockerDaemonRunning();
    const bool orphaned = !installed && !running;

    const FileURL vms = homeChild("Library/Containers/com.docker.docker/Data/vms");
    if (!fileSystem_->fileExists(vms.path())) return {};
    auto entries = list(vms, ListOptions{.skipHiddenFiles = true});
    if (!entries) return {};

    std::vector<FileURL> images;
    for (const FileURL& entry : *entries) {
        for (std::string_view candidate : dockerImageCandidates) {
            if (auto image = fileSystem_->existingURL(paths::appending(entry.path(), candidate))) {
                images.push_back(std::move(*image));
            }
        }
    }

    const std::string description =
        "Docker VM Disk Image [" + std::string(orphaned ? dockerOrphanedState : dockerActiveState) + "]";
    ItemCollector collector(riskClassifier_, progress);
    for (const FileURL& image : images) {
        // No keep test: an image that cannot be read is still offered, with
        // no bytes and the full-disk-access mark.
        collector.add({.url = image,
                       .category = StorageCategory::dockerVM,
                       .description = description,
                       .fallbackRuleId = std::string(dockerRuleId),
                       .classifyAsOrphaned = orphaned,
                       .isOrphaned = orphaned,
                       .isLocked = running,
                       .fileCount = 1},
                      measureItem(image));
    }
    return collector.take();
}

} // namespace unbulk
