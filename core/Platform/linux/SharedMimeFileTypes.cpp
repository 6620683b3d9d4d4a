#include "Platform/linux/SharedMimeFileTypes.hpp"

#include <fstream>
#include <vector>

#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

// MIME types that are archives, disk images, source code, programs and
// applications, beyond what their top-level names ("audio/", "video/",
// "image/") and the text/plain ancestry already say.
const std::set<std::string>& archiveTypes() {
    static const std::set<std::string> types{"application/zip",
                                             "application/x-tar",
                                             "application/gzip",
                                             "application/x-bzip",
                                             "application/x-bzip2",
                                             "application/x-xz",
                                             "application/x-7z-compressed",
                                             "application/vnd.rar",
                                             "application/x-rar-compressed",
                                             "application/zstd",
                                             "application/x-zstd",
                                             "application/x-compress",
                                             "application/x-lzip",
                                             "application/x-lzma",
                                             "application/x-archive",
                                             "application/x-cpio",
                                             "application/java-archive",
                                             "application/x-compressed-tar",
                                             "application/x-xz-compressed-tar",
                                             "application/x-bzip2-compressed-tar",
                                             "application/x-zstd-compressed-tar"};
    return types;
}

const std::set<std::string>& diskImageTypes() {
    static const std::set<std::string> types{"application/x-iso9660-image",  "application/x-apple-diskimage",
                                             "application/x-raw-disk-image", "application/x-qemu-disk",
                                             "application/x-vmdk-disk",      "application/x-virtualbox-vdi",
                                             "application/x-cd-image",       "application/vnd.efi.img"};
    return types;
}

const std::set<std::string>& sourceCodeTypes() {
    static const std::set<std::string> types{"text/x-csrc",
                                             "text/x-chdr",
                                             "text/x-c++src",
                                             "text/x-c++hdr",
                                             "text/x-objcsrc",
                                             "text/x-java",
                                             "text/x-python",
                                             "text/x-python3",
                                             "text/x-go",
                                             "text/rust",
                                             "text/x-rust",
                                             "text/x-swift",
                                             "text/javascript",
                                             "application/javascript",
                                             "text/x-script.python",
                                             "application/x-shellscript",
                                             "text/x-perl",
                                             "application/x-perl",
                                             "application/x-ruby",
                                             "text/x-ruby",
                                             "application/x-php",
                                             "text/x-php",
                                             "text/x-csharp",
                                             "text/x-kotlin",
                                             "text/x-scala",
                                             "application/x-typescript",
                                             "text/x-typescript",
                                             "text/x-lua"};
    return types;
}

const std::set<std::string>& executableTypes() {
    static const std::set<std::string> types{"application/x-executable",
                                             "application/x-sharedlib",
                                             "application/x-pie-executable",
                                             "application/x-mach-binary",
                                             "application/x-msdownload",
                                             "application/x-ms-dos-executable",
                                             "application/vnd.microsoft.portable-executable"};
    return types;
}

const std::set<std::string>& applicationTypes() {
    static const std::set<std::string> types{"application/x-desktop", "application/vnd.android.package-archive",
                                             "application/x-apple-application"};
    return types;
}

bool anyIn(const std::set<std::string>& types, const std::set<std::string>& table) {
    for (const auto& type : types) {
        if (table.contains(type)) return true;
    }
    return false;
}

bool anyWithPrefix(const std::set<std::string>& types, std::string_view prefix) {
    for (const auto& type : types) {
        if (type.starts_with(prefix)) return true;
    }
    return false;
}

} // namespace

SharedMimeFileTypes::SharedMimeFileTypes(std::string mimeDirectory) : mimeDirectory_(std::move(mimeDirectory)) {}

// Read on the first question, not when the environment is made: most
// commands never ask one, and the database is a thousand lines to parse.
void SharedMimeFileTypes::load() const {
    // globs2: "weight:type:pattern[:flags]", heaviest first; the first "*.ext"
    // of an extension wins.
    std::ifstream globs(mimeDirectory_ + "/globs2");
    std::string line;
    while (std::getline(globs, line)) {
        if (line.empty() || line[0] == '#') continue;
        const std::string_view text(line);
        const std::size_t typeStart = text.find(':');
        if (typeStart == std::string_view::npos) continue;
        const std::size_t patternStart = text.find(':', typeStart + 1);
        if (patternStart == std::string_view::npos) continue;
        const std::string_view type = text.substr(typeStart + 1, patternStart - typeStart - 1);
        std::string_view pattern = text.substr(patternStart + 1);
        pattern = pattern.substr(0, pattern.find(':')); // without the flags
        if (!pattern.starts_with("*.")) continue;
        const std::string_view extension = pattern.substr(2);
        if (extension.find_first_of("*?[") != std::string_view::npos) continue;
        typeByExtension_.emplace(unicode::lowercased(std::string(extension)), std::string(type));
    }
    std::ifstream subclasses(mimeDirectory_ + "/subclasses");
    std::string child, parent;
    while (subclasses >> child >> parent)
        parents_.emplace(child, parent);
}

std::optional<std::string> SharedMimeFileTypes::mimeType(const std::string& extension) const {
    std::call_once(loaded_, [this] { load(); });
    auto it = typeByExtension_.find(unicode::lowercased(extension));
    if (it == typeByExtension_.end()) return std::nullopt;
    return it->second;
}

std::set<std::string> SharedMimeFileTypes::selfAndAncestors(const std::string& mime) const {
    std::set<std::string> seen{mime};
    std::vector<std::string> pending{mime};
    while (!pending.empty()) {
        const std::string current = pending.back();
        pending.pop_back();
        auto [begin, end] = parents_.equal_range(current);
        for (auto it = begin; it != end; ++it) {
            if (seen.insert(it->second).second) pending.push_back(it->second);
        }
    }
    return seen;
}

std::optional<TypeConformance> SharedMimeFileTypes::conformanceForExtension(const std::string& extension) const {
    const auto mime = mimeType(extension);
    if (!mime) return std::nullopt;
    const std::set<std::string> types = selfAndAncestors(*mime);
    TypeConformance conformance;
    conformance.archive = anyIn(types, archiveTypes());
    conformance.diskImage = anyIn(types, diskImageTypes());
    conformance.sourceCode = anyIn(types, sourceCodeTypes());
    conformance.audio = anyWithPrefix(types, "audio/");
    conformance.movie = anyWithPrefix(types, "video/");
    conformance.image = anyWithPrefix(types, "image/");
    conformance.text = types.contains("text/plain") || anyWithPrefix(types, "text/");
    conformance.pdf = types.contains("application/pdf");
    conformance.executable = anyIn(types, executableTypes());
    conformance.application = anyIn(types, applicationTypes());
    return conformance;
}

std::shared_ptr<FileTypes> makeDefaultFileTypes() { return std::make_shared<SharedMimeFileTypes>(); }

} // namespace unbulk
