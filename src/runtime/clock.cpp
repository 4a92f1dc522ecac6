#include "runtime/clock.h"

#include <time.h>

namespace quorl {

std::chrono::system_clock::time_point ClockNow() {
  return std::chrono::system_clock::now();
}

void SleepNanoseconds(int64_t nanoseconds) {
  if (nanoseconds < 1) return;
  timespec request{};
  request.tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
  request.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
  nanosleep(&request, nullptr);
}

}  // namespace quorl
