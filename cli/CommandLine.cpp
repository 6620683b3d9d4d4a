#include "CommandLine.hpp"

#include <algorithm>

namespace unbulk::cli {

bool hasFlag(const Arguments& args, std::string_view flag) {
    return std::find(args.begin(), args.end(), flag) != args.end();
}

std::optional<std::string> optionValue(const Arguments& args, std::string_view option) {
    auto it = std::find(args.begin(), args.end(), option);
    if (it == args.end() || std::next(it) == args.end()) return std::nullopt;
    return *std::next(it);
}

std::vector<std::string> optionValues(const Arguments& args, std::string_view option) {
    std::vector<std::string> values;
    for (std::size_t i = 0; i + 1 < args.size(); ++i) {
        if (args[i] == option) values.push_back(args[i + 1]);
    }
    return values;
}

} // namespace unbulk::cli
