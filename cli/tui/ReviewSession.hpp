#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Models/SafetyModels.hpp"
#include "Platform/InterruptSignals.hpp"
#include "Safety/TrashPipeline.hpp"
#include "tui/ReviewList.hpp"
#include "tui/Screen.hpp"
#include "tui/Viewport.hpp"

namespace unbulk::cli {

// `unbulk review` at the terminal: the list, its filter prompt and help, the
// confirmation, the typed word a purge needs, and the summary after a
// removal. Keys change the list; removal goes through runRemoval alone.
class ReviewSession {
public:
    ReviewSession(ReviewList list, std::shared_ptr<const TrashPipeline> pipeline, std::string homePath,
                  const InterruptWatch& interrupts, std::shared_ptr<std::vector<std::string>> unrecorded);

    // Until q, or until a watched signal comes.
    void run(Screen& screen);

private:
    enum class Mode { list, filter, help, confirm, purge, summary };

    Frame frame(int width, int height);
    // False to leave.
    bool handle(const Key& key, Screen& screen);
    void handleList(const Key& key, int pageRows);
    void handleFilter(const Key& key);
    void handleConfirm(const Key& key, Screen& screen);
    void handlePurge(const Key& key, Screen& screen);
    void remove(bool permanent, Screen& screen);

    ReviewList list_;
    std::shared_ptr<const TrashPipeline> pipeline_;
    std::string homePath_;
    const InterruptWatch& interrupts_;
    // What the pipeline could not record in the audit log, told on the
    // screen after the removal that met it (standard error belongs to the
    // screen while it is shown).
    std::shared_ptr<std::vector<std::string>> unrecorded_;
    Viewport viewport_;
    Mode mode_ = Mode::list;
    std::string message_;
    Style messageStyle_ = Style::message;
    std::string filterBefore_; // what the filter was when the prompt opened
    std::string typed_;        // the word typed for a purge
    std::optional<TrashSummary> summary_;
};

} // namespace unbulk::cli
