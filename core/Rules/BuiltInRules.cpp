#include "Rules/BuiltInRules.hpp"

#include <string>

namespace unbulk {
namespace {

struct BuiltInRow {
    const char* id;
    const char* name;
    const char* description;
    StorageCategory category;
    RiskTier riskTier;
    bool isRegenerable;
    std::vector<std::string> patterns;
    std::vector<std::string> excludedPatterns;
};

// Kept as they are on purpose: sys.user.caches is the catch-all of
// ~/Library/Caches and overlaps the narrower cache rules; dev.homebrew.cache
// excludes exactly what dev.homebrew.incomplete selects; sys.user.logs also
// covers the two crash-report folders; dev.git.orphaned_worktrees names a .git
// directly in the home directory.
std::vector<BuiltInRow> builtInRows() {
    return {
        {"dev.uv.cache", "uv Package & Wheel Cache",
         "Python packages, wheels, and source download caches managed by Astral uv.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/.cache/uv/**", "~/Library/Caches/uv/**"},
         {}},
        {"dev.npm.cache", "npm Cache",
         "Node Package Manager download caches and execution logs.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/.npm/_cacache/**", "~/.npm/_npx/**", "~/.npm/_logs/**", "~/.npm/_prebuilds/**"},
         {}},
        {"dev.bun.cache", "Bun Package Cache",
         "Bun runtime package download and tar cache.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/.bun/install/cache/**"},
         {}},
        {"dev.pip.cache", "pip Cache",
         "Python pip HTTP response cache and built wheels.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/.cache/pip/**", "~/Library/Caches/pip/**"},
         {}},
        {"dev.cargo.cache", "Cargo Registry & Git Cache",
         "Downloaded crate archives and git index checkouts for Rust.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/.cargo/registry/cache/**",
          "~/.cargo/registry/src/**",
          "~/.cargo/git/db/**",
          "~/.cargo/git/checkouts/**",
          "~/.cargo/.package-cache/**"},
         {"~/.cargo/bin/**", "~/.cargo/config.toml", "~/.cargo/credentials.toml"}},
        {"dev.go.cache", "Go Module & Build Cache",
         "Go module download cache and compilation artifacts.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/go/pkg/mod/cache/**", "~/Library/Caches/go-build/**"},
         {}},
        {"dev.homebrew.cache", "Homebrew Cache",
         "Downloaded formula bottles, cask packages, and API metadata managed by Homebrew.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/Library/Caches/Homebrew/**"},
         {"~/Library/Caches/Homebrew/downloads/*.incomplete"}},
        {"dev.homebrew.incomplete", "Homebrew Incomplete Downloads",
         "Interrupted or partial Homebrew bottle and cask downloads.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/Library/Caches/Homebrew/downloads/*.incomplete"},
         {}},
        {"dev.pnpm.store", "pnpm Virtual Store",
         "Global content-addressable package storage managed by pnpm.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/.local/share/pnpm/store/**", "~/Library/pnpm/store/**"},
         {}},
        {"dev.gradle.cache", "Gradle Cache & Wrapper Distributions",
         "Downloaded dependencies, transform caches, and distribution runtimes for Gradle.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/.gradle/caches/**", "~/.gradle/wrapper/dists/**", "~/.gradle/daemon/**"},
         {"~/.gradle/gradle.properties", "~/.gradle/init.d/**"}},
        {"dev.git.orphaned_worktrees", "Orphaned Git Worktrees",
         "Stale git worktree metadata referencing deleted checkout directories, or orphaned worktree checkouts.",
         StorageCategory::developerCache, RiskTier::safeToDelete, true,
         {"~/.git/worktrees/**"},
         {}},
        {"ai.huggingface.hub", "HuggingFace Hub Models",
         "Cached model weights and dataset snapshots downloaded from HuggingFace.",
         StorageCategory::aiModelWeights, RiskTier::reviewRequired, false,
         {"~/.cache/huggingface/hub/**", "~/.cache/huggingface/assets/**"},
         {}},
        {"ai.whisper.models", "OpenAI Whisper Models",
         "Pretrained PyTorch model checkpoints for Whisper audio transcription.",
         StorageCategory::aiModelWeights, RiskTier::reviewRequired, false,
         {"~/.cache/whisper/*.pt"},
         {}},
        {"ai.ollama.models", "Ollama Model Layers",
         "GGUF model layers and manifests managed by Ollama.",
         StorageCategory::aiModelWeights, RiskTier::reviewRequired, false,
         {"~/.ollama/models/**"},
         {}},
        {"ai.lmstudio.models", "LM Studio Models",
         "Local GGUF models downloaded and managed by LM Studio.",
         StorageCategory::aiModelWeights, RiskTier::reviewRequired, false,
         {"~/.cache/lm-studio/models/**", "~/.lmstudio/models/**"},
         {}},
        {"ai.vllm.weights", "vLLM Weights & Cache",
         "Cached model weights, compiled Triton kernels, and artifacts for vLLM.",
         StorageCategory::aiModelWeights, RiskTier::reviewRequired, false,
         {"~/.cache/vllm/**"},
         {}},
        {"dev.docker.orphaned_vm", "Docker VM Disk Image",
         "Docker Desktop Linux VM APFS disk image (Docker.raw).",
         StorageCategory::dockerVM, RiskTier::reviewRequired, false,
         {"~/Library/Containers/com.docker.docker/Data/vms/*/data/Docker.raw",
          "~/Library/Containers/com.docker.docker/Data/vms/*/Docker.raw"},
         {}},
        {"dev.xcode.derived_data", "Xcode DerivedData",
         "Intermediate build files, module caches, and compilation indices.",
         StorageCategory::xcodeArtifacts, RiskTier::safeToDelete, true,
         {"~/Library/Developer/Xcode/DerivedData/**"},
         {}},
        {"dev.xcode.simulator_caches", "Xcode Simulator Runtime Caches",
         "Dyld shared caches and temporary runtime files for CoreSimulator.",
         StorageCategory::xcodeArtifacts, RiskTier::safeToDelete, true,
         {"~/Library/Developer/CoreSimulator/Caches/**"},
         {}},
        {"dev.stray.node_modules", "Stray Home node_modules",
         "Accidentally installed npm modules located directly inside user home root.",
         StorageCategory::strayDependencies, RiskTier::reviewRequired, false,
         {"~/node_modules/**"},
         {}},
        {"sys.user.caches", "User Application Caches",
         "Standard macOS user caches in ~/Library/Caches.",
         StorageCategory::systemCaches, RiskTier::safeToDelete, true,
         {"~/Library/Caches/**"},
         {}},
        {"sys.user.logs", "User Application Logs",
         "Historical application logs in ~/Library/Logs.",
         StorageCategory::systemLogs, RiskTier::safeToDelete, true,
         {"~/Library/Logs/**"},
         {}},
        {"sys.crash.user_reports", "Crash & Diagnostic Reports",
         "Apple diagnostic crash dumps (.ips, .crash files).",
         StorageCategory::crashReports, RiskTier::safeToDelete, true,
         {"~/Library/Logs/DiagnosticReports/**", "~/Library/Logs/CrashReporter/**"},
         {}},
        {"sys.browser.chrome", "Google Chrome Cache",
         "Disk HTTP cache and V8 code cache for Chrome.",
         StorageCategory::browserCaches, RiskTier::safeToDelete, true,
         {"~/Library/Caches/Google/Chrome/*/Cache/**", "~/Library/Caches/Google/Chrome/*/Code Cache/**"},
         {}},
    };
}

} // namespace

std::vector<RuleDefinition> buildDefaultCatalog(Date now) {
    std::vector<RuleDefinition> rules;
    rules.reserve(builtInRuleCount);
    for (auto& row : builtInRows()) {
        rules.push_back(RuleDefinition{
            .id = row.id,
            .name = row.name,
            .description = row.description,
            .category = row.category,
            .riskTier = row.riskTier,
            .patterns = std::move(row.patterns),
            .excludedPatterns = std::move(row.excludedPatterns),
            .isRegenerable = row.isRegenerable,
            .isBuiltIn = true,
            .enabled = true,
            .minAgeDays = std::nullopt,
            .synthesizedBy = std::nullopt,
            .createdAt = now,
            .updatedAt = now,
        });
    }
    return rules;
}

} // namespace unbulk
