#include <charconv>
#include <cstddef>
#include <cstdint>

#include <fmt/format.h>

#include "Handlers.hpp"
#include "Output.hpp"
#include "ProgressLine.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Platform/CurrentDirectory.hpp"
#include "Operations/Engines.hpp"
#include "SpaceLens/SpaceTree.hpp"
#include "Support/Paths.hpp"

namespace unbulk::cli {
namespace {

// A whole decimal number in 64 bits with at most one leading sign, or 2:
// "--depth x", "+-1", an empty value, a number out of range and a missing
// value all analyse two levels.
std::int64_t depthOf(const Arguments& args) {
    const auto value = optionValue(args, "--depth");
    if (!value || value->empty()) return 2;
    std::string_view text = *value;
    if (text.front() == '+') {
        text.remove_prefix(1);
        if (text.starts_with('-')) return 2; // from_chars would take this second sign
    }
    std::int64_t depth = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), depth);
    if (error != std::errc() || end != text.data() + text.size()) return 2;
    return depth;
}

constexpr std::size_t shownChildren = 10;

} // namespace

int handleSpaceLens(const Environment& environment, const Arguments& args) {
    // The path as typed: no "~" expansion; a relative one is read against
    // the working directory, as a file URL made of it would be.
    const std::string path = optionValue(args, "--path").value_or(environment.homeURL.path());
    const std::string absolute = paths::isAbsolute(path) ? path : paths::appending(currentDirectory(), path);
    const bool json = hasFlag(args, "--json");
    // The text shows the root's ten largest children and no more, so the
    // tree keeps no more: a folder of a million files costs ten nodes.
    const SpaceLensRetention retention =
        json ? SpaceLensRetention{} : SpaceLensRetention{.depth = 1, .children = shownChildren};
    const SpaceTree tree = [&] {
        ProgressLine progress(!json);
        return Engines::spaceLensEngine(environment)
            .scanTree(FileURL(absolute), depthOf(args), {}, progress.countingItems(), retention);
    }();

    if (json) {
        printStreamed([&](const TextSink& write) { writeJson(tree, DateEncoding::secondsSinceReferenceDate, write); });
        return 0;
    }
    printLine("Contoura: " + path);
    printLine("Total Size: " + formatByteCount(tree.root().allocatedSizeBytes));
    if (const SpaceTree::Run* children = tree.children(tree.root())) {
        for (const SpaceTree::Node& child : children->nodes) {
            printLine(fmt::format("  \u2022 {}: {}", children->name(child), formatByteCount(child.allocatedSizeBytes)));
        }
    }
    return 0;
}

} // namespace unbulk::cli
