// WorkerThread: a native thread with its body and a `running` flag that a owner polls.
//
// The owner thread makes, starts, polls, joins or detaches, moves and destroys the object; the started
// thread only runs the body and then clears `running`. `running` is the one field that both threads
// touch, and its stores are fully fenced. Join never waits for a running body: it is a test-and-collect.
// Like the native thread object, destroying (or move-assigning onto) a WorkerThread that still owns a
// thread ends the process through the terminate handler; join or detach first.
#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

namespace quorl {

class WorkerThread {
 public:
  WorkerThread() = default;
  WorkerThread(WorkerThread&& other) noexcept;
  WorkerThread& operator=(WorkerThread&& other) noexcept;
  ~WorkerThread() = default;

  // Sets `running`, creates the native thread and enters Run on it, with `body` as the thread's work.
  // The object must own no thread yet, and must stay where it is (not be moved) until the body has
  // finished, since the new thread reports back to this object.
  template <class Body>
  void Start(Body&& newBody) {
    body = std::forward<Body>(newBody);
    running.store(true, std::memory_order_seq_cst);  // a sequentially consistent store is a full fence
    try {
      thread = std::thread([this] { Run(); });
    } catch (...) {
      running.store(false, std::memory_order_seq_cst);
      throw;
    }
  }

  // True when a thread exists and its body has finished.
  bool Finished() const;
  // The native identifier of the owned thread.
  std::thread::native_handle_type NativeId();
  // False at once while the body runs or when no thread exists; otherwise joins and gives true.
  bool Join();
  void Detach();
  // Exchanges the threads and the bodies; each object keeps its own `running`.
  void Swap(WorkerThread& other) noexcept;
  // The thread entry: raises std::bad_function_call without a body, else runs it and clears `running`.
  void Run();

 private:
  std::thread thread;
  std::function<void()> body;
  std::atomic<bool> running{false};
};

}  // namespace quorl
