#include "Platform/SystemInfo.hpp"

#include <unistd.h>

namespace unbulk {

int activeProcessorCount() {
    long count = ::sysconf(_SC_NPROCESSORS_ONLN);
    return count > 0 ? static_cast<int>(count) : 1;
}

} // namespace unbulk
