#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/InterruptSignals.hpp"

namespace unbulk::cli {

// What a full-screen command's session is handed: the signal watch (made
// before any other thread, so that no worker takes a signal) and the
// notices of removals that could not be recorded (see screenNotice).
struct ScreenCommandContext {
    InterruptWatch& interrupts;
    std::shared_ptr<std::vector<std::string>> unrecorded;
};

// The frame review and explore share: off a terminal, `offTerminal` on
// standard error and status 1. Otherwise `session` runs; a signal ends it,
// and once the terminal is the user's again the unrecorded notices are
// printed and the status is 128 + the signal's number (0 without one).
int runScreenCommand(std::string_view offTerminal, const std::function<void(const ScreenCommandContext&)>& session);

} // namespace unbulk::cli
