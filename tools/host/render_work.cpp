#include "render_work.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace quorl::host {

namespace {

// The native callbacks are plain functions; they find the session's records through these.
RenderWork* g_work = nullptr;
thread_local WorkItem* t_firing = nullptr;

int64_t NowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

bool FrameContextHolds(const FrameContext* context) {
  return context != nullptr && context->structSize == 24 && context->reserved0 == 0 &&
         context->reserved1 == 0 && context->reserved2 == 0;
}

// The third integer is the token's complement, so a swapped or shifted argument cannot pass.
bool IntegersHold(WorkItem* item, int32_t b, int32_t c) {
  return item != nullptr && b == item->frame && c == ~item->token;
}

WorkItem* g_items = nullptr;
int64_t g_itemCount = 0;

WorkItem* ItemOf(int32_t token) {
  if (token < 0 || token >= g_itemCount) return nullptr;
  return &g_items[token];
}

void RunPlain() {
  g_work->Ran(t_firing, true);
}
void RunI(int32_t a) {
  g_work->Ran(ItemOf(a), true);
}
void RunIII(int32_t a, int32_t b, int32_t c) {
  g_work->Ran(ItemOf(a), IntegersHold(ItemOf(a), b, c));
}
void RunFrameContextI(int32_t a, const FrameContext* context) {
  g_work->Ran(ItemOf(a), FrameContextHolds(context));
}
void RunFrameContextIII(int32_t a, int32_t b, int32_t c, const FrameContext* context) {
  g_work->Ran(ItemOf(a), IntegersHold(ItemOf(a), b, c) && FrameContextHolds(context));
}

int64_t Percentile(const std::vector<int64_t>& sorted, double fraction) {
  if (sorted.empty()) return 0;
  const size_t index = static_cast<size_t>(fraction * static_cast<double>(sorted.size() - 1) + 0.5);
  return sorted[std::min(index, sorted.size() - 1)];
}

}  // namespace

const char* ShapeName(Shape shape) {
  switch (shape) {
    case Shape::kPlain:
      return "plain";
    case Shape::kI:
      return "I";
    case Shape::kIII:
      return "III";
    case Shape::kFrameContextI:
      return "frame-context I";
    case Shape::kFrameContextIII:
      return "frame-context III";
  }
  return "?";
}

RenderWork::RenderWork(const BridgeApi& api, Invariants& invariants, size_t capacity)
    : api_(api),
      invariants_(invariants),
      renderEvent_(reinterpret_cast<RenderEventFn>(api.UnityRenderEventFunc())),
      items_(new WorkItem[capacity]),
      capacity_(capacity) {
  g_work = this;
  g_items = items_.get();
  g_itemCount = static_cast<int64_t>(capacity);
  invariants_.Check("UnityRenderEventFunc gives the address of UnityRenderEvent",
                    renderEvent_ == api.UnityRenderEvent);
}

RenderWork::~RenderWork() {
  g_work = nullptr;
  g_items = nullptr;
  g_itemCount = 0;
}

WorkItem* RenderWork::Allocate(Shape shape, int32_t frame, bool followUp) {
  const int64_t token = nextToken_.fetch_add(1, std::memory_order_relaxed);
  if (token >= static_cast<int64_t>(capacity_)) {
    // The capacity is computed from the session's options; running past it is a bug in the simulator.
    std::fprintf(stderr, "quorl-host: internal error: more than %zu render events\n", capacity_);
    std::abort();
  }
  WorkItem* item = &items_[static_cast<size_t>(token)];
  item->shape = shape;
  item->followUp = followUp;
  item->token = static_cast<int32_t>(token);
  item->frame = frame;
  return item;
}

HandedEvent RenderWork::Queue(Shape shape, int32_t frame) {
  return QueueItem(shape, frame, false);
}

HandedEvent RenderWork::QueueItem(Shape shape, int32_t frame, bool followUp) {
  WorkItem* item = Allocate(shape, frame, followUp);
  const int32_t token = item->token;
  item->queuedNs = NowNs();
  int32_t id = 0;
  switch (shape) {
    case Shape::kPlain:
      id = api_.QueueGLEvent(&RunPlain);
      break;
    case Shape::kI:
      id = api_.QueueGLEventI(&RunI, token);
      break;
    case Shape::kIII:
      id = api_.QueueGLEventIII(&RunIII, token, frame, ~token);
      break;
    case Shape::kFrameContextI:
      // x and y are carried along unread by the library; any pointers will do.
      id = api_.QueueGLEventPrepFrameContextI(&RunFrameContextI, token, item, nullptr);
      break;
    case Shape::kFrameContextIII:
      id = api_.QueueGLEventPrepFrameContextIII(&RunFrameContextIII, token, frame, ~token, item, this);
      break;
  }
  item->eventId = id;
  return HandedEvent{id, item};
}

void RenderWork::Fire(const HandedEvent& event) {
  t_firing = event.item;
  renderEvent_(event.eventId);
  t_firing = nullptr;
  ++fired_;
  const int runs = event.item->runs.load(std::memory_order_relaxed);
  if (runs == 0) {
    ++lost_;
    invariants_.Check("every fired id ran the work it was handed for", false,
                      "id " + std::to_string(event.eventId) + " (" + ShapeName(event.item->shape) +
                          ", frame " + std::to_string(event.item->frame) + ") ran nothing");
  }
}

void RenderWork::Ran(WorkItem* item, bool argumentsHold) {
  ran_.fetch_add(1, std::memory_order_relaxed);
  if (item == nullptr) {
    ++badArguments_;
    invariants_.Check("render work received the arguments it was queued with", false,
                      "a callback received a token that was never handed out");
    return;
  }
  item->ranNs.store(NowNs(), std::memory_order_relaxed);
  item->runs.fetch_add(1, std::memory_order_relaxed);
  if (item != t_firing) {
    ++wrongId_;
    invariants_.Check("every fired id ran the work it was handed for", false,
                      "work queued as id " + std::to_string(item->eventId) + " ran while firing id " +
                          (t_firing != nullptr ? std::to_string(t_firing->eventId) : std::string("none")));
  }
  if (!argumentsHold) {
    ++badArguments_;
    invariants_.Check("render work received the arguments it was queued with", false,
                      std::string(ShapeName(item->shape)) + " work of frame " + std::to_string(item->frame) +
                          " received other integers or a malformed frame context");
  }
  // Some work schedules a follow-up from inside its own run, as render code that defers its cleanup
  // does. With no lower slot free, the follow-up gets the very id that is running.
  if (!item->followUp && item->token % 16 == 7) {
    const auto shape = static_cast<Shape>((item->token / 16) % kShapeCount);
    HandedEvent followUp = QueueItem(shape, item->frame, true);
    if (followUp.eventId == item->eventId) ++followUpsOnOwnId_;
    followUps_.push_back(followUp);
  }
}

std::vector<HandedEvent> RenderWork::TakeFollowUps() {
  std::vector<HandedEvent> taken;
  taken.swap(followUps_);
  return taken;
}

RenderStats RenderWork::Finish() {
  RenderStats stats;
  stats.fired = fired_;
  stats.ran = ran_.load();
  stats.lost = 0;
  stats.wrongId = wrongId_;
  stats.badArguments = badArguments_;
  stats.followUpsOnOwnId = followUpsOnOwnId_;
  std::vector<int64_t> latencies;
  const int64_t count = nextToken_.load();
  latencies.reserve(static_cast<size_t>(count));
  bool first = true;
  for (int64_t token = 0; token < count; ++token) {
    const WorkItem& item = items_[static_cast<size_t>(token)];
    ++stats.queued[static_cast<int>(item.shape)];
    if (item.followUp) ++stats.followUps;
    const int runs = item.runs.load();
    if (runs == 0) ++stats.lost;
    if (runs > 1) ++stats.ranTwice;
    if (runs > 0) latencies.push_back(item.ranNs.load() - item.queuedNs);
    if (first || item.eventId < stats.lowestId) stats.lowestId = item.eventId;
    if (first || item.eventId > stats.highestId) stats.highestId = item.eventId;
    first = false;
  }
  std::sort(latencies.begin(), latencies.end());
  stats.latencyP50 = Percentile(latencies, 0.50);
  stats.latencyP99 = Percentile(latencies, 0.99);
  stats.latencyMax = latencies.empty() ? 0 : latencies.back();
  invariants_.Check(
      "every queued event ran exactly once", stats.lost == 0 && stats.ranTwice == 0,
      std::to_string(stats.lost) + " never ran, " + std::to_string(stats.ranTwice) + " ran more than once");
  invariants_.Check("every fired id ran the work it was handed for", lost_ == 0 && wrongId_ == 0);
  invariants_.Check("render work received the arguments it was queued with", badArguments_ == 0);
  invariants_.Check("render event ids start at 16000", count == 0 || stats.lowestId >= 16000,
                    "lowest id " + std::to_string(stats.lowestId));
  return stats;
}

}  // namespace quorl::host
