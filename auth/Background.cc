#include "auth/Background.h"

#include <memory>
#include <system_error>
#include <thread>

#include "platform/NoDestructor.h"

namespace orvistelle::auth {
namespace {

struct RunningTasks {
  std::mutex mutex;
  std::condition_variable idle;
  int count = 0;
};

// Never destroyed: detached tasks may still finish while the process exits.
RunningTasks& Tasks() {
  static platform::NoDestructor<RunningTasks> tasks;
  return *tasks;
}

void TaskFinished() {
  RunningTasks& tasks = Tasks();
  std::lock_guard lock(tasks.mutex);
  if (--tasks.count == 0) tasks.idle.notify_all();
}

}  // namespace

bool TryRunInBackground(std::function<void()> task) {
  {
    std::lock_guard lock(Tasks().mutex);
    ++Tasks().count;
  }
  try {
    std::thread([task = std::move(task)]() mutable {
      task();
      task = nullptr;  // the task's captures go before the task counts as finished
      TaskFinished();
    }).detach();
    return true;
  } catch (const std::system_error&) {
    TaskFinished();
    return false;
  }
}

void RunInBackground(std::function<void()> task) {
  auto shared = std::make_shared<std::function<void()>>(std::move(task));
  if (!TryRunInBackground([shared] { (*shared)(); })) (*shared)();
}

void WaitForBackgroundTasks() {
  RunningTasks& tasks = Tasks();
  std::unique_lock lock(tasks.mutex);
  tasks.idle.wait(lock, [&tasks] { return tasks.count == 0; });
}

bool RepeatingTimer::Start(std::chrono::milliseconds firstDelay, std::chrono::milliseconds period,
                           std::function<void()> handler) {
  {
    std::lock_guard lock(mutex_);
    stopping_ = false;
  }
  return TryRunInBackground(
      [this, firstDelay, period, handler = std::move(handler)] { Run(firstDelay, period, handler); });
}

void RepeatingTimer::Stop() {
  std::lock_guard lock(mutex_);
  stopping_ = true;
  wake_.notify_all();
}

void RepeatingTimer::Run(std::chrono::milliseconds firstDelay, std::chrono::milliseconds period,
                         const std::function<void()>& handler) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point next = Clock::now() + firstDelay;
  std::unique_lock lock(mutex_);
  while (!wake_.wait_until(lock, next, [this] { return stopping_; })) {
    lock.unlock();
    handler();
    lock.lock();
    next += period * ((Clock::now() - next) / period + 1);
  }
}

}  // namespace orvistelle::auth
