#include "Platform/Clock.hpp"

namespace unbulk {

Clock systemClock() {
    return [] { return std::chrono::system_clock::now(); };
}

} // namespace unbulk
