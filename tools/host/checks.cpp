#include "checks.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace quorl::host {

namespace {

const char* const kCheckNames[kCheckCount] = {
#define QUORL_HOST_CHECK_NAME(id, text) text,
    QUORL_HOST_FOR_EACH_CHECK(QUORL_HOST_CHECK_NAME)
#undef QUORL_HOST_CHECK_NAME
};

std::mutex detailsMutex;
std::vector<std::string> details[kCheckCount];  // the first three of each check
std::atomic<int64_t> failures{0};
thread_local ThreadContext* currentContext = nullptr;

}  // namespace

const char* RoleName(Role role) {
  static const char* const kNames[kRoleCount] = {"main", "script", "render", "playback", "log poller"};
  return kNames[static_cast<int>(role)];
}

std::string ThreadContext::label() const {
  return role == Role::kScript ? Printf("script-%d", index) : RoleName(role);
}

uint64_t ThreadContext::totalCalls() const {
  uint64_t total = 0;
  for (int id = 0; id < kExportCount; ++id)
    total += calls[id].load(std::memory_order_relaxed);
  return total;
}

bool ThreadContext::Failed(Check check, const std::string& detail) {
  const int i = static_cast<int>(check);
  ++checked[i];
  ++failed[i];
  failures.fetch_add(1, std::memory_order_relaxed);
  const std::string line = "[" + label() + "] " + detail;
  std::lock_guard<std::mutex> guard(detailsMutex);
  if (details[i].size() < 3) details[i].push_back(line);
  return false;
}

ThreadContext& CurrentContext() {
  return *currentContext;
}

void SetCurrentContext(ThreadContext* context) {
  currentContext = context;
}

int64_t FailuresSoFar() {
  return failures.load(std::memory_order_relaxed);
}

void CheckCoverage(ThreadContext& main, const std::vector<const ThreadContext*>& contexts) {
  std::string never;
  for (int id = 0; id < kExportCount; ++id) {
    uint64_t calls = 0;
    for (const ThreadContext* context : contexts)
      calls += context->calls[id].load(std::memory_order_relaxed);
    if (calls == 0) never += std::string(never.empty() ? "" : ", ") + ExportName(id);
  }
  EXPECT(main, kCoverage, never.empty(), "never called: %s", never.c_str());
}

int ReportChecks(const std::vector<const ThreadContext*>& contexts, bool all) {
  std::printf("\nChecks\n");
  int listed = 0, failedChecks = 0;
  for (int index = 0; index < kCheckCount; ++index) {
    int64_t checked = 0, failed = 0;
    for (const ThreadContext* context : contexts) {
      checked += static_cast<int64_t>(context->checked[index]);
      failed += static_cast<int64_t>(context->failed[index]);
    }
    if (checked == 0 && !all) continue;
    ++listed;
    failedChecks += failed > 0 ? 1 : 0;
    std::printf("  %-6s  %s  (%s%s)\n", failed > 0 ? "FAILED" : "ok", kCheckNames[index],
                failed > 0 ? (Grouped(failed) + " of ").c_str() : "", Grouped(checked).c_str());
    std::lock_guard<std::mutex> guard(detailsMutex);
    for (const std::string& detail : details[index])
      std::printf("            %s\n", detail.c_str());
  }
  const std::string verdict = failedChecks == 0 ? "All " : Printf("%d of ", failedChecks);
  std::printf("\n%s%d checks %s.\n", verdict.c_str(), listed, failedChecks == 0 ? "hold" : "FAILED");
  std::fflush(stdout);
  return failedChecks;
}

int64_t NowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string Printf(const char* format, ...) {
  char buffer[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(buffer, sizeof(buffer), format, arguments);
  va_end(arguments);
  return buffer;
}

std::string Grouped(int64_t value) {
  std::string digits = std::to_string(value < 0 ? -value : value);
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3)
    digits.insert(static_cast<size_t>(i), ",");
  return value < 0 ? "-" + digits : digits;
}

std::string Duration(int64_t ns) {
  if (ns < 1000000) return Printf("%.1f us", static_cast<double>(ns) / 1e3);
  if (ns < 1000000000) return Printf("%.2f ms", static_cast<double>(ns) / 1e6);
  return Printf("%.2f s", static_cast<double>(ns) / 1e9);
}

}  // namespace quorl::host
