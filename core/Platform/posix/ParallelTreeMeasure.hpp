#pragma once

#include "Platform/TreeMeasure.hpp"

namespace unbulk::posix {

// Measures the tree below the open directory `rootFd` (taken over) on every
// core: one task per directory, stolen by idle threads, each directory read
// and its entries examined relative to its own descriptor, nothing followed
// through a link. The answer is exactly measureTreeSerially's: every figure
// is a sum or a maximum, and a file shared by hard links is charged once
// through the options' InodeSet whichever thread meets it first.
//
// Descriptors stay bounded whatever the depth or the width: a directory's
// descriptor is shared by the tasks of its subdirectories until they have
// opened them, and once the process holds its share of descriptors, a task
// measures its subdirectories itself with the serial TreeWalker, which keeps
// a few open at most.
TreeMeasure measureInParallel(int rootFd, const TreeMeasureOptions& options);

} // namespace unbulk::posix
