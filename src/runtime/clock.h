// Clock and sleep for the runtime toolbox. Stateless; any thread.
#pragma once

#include <time.h>

#include <chrono>
#include <cstdint>

namespace quorl {

// The system clock's current time point.
std::chrono::system_clock::time_point ClockNow();

// One nanosleep of `nanoseconds`; a value below 1 returns at once. An interrupted sleep is not resumed.
void SleepNanoseconds(int64_t nanoseconds);

// The request that SleepNanoseconds hands to nanosleep for a positive `nanoseconds`: whole seconds and
// the nanoseconds left over, always below one second (nanosleep refuses more, without sleeping at all).
timespec SleepRequest(int64_t nanoseconds);

}  // namespace quorl
