// The log buffer: a first-in, first-out queue of (level, text) entries that any thread adds to and the
// host polls across the exported boundary.
//
// The host reads the oldest entry in place through the one static LogBufferView, copies the text, and
// pops the entry. Entries never move while others are added or popped, so the view's message stays valid
// until its own entry is popped. The view belongs to the library and is overwritten by the next
// successful get, from any thread. Levels are opaque. Every operation takes the bridge mutex; a host that
// polls from more than one thread holds Lock across get, copy and pop.
#pragma once

#include <cstdint>

#include "bridge/exports.h"

namespace quorl {

void AddLogBufferEntry(int32_t level, const char* text);
// The view of the oldest entry, or null when the queue is empty (the view then keeps its old contents).
LogBufferView* GetLogBufferFront();
void PopLogBufferFront();

}  // namespace quorl
