#include "runtime/clock.h"

namespace quorl {

std::chrono::system_clock::time_point ClockNow() {
  return std::chrono::system_clock::now();
}

void SleepNanoseconds(int64_t nanoseconds) {
  if (nanoseconds < 1) return;
  const timespec request = SleepRequest(nanoseconds);
  nanosleep(&request, nullptr);
}

timespec SleepRequest(int64_t nanoseconds) {
  timespec request{};
  request.tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
  request.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
  return request;
}

}  // namespace quorl
