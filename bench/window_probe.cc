// Starts a program under X and reports, as a separate X client, when its window first shows drawn pixels; then its
// peak resident memory and, optionally, the CPU time it spends idle. Nothing in the program being measured has to
// cooperate, so our app and the reference window are timed in exactly the same way.
//
// usage: orvistelle_window_probe --title TITLE [--settle-ms N] [--idle-ms N] [--timeout-ms N] -- PROGRAM [ARGS...]
// prints: first_paint_ms, peak_rss_kb and (with --idle-ms) idle_cpu_ms, one "name value" per line.
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/damage.h>
#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

struct Options {
  std::string title;
  int settleMs = 2000;
  int idleMs = 0;
  int timeoutMs = 30000;
  std::vector<char*> command;  // null-terminated
};

std::optional<Options> ParseOptions(int argc, char** argv) {
  Options options;
  int i = 1;
  for (; i + 1 < argc && std::strcmp(argv[i], "--") != 0; i += 2) {
    const std::string name = argv[i];
    if (name == "--title")
      options.title = argv[i + 1];
    else if (name == "--settle-ms")
      options.settleMs = std::atoi(argv[i + 1]);
    else if (name == "--idle-ms")
      options.idleMs = std::atoi(argv[i + 1]);
    else if (name == "--timeout-ms")
      options.timeoutMs = std::atoi(argv[i + 1]);
    else
      return std::nullopt;
  }
  if (i >= argc || std::strcmp(argv[i], "--") != 0 || options.title.empty()) return std::nullopt;
  options.command.assign(argv + i + 1, argv + argc);
  if (options.command.empty()) return std::nullopt;
  options.command.push_back(nullptr);
  return options;
}

double NowMs(clockid_t clock = CLOCK_MONOTONIC) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

template <class Reply>
using ReplyPtr = std::unique_ptr<Reply, decltype(&std::free)>;

class Display {
 public:
  bool Open() {
    connection_ = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection_) != 0) return Fail("cannot connect to the X display");
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    const xcb_query_extension_reply_t* damage = xcb_get_extension_data(connection_, &xcb_damage_id);
    if (damage == nullptr || damage->present == 0) return Fail("the X display has no DAMAGE extension");
    damageEvent_ = damage->first_event + XCB_DAMAGE_NOTIFY;
    free(xcb_damage_query_version_reply(connection_, xcb_damage_query_version(connection_, 1, 1), nullptr));
    netWmName_ = Atom("_NET_WM_NAME");
    utf8String_ = Atom("UTF8_STRING");
    // Every top-level window created from now on is announced to us.
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    ReplyPtr<xcb_generic_error_t> error(
        xcb_request_check(connection_,
                          xcb_change_window_attributes_checked(connection_, root_, XCB_CW_EVENT_MASK, &mask)),
        &std::free);
    return error == nullptr || Fail("cannot watch the X display's top-level windows");
  }
  ~Display() {
    if (connection_ != nullptr) xcb_disconnect(connection_);
  }

  // The monotonic time at which a top-level window titled `title` was first drawn into; nothing if `alive` turns
  // false or the deadline passes first.
  template <class Alive>
  std::optional<double> WaitForFirstPaint(const std::string& title, double deadlineMs, Alive alive) {
    pollfd descriptor{xcb_get_file_descriptor(connection_), POLLIN, 0};
    while (NowMs() < deadlineMs && alive()) {
      while (auto event = ReplyPtr<xcb_generic_event_t>(xcb_poll_for_event(connection_), &std::free)) {
        if (auto painted = Handle(*event, title)) return painted;
      }
      if (xcb_connection_has_error(connection_) != 0) return std::nullopt;
      poll(&descriptor, 1, 20);
    }
    return std::nullopt;
  }

 private:
  static bool Fail(const char* why) {
    std::fprintf(stderr, "window_probe: %s\n", why);
    return false;
  }

  xcb_atom_t Atom(const char* name) {
    ReplyPtr<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(connection_, xcb_intern_atom(connection_, 0, std::strlen(name), name), nullptr),
        &std::free);
    return reply != nullptr ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
  }

  std::optional<std::string> Property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) {
    ReplyPtr<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection_, xcb_get_property(connection_, 0, window, property, type, 0, 1024), nullptr),
        &std::free);
    if (reply == nullptr || reply->format != 8 || xcb_get_property_value_length(reply.get()) == 0) return {};
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       xcb_get_property_value_length(reply.get()));
  }

  bool HasTitle(xcb_window_t window, const std::string& title) {
    return Property(window, netWmName_, utf8String_) == title ||
           Property(window, XCB_ATOM_WM_NAME, XCB_ATOM_ANY) == title;
  }

  // Damage is watched on every new top-level window because the title may be set after the first drawing.
  void Watch(xcb_window_t window) {
    xcb_damage_create(connection_, xcb_generate_id(connection_), window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(connection_, window, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(connection_);
  }

  std::optional<double> Handle(const xcb_generic_event_t& event, const std::string& title) {
    const uint8_t type = event.response_type & 0x7f;
    if (type == XCB_CREATE_NOTIFY) {
      const auto& created = reinterpret_cast<const xcb_create_notify_event_t&>(event);
      if (created.parent == root_) Watch(created.window);
      return std::nullopt;
    }
    xcb_window_t window = XCB_NONE;
    if (type == damageEvent_) {
      window = reinterpret_cast<const xcb_damage_notify_event_t&>(event).drawable;
      firstDrawn_.try_emplace(window, NowMs());
    } else if (type == XCB_PROPERTY_NOTIFY) {
      window = reinterpret_cast<const xcb_property_notify_event_t&>(event).window;
    }
    // Errors (damage asked on an input-only window, a window already gone) need nothing.
    const auto drawn = firstDrawn_.find(window);
    if (drawn == firstDrawn_.end() || !HasTitle(window, title)) return std::nullopt;
    return drawn->second;
  }

  xcb_connection_t* connection_ = nullptr;
  xcb_window_t root_ = XCB_NONE;
  uint8_t damageEvent_ = 0;
  xcb_atom_t netWmName_ = XCB_ATOM_NONE;
  xcb_atom_t utf8String_ = XCB_ATOM_NONE;
  std::map<xcb_window_t, double> firstDrawn_;
};

// The child's output goes to our standard error, so that standard output carries only the figures.
std::optional<pid_t> Spawn(std::vector<char*>& command) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  pid_t pid = 0;
  const int failed = posix_spawnp(&pid, command[0], &actions, nullptr, command.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) return std::nullopt;
  return pid;
}

bool Alive(pid_t pid) { return waitpid(pid, nullptr, WNOHANG) == 0; }

long PeakResidentKb(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return -1;
}

// User plus system time of the whole process, threads that have already ended included.
std::optional<double> ProcessCpuMs(pid_t pid) {
  clockid_t clock{};
  if (clock_getcpuclockid(pid, &clock) != 0) return std::nullopt;
  return NowMs(clock);
}

int Measure(Options& options) {
  Display display;
  if (!display.Open()) return 1;
  const double startMs = NowMs();
  const std::optional<pid_t> pid = Spawn(options.command);
  if (!pid) {
    std::fprintf(stderr, "window_probe: cannot start %s\n", options.command[0]);
    return 1;
  }
  const auto painted =
      display.WaitForFirstPaint(options.title, startMs + options.timeoutMs, [&] { return Alive(*pid); });
  int result = 1;
  if (!painted) {
    std::fprintf(stderr, "window_probe: no window \"%s\" was drawn\n", options.title.c_str());
  } else {
    std::printf("first_paint_ms %.3f\n", *painted - startMs);
    std::this_thread::sleep_for(std::chrono::milliseconds(options.settleMs));
    std::printf("peak_rss_kb %ld\n", PeakResidentKb(*pid));
    const auto idleStart = ProcessCpuMs(*pid);
    std::this_thread::sleep_for(std::chrono::milliseconds(options.idleMs));
    const auto idleEnd = ProcessCpuMs(*pid);
    if (options.idleMs > 0 && idleStart && idleEnd) std::printf("idle_cpu_ms %.3f\n", *idleEnd - *idleStart);
    result = Alive(*pid) ? 0 : 1;
    if (result != 0) std::fprintf(stderr, "window_probe: %s ended by itself\n", options.command[0]);
  }
  kill(*pid, SIGTERM);
  waitpid(*pid, nullptr, 0);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  std::optional<Options> options = ParseOptions(argc, argv);
  if (!options) {
    std::fprintf(stderr,
                 "usage: %s --title TITLE [--settle-ms N] [--idle-ms N] [--timeout-ms N] -- PROGRAM [ARGS...]\n",
                 argv[0]);
    return 2;
  }
  return Measure(*options);
}
