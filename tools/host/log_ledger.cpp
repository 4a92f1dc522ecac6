#include "bridge_model.h"

#include <cstdlib>
#include <cstring>

namespace quorl::host {

namespace {

// Enough to keep the pollers busy without letting an unpolled buffer eat the machine.
constexpr int64_t kMaxUndelivered = 200000;
constexpr size_t kHashLength = 10;  // " |" and eight hex digits

// FNV-1a over the level and the entry's text.
uint32_t Hash(int32_t level, const std::string& text) {
  uint32_t hash = 2166136261u ^ static_cast<uint32_t>(level);
  for (const char c : text)
    hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  return hash;
}

}  // namespace

LogProducer& LogLedger::AddProducer(const std::string& name) {
  return producers_.emplace_back(name);
}

bool LogLedger::Add(ThreadContext& context, LogProducer& producer, int32_t level, const std::string& text) {
  if (totalAdded_.load(std::memory_order_relaxed) - delivered() > kMaxUndelivered) return false;
  const int64_t sequence = producer.added.load(std::memory_order_relaxed) + 1;
  const std::string body = "[" + producer.name + " #" + std::to_string(sequence) + "] " + text;
  const std::string entry = body + Printf(" |%08x", Hash(level, body));
  CALL(context, LogBuffer_Add)(level, entry.c_str());
  // Counted after the add, so whoever sees the count finds the entry in the buffer.
  producer.added.store(sequence, std::memory_order_release);
  totalAdded_.fetch_add(1, std::memory_order_relaxed);
  return true;
}

int LogLedger::Poll(ThreadContext& context, int limit, LogProducer* own) {
  int taken = 0;
  while (taken < limit) {
    LogBufferView* view = CALL(context, LogBuffer_Get)();
    if (view == nullptr) break;
    if (view_ == nullptr) view_ = view;
    EXPECT(context, kLogView, view == view_, "LogBuffer_Get gave the view at %p, earlier at %p",
           static_cast<void*>(view), static_cast<const void*>(view_));
    const int32_t level = view->level;
    const char* message = view->message;
    // The text belongs to the entry and dangles after the pop: copy it first.
    const std::string copy = message != nullptr ? message : "<null>";
    if (own != nullptr && context.random.OneIn(4)) {
      Add(context, *own, 1, "added while another entry was in view");
      EXPECT(context, kLogView, message != nullptr && std::strcmp(message, copy.c_str()) == 0,
             "the entry in view changed from \"%s\" when another entry was added", copy.c_str());
    }
    CALL(context, LogBuffer_Pop)();
    Received(context, level, copy);
    ++taken;
  }
  totalDelivered_.fetch_add(taken, std::memory_order_relaxed);
  return taken;
}

void LogLedger::Received(ThreadContext& context, int32_t level, const std::string& message) {
  const std::string body =
      message.size() > kHashLength ? message.substr(0, message.size() - kHashLength) : "";
  const bool whole = !body.empty() && message.compare(body.size(), 2, " |") == 0 &&
                     std::strtoul(message.c_str() + body.size() + 2, nullptr, 16) == Hash(level, body);
  const size_t hash = body.find(" #");
  const size_t close = body.find("] ");
  LogProducer* producer = nullptr;
  if (whole && body[0] == '[' && hash != std::string::npos && close != std::string::npos && hash < close) {
    for (LogProducer& candidate : producers_) {
      if (body.compare(1, hash - 1, candidate.name) == 0 && candidate.name.size() == hash - 1) {
        producer = &candidate;
      }
    }
  }
  if (producer == nullptr) {
    FAIL(context, kLogFifo, "level %d entry \"%s\" is damaged or came from nobody", level,
         message.substr(0, 200).c_str());
    return;
  }
  warnings_ += level == 2 || level == 3 ? 1 : 0;
  lastMessage_ = body;
  const long long sequence = std::strtoll(body.c_str() + hash + 2, nullptr, 10);
  EXPECT(context, kLogFifo, sequence == producer->delivered + 1, "%s: expected entry #%lld next, saw #%lld",
         producer->name.c_str(), static_cast<long long>(producer->delivered + 1), sequence);
  if (sequence > producer->delivered) producer->delivered = sequence;
}

void LogLedger::CheckComplete(ThreadContext& context) {
  for (const LogProducer& producer : producers_) {
    EXPECT(context, kLogFifo, producer.delivered == producer.added.load(),
           "%s added %lld entries, the last delivered was #%lld", producer.name.c_str(),
           static_cast<long long>(producer.added.load()), static_cast<long long>(producer.delivered));
  }
  EXPECT(context, kLogFifo, CALL(context, LogBuffer_Get)() == nullptr,
         "entries are left after every producer's last one arrived");
}

}  // namespace quorl::host
