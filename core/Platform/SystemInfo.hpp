#pragma once

namespace unbulk {

// Processors available to this process now, at least 1.
int activeProcessorCount();

} // namespace unbulk
