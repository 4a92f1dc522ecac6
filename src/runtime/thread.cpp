#include "runtime/thread.h"

namespace quorl {

WorkerThread::WorkerThread(WorkerThread&& other) noexcept
    : thread(std::move(other.thread)),
      body(std::move(other.body)),
      running(other.running.load(std::memory_order_seq_cst)) {
  other.body = nullptr;
  other.running.store(false, std::memory_order_seq_cst);
}

WorkerThread& WorkerThread::operator=(WorkerThread&& other) noexcept {
  if (this == &other) return *this;
  thread = std::move(other.thread);  // terminates when this object still owns a thread, as intended
  body = std::move(other.body);
  other.body = nullptr;
  running.store(other.running.load(std::memory_order_seq_cst), std::memory_order_seq_cst);
  other.running.store(false, std::memory_order_seq_cst);
  return *this;
}

bool WorkerThread::Finished() const {
  return !running.load(std::memory_order_seq_cst) && thread.joinable();
}

std::thread::native_handle_type WorkerThread::NativeId() {
  return thread.native_handle();
}

bool WorkerThread::Join() {
  if (running.load(std::memory_order_seq_cst) || !thread.joinable()) return false;
  thread.join();
  return true;
}

void WorkerThread::Detach() {
  thread.detach();
}

void WorkerThread::Swap(WorkerThread& other) noexcept {
  std::swap(thread, other.thread);
  std::swap(body, other.body);
}

void WorkerThread::Run() {
  if (!body) throw std::bad_function_call();
  body();
  running.store(false, std::memory_order_seq_cst);  // a sequentially consistent store is a full fence
}

}  // namespace quorl
