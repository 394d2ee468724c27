// Background work without a shared queue: every task gets a thread of its own, so a request that hangs for its
// full wait never holds up another task, and the maintenance timer keeps its own thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace orvistelle::auth {

// Runs the task on a new detached thread; false (and the task not run) when the system refuses a thread.
bool TryRunInBackground(std::function<void()> task);

// As above, but should the system refuse a thread, the task runs on the caller's: late is better than never.
void RunInBackground(std::function<void()> task);

// Blocks until no task started by RunInBackground is still running.
void WaitForBackgroundTasks();

// Runs a handler first `firstDelay` after Start and then every `period`, on a background task of its own. The
// handler never overlaps itself: firings that fall due while it runs are skipped, and the next one keeps the beat.
class RepeatingTimer {
 public:
  // False when no thread could be had for the timer.
  bool Start(std::chrono::milliseconds firstDelay, std::chrono::milliseconds period, std::function<void()> handler);
  // Asks the timer's task to end; it does so as soon as the handler (if running) returns.
  void Stop();

 private:
  void Run(std::chrono::milliseconds firstDelay, std::chrono::milliseconds period,
           const std::function<void()>& handler);

  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
};

}  // namespace orvistelle::auth
