#include "tui/ReviewSession.hpp"

#include <set>
#include <utility>

#include <fmt/format.h>

#include "Platform/ByteCountFormatter.hpp"
#include "Removal.hpp"
#include "Support/Unicode.hpp"
#include "tui/ReviewLayout.hpp"
#include "tui/TerminalText.hpp"

namespace unbulk::cli {
namespace {

// The text without its last user-perceived character.
std::string withoutLastCharacter(const std::string& text) {
    std::vector<std::string> clusters = unicode::graphemeClusters(text);
    if (clusters.empty()) return text;
    return text.substr(0, text.size() - clusters.back().size());
}

void appendCharacter(std::string& text, const Key& key) {
    if (key.kind == Key::Kind::character && key.character >= 0x20) unicode::appendUtf8(text, key.character);
}

} // namespace

ReviewSession::ReviewSession(ReviewList list, std::shared_ptr<const TrashPipeline> pipeline, std::string homePath,
                             const InterruptWatch& interrupts, std::shared_ptr<std::vector<std::string>> unrecorded)
    : list_(std::move(list)), pipeline_(std::move(pipeline)), homePath_(std::move(homePath)), interrupts_(interrupts),
      unrecorded_(std::move(unrecorded)) {}

void ReviewSession::run(Screen& screen) {
    screen.run([&](int width, int height) { return frame(width, height); },
               [&](const Key& key) { return handle(key, screen); }, [&] { return interrupts_.receivedSignal() != 0; });
}

Frame ReviewSession::frame(int width, int height) {
    switch (mode_) {
    case Mode::confirm:
    case Mode::purge:
        return reviewLayout::confirmation(list_.selectedItems(), homePath_, mode_ == Mode::purge, typed_, message_,
                                          width, height);
    case Mode::summary: return reviewLayout::summary(*summary_, homePath_, width, height);
    case Mode::list:
    case Mode::filter:
    case Mode::help: break;
    }
    reviewLayout::Footer footer{.message = message_, .messageStyle = messageStyle_};
    if (mode_ == Mode::filter) {
        footer.prompt = "Filter: " + terminalText::printable(list_.textFilter()) + "_   (Enter: keep  Esc: cancel)";
    }
    Frame frame = reviewLayout::list(list_, viewport_, homePath_, footer, width, height);
    if (mode_ == Mode::help) reviewLayout::help(frame);
    return frame;
}

bool ReviewSession::handle(const Key& key, Screen& screen) {
    switch (mode_) {
    case Mode::list:
        if (key.is('q')) return false;
        handleList(key, screen.height() - 3);
        break;
    case Mode::filter: handleFilter(key); break;
    case Mode::help: mode_ = Mode::list; break;
    case Mode::confirm: handleConfirm(key, screen); break;
    case Mode::purge: handlePurge(key, screen); break;
    case Mode::summary:
        mode_ = Mode::list;
        summary_.reset();
        break;
    }
    return true;
}

void ReviewSession::handleList(const Key& key, int pageRows) {
    message_.clear();
    messageStyle_ = Style::message;
    using Kind = Key::Kind;
    if (key.kind == Kind::up || key.is('k')) {
        list_.moveCursor(-1);
    } else if (key.kind == Kind::down || key.is('j')) {
        list_.moveCursor(1);
    } else if (key.kind == Kind::pageUp) {
        list_.moveCursor(-std::max(pageRows, 1));
    } else if (key.kind == Kind::pageDown) {
        list_.moveCursor(std::max(pageRows, 1));
    } else if (key.kind == Kind::home || key.is('g')) {
        list_.moveToFirst();
    } else if (key.kind == Kind::end || key.is('G')) {
        list_.moveToLast();
    } else if (key.is(' ')) {
        if (auto refusal = list_.toggleHighlighted()) {
            message_ = *refusal;
            messageStyle_ = Style::error;
        }
    } else if (key.is('a')) {
        list_.selectAllSafe();
    } else if (key.is('n')) {
        list_.clearSelection();
    } else if (key.is('s')) {
        list_.cycleSort();
    } else if (key.is('o')) {
        list_.cycleAgeFilter();
    } else if (key.is('/')) {
        filterBefore_ = list_.textFilter();
        mode_ = Mode::filter;
    } else if (key.is('?')) {
        mode_ = Mode::help;
    } else if (key.kind == Kind::enter) {
        if (list_.selection().count == 0) {
            message_ = "Nothing is selected: Space selects the highlighted item.";
        } else {
            mode_ = Mode::confirm;
        }
    }
}

void ReviewSession::handleFilter(const Key& key) {
    if (key.kind == Key::Kind::enter) {
        mode_ = Mode::list;
    } else if (key.kind == Key::Kind::escape) {
        list_.setTextFilter(filterBefore_);
        mode_ = Mode::list;
    } else if (key.kind == Key::Kind::backspace) {
        list_.setTextFilter(withoutLastCharacter(list_.textFilter()));
    } else {
        std::string text = list_.textFilter();
        appendCharacter(text, key);
        list_.setTextFilter(std::move(text));
    }
}

void ReviewSession::handleConfirm(const Key& key, Screen& screen) {
    message_.clear();
    if (key.is('y')) {
        remove(false, screen);
    } else if (key.is('P')) {
        typed_.clear();
        mode_ = Mode::purge;
    } else if (key.is('n') || key.is('q') || key.kind == Key::Kind::escape) {
        mode_ = Mode::list;
    }
}

void ReviewSession::handlePurge(const Key& key, Screen& screen) {
    message_.clear();
    if (key.kind == Key::Kind::escape) {
        mode_ = Mode::confirm;
    } else if (key.kind == Key::Kind::backspace) {
        typed_ = withoutLastCharacter(typed_);
    } else if (key.kind == Key::Kind::enter) {
        if (typed_ == "purge") {
            remove(true, screen);
        } else {
            message_ = "Type the word purge to delete for good, or press Esc.";
        }
    } else {
        appendCharacter(typed_, key);
    }
}

void ReviewSession::remove(bool permanent, Screen& screen) {
    const std::vector<DiscoveredItem> items = list_.selectedItems();
    RemovalRequest request{.dryRun = false, .permanent = permanent, .confirmed = permanent, .stop = interrupts_.token()};
    for (const DiscoveredItem& item : items)
        request.targets.push_back(item.url);

    Frame working = frame(screen.width(), screen.height());
    working.box(permanent ? "Deleting" : "Moving to the Trash",
                {fmt::format("{} item{}, {}", items.size(), items.size() == 1 ? "" : "s",
                             formatByteCount(list_.selection().bytes))});
    screen.paint(working);

    TrashSummary summary = runRemoval(request, *pipeline_);
    std::set<std::string> gone;
    for (const TrashItemRecord& record : summary.records) {
        if (record.status == TrashItemStatus::success) gone.insert(record.sourcePath);
    }
    // The records name the items by the path of their URL, which is the
    // item's own path: the list drops exactly what went.
    list_.removePaths(gone);
    summary_ = std::move(summary);
    mode_ = Mode::summary;
    if (unrecorded_ && !unrecorded_->empty()) {
        message_ = unrecorded_->back();
        messageStyle_ = Style::error;
        unrecorded_->clear();
    }
}

} // namespace unbulk::cli
