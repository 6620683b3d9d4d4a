#pragma once

#include <memory>
#include <stop_token>

#include "Models/Categories.hpp"
#include "Platform/FileSystem.hpp"
#include "Scanner/ScanTypes.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

// The user's caches, logs, crash reports, Mail downloads and browser caches,
// with a warning for each place the privacy control refuses.
class SystemTargets {
public:
    SystemTargets(FileURL homeURL, std::shared_ptr<FileSystem> fileSystem);

    SystemScanOutput scan(const CategorySet& categories, const ScanProgressHandler& progress,
                          std::stop_token stop = {}) const;

    const FileURL& homeURL() const { return homeURL_; }

private:
    FileURL homeURL_;
    std::shared_ptr<FileSystem> fileSystem_;
};

} // namespace unbulk
