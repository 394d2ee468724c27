#include "platform/DiagnosticsLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/Platform.h"

namespace orvistelle::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// A writer stuck on a slow disk makes the others drop their lines rather than queue behind it.
constexpr auto kLongestWait = 50ms;

struct LogState {
  std::mutex lock;
  std::string path;
};

// std::timed_mutex would say this in one call, but ThreadSanitizer cannot follow its timed lock.
bool LockBriefly(std::mutex& lock) {
  for (auto deadline = std::chrono::steady_clock::now() + kLongestWait; !lock.try_lock();) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(100us);
  }
  return true;
}

// Never destroyed: a host's threads may still log while the process runs its exit handlers.
LogState& State() {
  static auto* state = new LogState();
  return *state;
}

std::string Line(double time, std::string_view message) {
  std::string line = IsoTimestamp(time) + " ";
  for (char c : message) line += (c == '\n' || c == '\r') ? ' ' : c;
  line += '\n';
  return line;
}

// One write per line, so that the lines of two processes appending at once stay whole.
void AppendAndRotate(const std::string& path, const std::string& line) {
  int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return;
  struct stat info {};
  bool full = ::write(fd, line.data(), line.size()) > 0 && ::fstat(fd, &info) == 0 &&
              static_cast<size_t>(info.st_size) >= kDiagnosticsLogLimit;
  ::close(fd);
  if (full) (void)::rename(path.c_str(), (path + ".1").c_str());
}

void AppendLines(const std::string& path, std::vector<std::string>& lines) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return;
  std::ifstream file(path, std::ios::binary);
  for (std::string line; std::getline(file, line);) lines.push_back(std::move(line));
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
  fs::path base = state != nullptr && state[0] == '/' ? fs::path(state)
                                                      : fs::path(Seam<Home>::Get().Directory()) / ".local/state";
  return (base / "orvistelle").string();
}

void SetDiagnosticsFolder(const std::string& folder) {
  std::error_code ignored;
  if (!folder.empty() && fs::create_directories(folder, ignored)) {
    fs::permissions(folder, fs::perms::owner_all, ignored);
  }
  LogState& state = State();
  std::lock_guard guard(state.lock);
  state.path = folder.empty() ? std::string() : (fs::path(folder) / kDiagnosticsLogName).string();
}

void StartDiagnosticsLog() {
  if (!DiagnosticsLogPath().empty()) return;
  SetDiagnosticsFolder(DiagnosticsFolder([](const char* name) { return std::getenv(name); }));
}

std::string DiagnosticsLogPath() {
  LogState& state = State();
  std::lock_guard guard(state.lock);
  return state.path;
}

void Diagnose(std::string_view message) {
  LogState& state = State();
  if (!LockBriefly(state.lock)) return;
  std::lock_guard guard(state.lock, std::adopt_lock);
  if (state.path.empty()) return;
  try {
    AppendAndRotate(state.path, Line(Seam<Clock>::Get().Now(), message));
  } catch (...) {
    // Out of memory for one line: the line is lost, the caller goes on.
  }
}

std::vector<std::string> ReadDiagnosticsTail(const std::string& path, size_t count) {
  std::vector<std::string> lines;
  AppendLines(path + ".1", lines);
  AppendLines(path, lines);
  if (lines.size() > count) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(count));
  return lines;
}

}  // namespace orvistelle::platform
