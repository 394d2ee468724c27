#include "auth/Session.h"

#include <atomic>
#include <mutex>

#include "auth/AccessClaims.h"
#include "auth/Files.h"
#include "auth/SessionFile.h"
#include "auth/SessionFileLock.h"
#include "auth/Status.h"
#include "orvistelle/FcpI18n.h"
#include "platform/NoDestructor.h"
#include "platform/Platform.h"

namespace orvistelle::auth {
namespace {

struct SessionState {
  std::mutex mutex;
  Session session;
  std::string filedRefresh;             // the refresh token in the file when this process last read or wrote it
  std::atomic<uint32_t> generation{0};  // changed only under the mutex, so that answers are checked against it
  std::atomic<bool> busy{false};
};

// Never destroyed: background tasks may still use the session while the process exits.
SessionState& State() {
  static platform::NoDestructor<SessionState> state;
  return *state;
}

// Whether the file holds what this process last read or wrote there, with the session mutex held. A file that
// cannot be read is told apart from one that another process has rewritten or removed.
enum class FileCheck { kUnchanged, kChangedElsewhere, kUnreadable };
FileCheck CheckFileUnchanged(std::error_code* readError) {
  std::optional<Session> file = ReadSessionFile(readError);
  bool missing = *readError == std::errc::no_such_file_or_directory;
  if (*readError && !missing) return FileCheck::kUnreadable;
  return (file ? file->refresh : std::string()) == State().filedRefresh ? FileCheck::kUnchanged
                                                                        : FileCheck::kChangedElsewhere;
}

// With the session mutex and the file lock held. Under kOnlyIfUnchanged, a file that another process has changed
// is left to FollowSessionFile, and one that cannot be read fails the save.
std::error_code SaveLocked(FileRule rule) {
  SessionState& state = State();
  if (rule == FileRule::kOnlyIfUnchanged) {
    std::error_code readError;
    FileCheck check = CheckFileUnchanged(&readError);
    if (check == FileCheck::kUnreadable) return readError;
    if (check == FileCheck::kChangedElsewhere) return {};
  }
  std::error_code error = WriteSessionFile(state.session);
  if (!error) state.filedRefresh = state.session.refresh;
  return error;
}

void ShowSaveFailure(std::error_code error) {
  if (error) SetStatusText(FcpTf("auth.sessionSaveFailed", error.message()), true);
}

// With the session mutex held. The file goes before the generation changes: a reload that reads the new generation
// must not find the old file still there and bring the session back.
void ClearLocked() {
  SessionState& state = State();
  RemoveFile(SessionPath());
  state.generation.fetch_add(1);
  state.busy.store(false);
  state.session = Session{};
  state.filedRefresh.clear();
}

}  // namespace

Session CurrentSession() {
  std::lock_guard lock(State().mutex);
  return State().session;
}

SessionSnapshot SnapshotSession() {
  std::lock_guard lock(State().mutex);
  return {State().session, State().generation.load()};
}

bool HoldsSession(const Session& session) { return !session.access.empty() && !session.refresh.empty(); }

void SaveEmail(const std::string& email, uint32_t generation) {
  SessionFileLock fileLock;
  std::error_code error;
  {
    std::lock_guard lock(State().mutex);
    if (State().generation.load() != generation || !IsShowableText(email)) return;
    State().session.email = email;
    error = SaveLocked(FileRule::kOnlyIfUnchanged);
  }
  ShowSaveFailure(error);
}

// A sign-out between reading the file and installing what it held wins: its generation differs by then.
void LoadSession() {
  uint32_t generation = CurrentLoginGeneration();
  std::optional<Session> loaded = ReadSessionFile();
  if (!loaded) return;
  std::lock_guard lock(State().mutex);
  if (State().generation.load() != generation) return;
  State().filedRefresh = loaded->refresh;
  State().session = std::move(*loaded);
}

void SaveSession() {
  SessionFileLock fileLock;
  std::error_code error;
  {
    std::lock_guard lock(State().mutex);
    error = SaveLocked(FileRule::kReplace);
  }
  ShowSaveFailure(error);
}

bool ApplyAccessToken(const IssuedTokens& tokens, uint32_t generation, FileRule rule) {
  AccessClaims claims = ParseAccessClaims(tokens.access);
  double now = platform::Seam<platform::Clock>::Get().Now();
  SessionFileLock fileLock;
  std::error_code error;
  {
    std::lock_guard lock(State().mutex);
    if (State().generation.load() != generation) return false;
    Session& session = State().session;
    session.access = tokens.access;
    if (!tokens.refresh.empty()) session.refresh = tokens.refresh;
    if (!claims.email.empty()) {
      session.email = claims.email;
    } else if (!tokens.email.empty() && IsShowableText(tokens.email)) {
      session.email = tokens.email;
    }
    if (claims.expiry > 0) {
      session.expiresAt = claims.expiry;
    } else if (tokens.expiresIn && *tokens.expiresIn > 0) {
      session.expiresAt = now + *tokens.expiresIn;
    }
    error = SaveLocked(rule);
  }
  ShowSaveFailure(error);
  return true;
}

void ClearSessionState() {
  std::lock_guard lock(State().mutex);
  ClearLocked();
}

bool ClearSessionStateIfCurrent(uint32_t generation) {
  std::lock_guard lock(State().mutex);
  if (State().generation.load() != generation) return false;
  ClearLocked();
  return true;
}

// Only a file that is gone counts as a sign-out: one that cannot be read or parsed right now (a write in another
// process, a disk error) leaves the session as it is.
SessionFileChange FollowSessionFile() {
  uint32_t generation = CurrentLoginGeneration();
  std::optional<Session> file = ReadSessionFile();
  bool gone = !file && !SessionFileExists();
  SessionState& state = State();
  std::lock_guard lock(state.mutex);
  if (state.generation.load() != generation) return SessionFileChange::kNone;
  if (gone && !state.filedRefresh.empty()) {
    ClearLocked();
    return SessionFileChange::kSignedOut;
  }
  if (!file || file->refresh == state.filedRefresh) return SessionFileChange::kNone;
  bool newer = file->refresh != state.session.refresh;
  state.filedRefresh = file->refresh;
  if (!newer) return SessionFileChange::kNone;
  state.session = std::move(*file);
  return SessionFileChange::kAdopted;
}

uint32_t NextLoginGeneration() {
  std::lock_guard lock(State().mutex);
  return State().generation.fetch_add(1) + 1;
}

uint32_t CurrentLoginGeneration() { return State().generation.load(); }

void SetBusy(bool busy) { State().busy.store(busy); }

bool IsBusy() { return State().busy.load(); }

void ResetSessionMemory() {
  std::lock_guard lock(State().mutex);
  State().session = Session{};
  State().filedRefresh.clear();
  State().busy.store(false);
}

}  // namespace orvistelle::auth
