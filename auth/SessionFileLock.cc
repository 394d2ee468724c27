#include "auth/SessionFileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>

#include "auth/Files.h"
#include "auth/Settings.h"
#include "platform/NoDestructor.h"
#include "platform/Platform.h"
#include "platform/SupportFolder.h"

namespace orvistelle::auth {
namespace {

struct FileLockState {
  std::recursive_mutex mutex;
  int depth = 0;  // how often the holding thread has taken it
  int fd = -1;
  bool held = false;
};

FileLockState& FileLock() {
  static platform::NoDestructor<FileLockState> state;
  return *state;
}

// A regular file at the lock path, opened without blocking on whatever else may be there; -1 when there is none.
int OpenLockFile() {
  int fd = ::open(SupportFile("fcp-session.lock").c_str(),
                  O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600);
  struct stat info {};
  if (fd >= 0 && (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// 0 once locked, EWOULDBLOCK when another process kept it past the wait, another errno when it cannot be locked.
int LockWithin(int fd, std::chrono::milliseconds wait) {
  if (fd < 0) return EBADF;
  auto deadline = std::chrono::steady_clock::now() + wait;
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return errno;
    if (std::chrono::steady_clock::now() >= deadline) return EWOULDBLOCK;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return 0;
}

// The lock file's lock, else the support folder's, which every process that finds the file unusable meets at; false
// only when another process kept it past the wait. Where neither can be locked, said once, only this process's
// threads are excluded.
bool TakeFileLock(int* fd) {
  std::chrono::milliseconds wait = CurrentSettings().lockWait;
  *fd = OpenLockFile();
  int result = LockWithin(*fd, wait);
  if (result == 0 || result == EWOULDBLOCK) return result == 0;
  static std::atomic<bool> told{false};
  if (!told.exchange(true)) platform::Log("the session lock file is unusable; locking the support folder instead");
  if (*fd >= 0) ::close(*fd);
  *fd = ::open(platform::SupportFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return LockWithin(*fd, wait) != EWOULDBLOCK;
}

// Takes the lock for this thread, and the file's lock when this thread does not hold it yet; whether the file's
// lock is held.
bool Enter() {
  FileLockState& state = FileLock();
  state.mutex.lock();
  if (state.depth++ == 0) {
    EnsureDir();
    state.held = TakeFileLock(&state.fd);
  }
  return state.held;
}

}  // namespace

SessionFileLock::SessionFileLock() : held_(Enter()) {}

SessionFileLock::~SessionFileLock() {
  FileLockState& state = FileLock();
  if (--state.depth == 0 && state.fd >= 0) {
    ::close(state.fd);  // releases the advisory lock
    state.fd = -1;
  }
  state.mutex.unlock();
}

}  // namespace orvistelle::auth
