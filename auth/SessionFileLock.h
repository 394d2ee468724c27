// Other processes share the session file; this lock takes turns with them.
#pragma once

namespace orvistelle::auth {

// Every save, and every refresh from re-reading the file to saving the answer, holds this lock: an advisory lock on
// "fcp-session.lock" beside the file, which also excludes the other threads of this process. A thread may take it
// again while holding it. Where no usable lock file can be had (a folder, a pipe, a dangling link or an immutable
// file in its place), the support folder itself is locked instead.
class SessionFileLock {
 public:
  // Waits for another process's lock for the settings' lockWait at most.
  SessionFileLock();
  ~SessionFileLock();
  SessionFileLock(const SessionFileLock&) = delete;
  SessionFileLock& operator=(const SessionFileLock&) = delete;
  // False when another process kept it past the wait: a save goes ahead regardless, a refresh does not.
  bool Held() const { return held_; }

 private:
  const bool held_;
};

}  // namespace orvistelle::auth
