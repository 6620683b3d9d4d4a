#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Platform/InterruptSignals.hpp"
#include "Safety/TrashPipeline.hpp"
#include "tui/ExploreView.hpp"
#include "tui/Screen.hpp"
#include "tui/Viewport.hpp"

namespace unbulk::cli {

// `unbulk explore` at the terminal: the directory shown, its help and an
// entry's details, the yes/no before an entry goes to the Trash, and a box
// for what went wrong. Removal goes through runRemoval alone.
class ExploreSession {
public:
    ExploreSession(ExploreView view, std::shared_ptr<const TrashPipeline> pipeline, std::string homePath,
                   const InterruptWatch& interrupts, std::shared_ptr<std::vector<std::string>> unrecorded);

    // Until q, or until a watched signal comes. A measure cancelled by the
    // signal throws CancellationError.
    void run(Screen& screen);

private:
    enum class Mode { browse, help, box, confirmTrash };

    Frame frame(int width, int height);
    bool handle(const Key& key, Screen& screen);
    void browse(const Key& key, Screen& screen);
    void trashHighlighted(Screen& screen);
    // Paints the directory with a note on the status row while `work` runs.
    void working(Screen& screen, const std::string& note);
    void showBox(std::string title, std::vector<std::string> lines);

    ExploreView view_;
    std::shared_ptr<const TrashPipeline> pipeline_;
    std::string homePath_;
    const InterruptWatch& interrupts_;
    // What the pipeline could not record in the audit log, told on the
    // screen after the removal that met it (standard error belongs to the
    // screen while it is shown).
    std::shared_ptr<std::vector<std::string>> unrecorded_;
    Viewport viewport_;
    Mode mode_ = Mode::browse;
    std::string message_;
    Style messageStyle_ = Style::message;
    std::string boxTitle_;
    std::vector<std::string> boxLines_;
};

} // namespace unbulk::cli
