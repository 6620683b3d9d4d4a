#include "tui/ExploreSession.hpp"

#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "Platform/ByteCountFormatter.hpp"
#include "Removal.hpp"
#include "Support/NoSuchFileError.hpp"
#include "tui/ExploreLayout.hpp"
#include "tui/TerminalText.hpp"

namespace unbulk::cli {

ExploreSession::ExploreSession(ExploreView view, std::shared_ptr<const TrashPipeline> pipeline, std::string homePath,
                               const InterruptWatch& interrupts,
                               std::shared_ptr<std::vector<std::string>> unrecorded)
    : view_(std::move(view)), pipeline_(std::move(pipeline)), homePath_(std::move(homePath)), interrupts_(interrupts),
      unrecorded_(std::move(unrecorded)) {}

void ExploreSession::run(Screen& screen) {
    screen.run([&](int width, int height) { return frame(width, height); },
               [&](const Key& key) { return handle(key, screen); }, [&] { return interrupts_.receivedSignal() != 0; });
}

Frame ExploreSession::frame(int width, int height) {
    std::string prompt;
    if (mode_ == Mode::confirmTrash) {
        if (const SpaceNode* entry = view_.highlighted()) {
            prompt = fmt::format("Move {} ({}) to the Trash? y/n", terminalText::printable(entry->name),
                                 formatByteCount(entry->allocatedSizeBytes));
        }
    }
    Frame frame = exploreLayout::directory(view_, viewport_, homePath_, message_, messageStyle_, prompt, width, height);
    if (mode_ == Mode::help) exploreLayout::help(frame);
    if (mode_ == Mode::box) frame.box(boxTitle_, boxLines_);
    return frame;
}

bool ExploreSession::handle(const Key& key, Screen& screen) {
    switch (mode_) {
    case Mode::browse:
        if (key.is('q')) return false;
        browse(key, screen);
        break;
    case Mode::help:
    case Mode::box: mode_ = Mode::browse; break;
    case Mode::confirmTrash:
        mode_ = Mode::browse;
        if (key.is('y')) trashHighlighted(screen);
        break;
    }
    return true;
}

void ExploreSession::browse(const Key& key, Screen& screen) {
    message_.clear();
    messageStyle_ = Style::message;
    using Kind = Key::Kind;
    const int page = std::max(screen.height() - 3, 1);
    if (key.kind == Kind::up || key.is('k')) {
        view_.moveCursor(-1);
    } else if (key.kind == Kind::down || key.is('j')) {
        view_.moveCursor(1);
    } else if (key.kind == Kind::pageUp) {
        view_.moveCursor(-page);
    } else if (key.kind == Kind::pageDown) {
        view_.moveCursor(page);
    } else if (key.kind == Kind::home || key.is('g')) {
        view_.moveToFirst();
    } else if (key.kind == Kind::end || key.is('G')) {
        view_.moveToLast();
    } else if (key.kind == Kind::enter || key.kind == Kind::right || key.is('l')) {
        const SpaceNode* entry = view_.highlighted();
        if (!entry || !ExploreView::canOpen(*entry)) return;
        const std::string name = entry->name;
        if (view_.openNeedsMeasure()) working(screen, "Measuring " + terminalText::printable(name) + "\u2026");
        try {
            view_.open();
            viewport_ = {};
        } catch (const NoSuchFileError&) {
            message_ = name + " is no longer there; r measures this directory again.";
            messageStyle_ = Style::error;
        }
    } else if (key.kind == Kind::left || key.kind == Kind::backspace || key.is('h')) {
        if (view_.up()) viewport_ = {};
    } else if (key.is('r')) {
        working(screen, "Measuring again\u2026");
        try {
            view_.remeasure();
        } catch (const NoSuchFileError&) {
            message_ = "This directory is no longer there.";
            messageStyle_ = Style::error;
        }
    } else if (key.is('s')) {
        view_.cycleSort();
    } else if (key.is('i')) {
        if (const SpaceNode* entry = view_.highlighted()) {
            showBox("Details", exploreLayout::details(*entry, std::chrono::system_clock::now()));
        }
    } else if (key.is('d')) {
        if (view_.highlighted()) mode_ = Mode::confirmTrash;
    } else if (key.is('?')) {
        mode_ = Mode::help;
    }
}

void ExploreSession::trashHighlighted(Screen& screen) {
    const SpaceNode* entry = view_.highlighted();
    if (!entry) return;
    const SpaceNode chosen = *entry;
    working(screen, "Moving " + terminalText::printable(chosen.name) + " to the Trash\u2026");
    const TrashSummary summary = runRemoval(
        {.targets = {FileURL(chosen.path, chosen.isDirectory)}, .dryRun = false, .stop = interrupts_.token()},
        *pipeline_);
    const TrashItemRecord& record = summary.records.front();
    if (record.status == TrashItemStatus::success) {
        view_.removeEntry(chosen.path);
        message_ = fmt::format("Moved {} ({}) to the Trash.", chosen.name, formatByteCount(record.allocatedBytes));
        messageStyle_ = Style::message;
        if (unrecorded_ && !unrecorded_->empty()) {
            message_ = unrecorded_->back();
            messageStyle_ = Style::error;
            unrecorded_->clear();
        }
        return;
    }
    const int width = std::max(screen.width() - 10, 20);
    std::vector<std::string> lines =
        terminalText::wrapped(terminalText::printable(record.errorMessage.value_or("It was not moved.")), width);
    lines.emplace_back();
    lines.emplace_back("Press any key to close.");
    showBox(terminalText::printable(chosen.name) + " was not moved", std::move(lines));
}

void ExploreSession::working(Screen& screen, const std::string& note) {
    Frame frame = exploreLayout::directory(view_, viewport_, homePath_, "", Style::message, note, screen.width(),
                                           screen.height());
    screen.paint(frame);
}

void ExploreSession::showBox(std::string title, std::vector<std::string> lines) {
    boxTitle_ = std::move(title);
    boxLines_ = std::move(lines);
    mode_ = Mode::box;
}

} // namespace unbulk::cli
