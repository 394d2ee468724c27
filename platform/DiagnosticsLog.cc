#include "platform/DiagnosticsLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/LogText.h"
#include "platform/NoDestructor.h"
#include "platform/Platform.h"
#include "platform/UniqueFd.h"

namespace orvistelle::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Lines waiting for the writer; past this many, new ones are dropped rather than let a stuck disk grow the heap.
constexpr size_t kQueueLimit = 256;
// The lock guards memory only and is held for moments, but a caller never waits on it for longer than this.
constexpr auto kLongestLockWait = 50ms;
// How long a reader of the log, or the process at exit, waits for the lines queued before it.
constexpr auto kFlushWait = 200ms;
// The most of a log file read for its tail: more than a whole file before rotation.
constexpr off_t kTailBytes = 2 * kDiagnosticsLogLimit;

struct QueuedLine {
  std::string folder;
  std::string text;
  bool makesFolder = false;  // the first line since the folder was set
};

struct LogState {
  std::mutex lock;
  std::condition_variable queued;    // the writer waits here for lines
  std::condition_variable finished;  // flushes wait here for the writer
  std::string folder;
  std::deque<QueuedLine> lines;
  uint64_t queuedCount = 0;    // lines accepted since the start
  uint64_t finishedCount = 0;  // of those, the lines written or given up on
  bool writerStarted = false;
  // The folder is made once each time it is set, never again behind the back of whoever removed it since (a test
  // that set its own folder, the user).
  bool folderToMake = false;
};

// Never destroyed: a host's threads, and the writer, may still use it while the process runs its exit handlers.
LogState& State() {
  static NoDestructor<LogState> state;
  return *state;
}

// std::timed_mutex would say this in one call, but ThreadSanitizer cannot follow its timed lock. Waiting at all is
// for a child forked while another thread held the lock, where it would otherwise stay held for ever.
bool LockBriefly(std::mutex& lock) {
  for (auto deadline = std::chrono::steady_clock::now() + kLongestLockWait; !lock.try_lock();) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(100us);
  }
  return true;
}

// A regular file at the path, opened without following a link and without waiting on whatever else is there (a FIFO
// without a reader fails at once, one with a reader is refused after the open); no descriptor for anything else.
UniqueFd OpenRegularFile(const std::string& path, int flags) {
  UniqueFd file(::open(path.c_str(), flags | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, 0600));
  struct stat info {};
  if (file.get() < 0 || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return UniqueFd();
  return file;
}

// Made owner-only, as a folder of the user's state should be.
void MakeFolder(const std::string& folder) {
  std::error_code ignored;
  if (fs::create_directories(folder, ignored)) fs::permissions(folder, fs::perms::owner_all, ignored);
}

// One write per line, so that the lines of two processes appending at once stay whole.
void AppendAndRotate(const std::string& folder, const std::vector<std::string>& lines) {
  const std::string path = (fs::path(folder) / kDiagnosticsLogName).string();
  const UniqueFd file = OpenRegularFile(path, O_WRONLY | O_APPEND | O_CREAT);
  if (file.get() < 0) return;
  for (const std::string& line : lines) (void)::write(file.get(), line.data(), line.size());
  struct stat info {};
  if (::fstat(file.get(), &info) == 0 && static_cast<size_t>(info.st_size) >= kDiagnosticsLogLimit) {
    (void)::rename(path.c_str(), (path + ".1").c_str());
  }
}

// Everything queued so far, taken out of the queue in one go.
std::deque<QueuedLine> TakeQueued(LogState& state) {
  std::unique_lock guard(state.lock);
  state.queued.wait(guard, [&state] { return !state.lines.empty(); });
  return std::exchange(state.lines, {});
}

// Consecutive lines for one folder go out through one open of its file.
void WriteOut(const std::deque<QueuedLine>& taken) {
  for (auto run = taken.begin(); run != taken.end();) {
    std::vector<std::string> texts;
    bool makesFolder = false;
    auto next = run;
    for (; next != taken.end() && next->folder == run->folder; ++next) {
      texts.push_back(next->text);
      makesFolder = makesFolder || next->makesFolder;
    }
    if (makesFolder) MakeFolder(run->folder);
    AppendAndRotate(run->folder, texts);
    run = next;
  }
}

[[noreturn]] void RunWriter() {
  LogState& state = State();
  for (;;) {
    const std::deque<QueuedLine> taken = TakeQueued(state);
    try {
      WriteOut(taken);
    } catch (...) {
      // Out of memory for a batch: those lines are lost, later ones are still written.
    }
    {
      std::lock_guard guard(state.lock);
      state.finishedCount += taken.size();
    }
    state.finished.notify_all();
  }
}

// Waits until the lines queued before the call are written or given up on, at most kFlushWait.
void Flush() {
  LogState& state = State();
  if (!LockBriefly(state.lock)) return;
  std::unique_lock guard(state.lock, std::adopt_lock);
  const uint64_t target = state.queuedCount;
  state.finished.wait_for(guard, kFlushWait, [&] { return state.finishedCount >= target; });
}

// Called with the lock held; the thread is the one place the log's file system work happens.
void StartWriter(LogState& state) {
  if (state.writerStarted) return;
  try {
    std::thread(RunWriter).detach();
    state.writerStarted = true;
    (void)std::atexit(Flush);
  } catch (const std::system_error&) {
    // No thread to be had now: lines queue up to the limit and the next folder set tries again.
  }
}

std::string TimestampedLine(std::string_view message) {
  return IsoTimestamp(Seam<Clock>::Get().Now()) + " " + EscapeLogText(message) + "\n";
}

// The tail of the file, from its first whole line: at most kTailBytes of it.
std::string ReadTail(const std::string& path) {
  const UniqueFd file = OpenRegularFile(path, O_RDONLY);
  struct stat info {};
  if (file.get() < 0 || ::fstat(file.get(), &info) != 0) return {};
  const off_t start = std::max<off_t>(0, info.st_size - kTailBytes);
  std::string text(static_cast<size_t>(info.st_size - start), '\0');
  ssize_t count = 0;
  do {
    count = ::pread(file.get(), text.data(), text.size(), start);
  } while (count < 0 && errno == EINTR);
  text.resize(count > 0 ? static_cast<size_t>(count) : 0);
  if (start > 0) {
    const size_t firstBreak = text.find('\n');
    text.erase(0, firstBreak == std::string::npos ? text.size() : firstBreak + 1);
  }
  return text;
}

void AppendLines(const std::string& path, std::vector<std::string>& lines) {
  const std::string text = ReadTail(path);
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(EscapeLogText(std::string_view(text).substr(begin, end - begin)));
    begin = end + 1;
  }
}

}  // namespace

std::string IsoTimestamp(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0) seconds = 0;
  const double whole = std::floor(seconds);
  const auto time = static_cast<std::time_t>(whole);
  const int millis = std::min(999, static_cast<int>((seconds - whole) * 1000));
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[64];
  (void)std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                      utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, millis);
  return text;
}

std::string DiagnosticsFolder(const std::function<const char*(const char*)>& getenv) {
  const char* state = getenv("XDG_STATE_HOME");
  fs::path base =
      state != nullptr && state[0] == '/' ? fs::path(state) : fs::path(Seam<Home>::Get().Directory()) / ".local/state";
  return (base / "orvistelle").string();
}

void SetDiagnosticsFolder(const std::string& folder) {
  LogState& state = State();
  std::lock_guard guard(state.lock);
  state.folder = folder;
  state.folderToMake = !folder.empty();
  if (!folder.empty()) StartWriter(state);
}

void StartDiagnosticsLog() {
  if (!DiagnosticsLogPath().empty()) return;
  SetDiagnosticsFolder(DiagnosticsFolder([](const char* name) { return std::getenv(name); }));
}

std::string DiagnosticsLogPath() {
  LogState& state = State();
  std::lock_guard guard(state.lock);
  return state.folder.empty() ? std::string() : (fs::path(state.folder) / kDiagnosticsLogName).string();
}

void Diagnose(std::string_view message) {
  try {
    std::string line = TimestampedLine(message);
    LogState& state = State();
    if (!LockBriefly(state.lock)) return;
    {
      std::lock_guard guard(state.lock, std::adopt_lock);
      if (state.folder.empty() || state.lines.size() >= kQueueLimit) return;
      state.lines.push_back({state.folder, std::move(line), std::exchange(state.folderToMake, false)});
      ++state.queuedCount;
    }
    state.queued.notify_one();
  } catch (...) {
    // Out of memory for one line: the line is lost, the caller goes on.
  }
}

std::vector<std::string> ReadDiagnosticsTail(const std::string& path, size_t count) {
  Flush();
  std::vector<std::string> lines;
  AppendLines(path + ".1", lines);
  AppendLines(path, lines);
  if (lines.size() > count) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(count));
  return lines;
}

}  // namespace orvistelle::platform
