#include "auth/Session.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <limits>
#include <mutex>
#include <thread>

#include "auth/Files.h"
#include "auth/Settings.h"
#include "auth/Status.h"
#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"
#include "platform/HttpTransport.h"
#include "platform/Json.h"
#include "platform/NoDestructor.h"
#include "platform/Platform.h"
#include "platform/SupportFolder.h"

namespace orvistelle::auth {
using platform::Json, platform::JsonObject, platform::StringMember, platform::NonEmptyStringMember,
      platform::NumberMember, platform::ObjectMember, platform::Dump;
namespace {

struct SessionState {
  std::mutex mutex;
  Session session;
  std::string filedRefresh;              // the refresh token in the file when this process last read or wrote it
  std::atomic<uint32_t> generation{0};   // changed only under the mutex, so that answers are checked against it
  std::atomic<bool> busy{false};
};

// Never destroyed: background tasks may still use the session while the process exits.
SessionState& State() {
  static platform::NoDestructor<SessionState> state;
  return *state;
}

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

int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// Strict: whole groups of four, padding only at the very end, nothing outside the alphabet.
std::optional<std::string> DecodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  size_t padding = text.size() - (text.find_last_not_of('=') + 1);
  if (text.empty() || padding > 2) return std::nullopt;
  std::string bytes;
  uint32_t bits = 0;
  int bitCount = 0;
  for (char c : text.substr(0, text.size() - padding)) {
    int value = Base64Value(c);
    if (value < 0) return std::nullopt;
    bits = (bits << 6) | static_cast<uint32_t>(value);
    bitCount += 6;
    if (bitCount >= 8) {
      bitCount -= 8;
      bytes += static_cast<char>((bits >> bitCount) & 0xff);
    }
  }
  return bytes;
}

// The payload of "header.payload[.signature]" as bytes; nothing when it is missing or not base64url.
std::optional<std::string> JwtPayload(std::string_view token) {
  size_t firstDot = token.find('.');
  if (firstDot == std::string_view::npos) return std::nullopt;
  std::string_view payload = token.substr(firstDot + 1);
  payload = payload.substr(0, payload.find('.'));
  if (payload.empty()) return std::nullopt;
  std::string base64(payload);
  for (char& c : base64) {
    if (c == '-') c = '+';
    if (c == '_') c = '/';
  }
  base64.append((4 - base64.size() % 4) % 4, '=');
  return DecodeBase64(base64);
}

// The number that the text starts with, after any leading white space; 0 when it starts with none.
double LeadingNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\r\v\f"), text.size()));
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && std::isfinite(value) ? value : 0;
}

double ExpiryClaim(const Json& claims) {
  if (std::optional<double> number = NumberMember(claims, "exp")) return *number;
  if (std::optional<std::string> text = StringMember(claims, "exp")) return LeadingNumber(*text);
  return 0;
}

// An e-mail that could not be shown is not kept either: it reads as unknown.
std::string ShowableOrEmpty(const std::string& email) { return IsShowableText(email) ? email : ""; }

std::string EmailClaim(const Json& claims) {
  if (std::optional<std::string> email = NonEmptyStringMember(claims, "email")) return ShowableOrEmpty(*email);
  const Json* metadata = ObjectMember(claims, "user_metadata");
  return metadata != nullptr ? ShowableOrEmpty(NonEmptyStringMember(*metadata, "email").value_or("")) : "";
}

// Seconds toward zero, held inside the 64-bit range whatever a token claimed.
int64_t WholeSeconds(double seconds) {
  if (std::isnan(seconds)) return 0;
  constexpr double kLimit = 9.2e18;
  return static_cast<int64_t>(std::clamp(seconds, -kLimit, kLimit));
}

// The file keeps what one answer of the backend carried, tokens of any size included.
constexpr size_t kSessionFileLimit = platform::kMaxResponseBytes;

// Nothing when the file holds no session; `error` says why when it could not be read at all (ENOENT: no file).
std::optional<Session> ReadSessionFile(std::error_code* error = nullptr) {
  platform::StateFileContents read = platform::ReadStateFileReporting(SessionPath(), kSessionFileLimit);
  if (error != nullptr) *error = read.error;
  std::optional<Json> file = JsonObject(read.contents);
  if (!file) return std::nullopt;
  Session loaded;
  loaded.access = NonEmptyStringMember(*file, "access_token").value_or("");
  loaded.refresh = NonEmptyStringMember(*file, "refresh_token").value_or("");
  if (!HoldsSession(loaded)) return std::nullopt;
  loaded.email = ShowableOrEmpty(StringMember(*file, "email").value_or(""));
  if (std::optional<double> expiresAt = NumberMember(*file, "expires_at")) {
    loaded.expiresAt = *expiresAt;
  } else {
    AccessClaims claims = ParseAccessClaims(loaded.access);
    loaded.expiresAt = claims.expiry;
    if (loaded.email.empty()) loaded.email = claims.email;
  }
  return loaded;
}

bool SessionFileExists() {
  std::error_code error;
  return std::filesystem::symlink_status(SessionPath(), error).type() != std::filesystem::file_type::not_found;
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
  EnsureDir();
  const Session& session = state.session;
  Json file = {{"access_token", session.access},
               {"refresh_token", session.refresh},
               {"email", session.email},
               {"expires_at", WholeSeconds(session.expiresAt)}};
  std::error_code error = WriteStateFile(SessionPath(), Dump(file));
  if (!error) state.filedRefresh = session.refresh;
  return error;
}

void ShowSaveFailure(std::error_code error) {
  if (error) SetStatusText(FcpTf("auth.sessionSaveFailed", error.message()), true);
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

std::string SessionPath() { return SupportFile("fcp-session.json"); }

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

AccessClaims ParseAccessClaims(std::string_view token) {
  std::optional<Json> claims = JsonObject(JwtPayload(token));
  if (!claims) return {};
  return {EmailClaim(*claims), ExpiryClaim(*claims)};
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

SessionFileLock::SessionFileLock() {
  FileLockState& state = FileLock();
  state.mutex.lock();
  if (state.depth++ == 0) {
    EnsureDir();
    state.held = TakeFileLock(&state.fd);
  }
  held_ = state.held;
}

SessionFileLock::~SessionFileLock() {
  FileLockState& state = FileLock();
  if (--state.depth == 0 && state.fd >= 0) {
    ::close(state.fd);  // releases the advisory lock
    state.fd = -1;
  }
  state.mutex.unlock();
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

void ResetSessionMemory() {
  std::lock_guard lock(State().mutex);
  State().session = Session{};
  State().filedRefresh.clear();
  State().busy.store(false);
}

}  // namespace orvistelle::auth

using namespace orvistelle::auth;

bool FcpAuthHasSession() {
  if (HoldsSession(CurrentSession())) return true;
  LoadSession();
  return HoldsSession(CurrentSession());
}

bool FcpAuthSignedIn() { return FcpAuthHasSession(); }

bool FcpAuthBusy() { return State().busy.load(); }

std::string FcpAuthEmail() { return CurrentSession().email; }
