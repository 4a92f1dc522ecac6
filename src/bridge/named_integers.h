// The named integer map: one table from names to i32 that both sides of the exported boundary share.
//
// Keys compare by bytes, case-sensitively; the empty text is an ordinary key. Add never overwrites,
// SetValue never creates, GetValue gives 0 for an absent name (Contains tells a stored 0 apart). Entries
// live until removed or until the library is unloaded. Every operation takes the bridge mutex and is
// atomic on its own; a test followed by an update needs Lock around both calls.
#pragma once

#include <cstdint>

namespace quorl {

void AddNamedInteger(const char* name, int32_t value);
void RemoveNamedInteger(const char* name);
bool ContainsNamedInteger(const char* name);
int32_t GetNamedInteger(const char* name);
void SetNamedInteger(const char* name, int32_t value);

}  // namespace quorl
