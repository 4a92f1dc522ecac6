#include "bridge_model.h"

#include <cstdlib>
#include <cstring>

namespace quorl::soak {

namespace {

// Enough to keep the poller busy without letting an unpolled buffer eat the machine.
constexpr int64_t kMaxUndelivered = 200000;

}  // namespace

BridgeModel& Model() {
  static BridgeModel* const model = new BridgeModel();
  return *model;
}

LogLedger::LogLedger(int producers) {
  for (int i = 0; i < producers; ++i)
    added_.push_back(std::make_unique<std::atomic<int64_t>>(0));
}

std::string LogLedger::Text(int producer, int64_t sequence) {
  // A tail of varying length, often past any small-text limit.
  std::string text = "p" + std::to_string(producer) + "#" + std::to_string(sequence) + ":";
  text.append(static_cast<size_t>(sequence % 61), static_cast<char>('a' + sequence % 26));
  return text;
}

bool LogLedger::Add(ThreadContext& context, int producer) {
  if (totalAdded_.load(std::memory_order_relaxed) - totalDelivered_.load(std::memory_order_relaxed) >
      kMaxUndelivered) {
    return false;
  }
  std::atomic<int64_t>& added = *added_[static_cast<size_t>(producer)];
  const int64_t sequence = added.load(std::memory_order_relaxed) + 1;
  const std::string text = Text(producer, sequence);
  SOAK_CALL(context, LogBuffer_Add)(Level(sequence), text.c_str());
  // Counted after the add, so whoever sees the count finds the entry in the buffer.
  added.store(sequence, std::memory_order_release);
  totalAdded_.fetch_add(1, std::memory_order_relaxed);
  return true;
}

int LogLedger::Poll(ThreadContext& context, int limit, int ownProducer) {
  BridgeModel& model = Model();
  int taken = 0;
  while (taken < limit) {
    LogBufferView* view = SOAK_CALL(context, LogBuffer_Get)();
    if (view == nullptr) break;
    if (model.logView == nullptr) model.logView = view;
    context.Expect(Check::kLogView, view == model.logView, [&] {
      return Printf("LogBuffer_Get gave the view at %p, earlier at %p", static_cast<void*>(view),
                    static_cast<const void*>(model.logView));
    });
    const int32_t level = view->level;
    const char* message = view->message;
    // The text belongs to the entry: copy it before the pop.
    const std::string copy = message != nullptr ? message : "<null>";
    if (ownProducer >= 0 && context.random().OneIn(4)) {
      // Entries do not move while others are added behind them.
      Add(context, ownProducer);
      context.Expect(Check::kLogView, std::strcmp(message, copy.c_str()) == 0, [&] {
        return Printf("the front entry's text changed from \"%s\" to \"%s\" when another entry was added",
                      copy.c_str(), message);
      });
    }
    SOAK_CALL(context, LogBuffer_Pop)();
    Deliver(context, level, copy);
    ++taken;
  }
  totalDelivered_.fetch_add(taken, std::memory_order_relaxed);
  return taken;
}

void LogLedger::Deliver(ThreadContext& context, int32_t level, const std::string& text) {
  BridgeModel& model = Model();
  if (model.logDelivered.size() < added_.size()) model.logDelivered.resize(added_.size(), 0);
  char* end = nullptr;
  const long producer = text.size() > 1 && text[0] == 'p' ? std::strtol(text.c_str() + 1, &end, 10) : -1;
  if (producer < 0 || producer >= producers() || end == nullptr || *end != '#') {
    context.Fail(Check::kLogFifo, "an entry no producer added: \"" + text + "\"");
    return;
  }
  const long long sequence = std::strtoll(end + 1, nullptr, 10);
  int64_t& last = model.logDelivered[static_cast<size_t>(producer)];
  context.Expect(Check::kLogFifo, sequence == last + 1, [&] {
    return Printf("producer %ld: expected entry #%lld next, saw #%lld", producer,
                  static_cast<long long>(last + 1), sequence);
  });
  context.Expect(Check::kLogFifo,
                 text == Text(static_cast<int>(producer), sequence) && level == Level(sequence), [&] {
                   return Printf("producer %ld entry #%lld: expected level %d \"%s\", saw level %d \"%s\"",
                                 producer, sequence, Level(sequence),
                                 Text(static_cast<int>(producer), sequence).c_str(), level, text.c_str());
                 });
  if (sequence > last) last = sequence;
}

void LogLedger::CheckComplete(ThreadContext& context) {
  BridgeModel& model = Model();
  model.logDelivered.resize(added_.size(), 0);
  for (int p = 0; p < producers(); ++p) {
    const int64_t delivered = model.logDelivered[static_cast<size_t>(p)];
    context.Expect(Check::kLogFifo, delivered == added(p), [&] {
      return Printf("producer %d added %lld entries, the last delivered was #%lld", p,
                    static_cast<long long>(added(p)), static_cast<long long>(delivered));
    });
  }
  context.Expect(Check::kLogFifo, SOAK_CALL(context, LogBuffer_Get)() == nullptr,
                 [] { return std::string("entries are left after every producer's last one arrived"); });
}

RegistryLedger::RegistryLedger(int threads) {
  for (int i = 0; i < threads; ++i)
    words_.push_back(std::make_unique<std::atomic<uint64_t>>(0));
}

void RegistryLedger::Begin(int thread, int32_t count, int32_t change) {
  words_[static_cast<size_t>(thread)]->store(
      (static_cast<uint64_t>(static_cast<uint32_t>(count)) << 32) | static_cast<uint32_t>(change),
      std::memory_order_seq_cst);
}

void RegistryLedger::End(int thread, int32_t count) {
  words_[static_cast<size_t>(thread)]->store(static_cast<uint64_t>(static_cast<uint32_t>(count)) << 32,
                                             std::memory_order_seq_cst);
}

void RegistryLedger::Bounds(int64_t* low, int64_t* high) const {
  *low = 0;
  *high = 0;
  for (const auto& word : words_) {
    const uint64_t value = word->load(std::memory_order_seq_cst);
    const auto count = static_cast<int32_t>(static_cast<uint32_t>(value >> 32));
    const auto change = static_cast<int32_t>(static_cast<uint32_t>(value));
    *low += count + (change < 0 ? change : 0);
    *high += count + (change > 0 ? change : 0);
  }
}

}  // namespace quorl::soak
