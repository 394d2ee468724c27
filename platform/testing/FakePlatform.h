// Fakes for the seams in platform/Platform.h, and the temporary folder and bounded wait their tests need, shared by
// the tests of every module. Each fake may be called from any thread, like the service it stands in for.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/Platform.h"

namespace orvistelle::platform::testing {

using namespace std::chrono_literals;

inline bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 5s,
                      std::chrono::milliseconds interval = 1ms) {
  for (auto deadline = std::chrono::steady_clock::now() + limit; !condition(); std::this_thread::sleep_for(interval)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
  }
  return true;
}

// A fresh folder under TMPDIR (when that is an absolute path, else /tmp), removed with its contents afterwards.
class TempDir {
 public:
  TempDir() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        (std::filesystem::path(tmp != nullptr && *tmp == '/' ? tmp : "/tmp") / "orvistelle-test-XXXXXX").string();
    path_ = mkdtemp(pattern.data()) != nullptr ? std::filesystem::path(pattern) : std::filesystem::path();
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Starts at 2023-11-14 22:13:20 UTC unless told otherwise, and moves only when a test moves it.
class FakeClock final : public Clock {
 public:
  explicit FakeClock(double now = 1'700'000'000) : now_(now) {}
  double Now() override { return now_.load(); }
  void Set(double now) { now_.store(now); }
  void Advance(double seconds) { now_.fetch_add(seconds); }

 private:
  std::atomic<double> now_;
};

// A value that any thread may read or replace.
template <class T>
class Guarded {
 public:
  explicit Guarded(T value = {}) : value_(std::move(value)) {}
  T Get() const {
    std::lock_guard guard(lock_);
    return value_;
  }
  void Set(T value) {
    std::lock_guard guard(lock_);
    value_ = std::move(value);
  }

 private:
  mutable std::mutex lock_;
  T value_;
};

// One folder for both answers, unless the user database is told to record another (or none: "").
class FakeHome final : public Home {
 public:
  explicit FakeHome(std::string directory = "") : directory_(std::move(directory)) {}
  std::string FromUserDatabase() override { return userDatabase_.Get().value_or(directory_.Get()); }
  std::string Directory() override { return directory_.Get(); }
  void SetDirectory(std::string directory) { directory_.Set(std::move(directory)); }
  void SetUserDatabase(std::string directory) { userDatabase_.Set(std::move(directory)); }

 private:
  Guarded<std::string> directory_;
  Guarded<std::optional<std::string>> userDatabase_;
};

class FakeLanguages final : public Languages {
 public:
  explicit FakeLanguages(std::vector<std::string> tags = {}) : tags_(std::move(tags)) {}
  std::vector<std::string> Preferred() override { return tags_.Get(); }
  void SetPreferred(std::vector<std::string> tags) { tags_.Set(std::move(tags)); }

 private:
  Guarded<std::vector<std::string>> tags_;
};

// A bundle nowhere, with no Info, until a test places it and fills it in.
class FakeBundle final : public Bundle {
 public:
  BundleLocation Main() override {
    std::lock_guard guard(lock_);
    return location_;
  }
  std::optional<std::string> InfoString(std::string_view key) override {
    std::lock_guard guard(lock_);
    auto found = info_.find(std::string(key));
    return found == info_.end() ? std::nullopt : std::optional(found->second);
  }
  void SetLocation(BundleLocation location) {
    ChangeLocation([&location](BundleLocation& current) { current = std::move(location); });
  }
  void ChangeLocation(const std::function<void(BundleLocation&)>& change) {
    std::lock_guard guard(lock_);
    change(location_);
  }
  // No value removes the key.
  void SetInfo(const std::string& key, std::optional<std::string> value) {
    std::lock_guard guard(lock_);
    if (value) {
      info_[key] = std::move(*value);
    } else {
      info_.erase(key);
    }
  }
  void ReplaceInfo(std::map<std::string, std::string> info) {
    std::lock_guard guard(lock_);
    info_ = std::move(info);
  }

 private:
  std::mutex lock_;
  BundleLocation location_;
  std::map<std::string, std::string> info_;
};

// What a fake was handed, in order.
class Recording {
 public:
  std::vector<std::string> Snapshot() {
    std::lock_guard guard(lock_);
    return items_;
  }
  // Everything so far, forgotten here.
  std::vector<std::string> Take() {
    std::lock_guard guard(lock_);
    return std::exchange(items_, {});
  }
  bool Contains(const std::string& item) {
    std::lock_guard guard(lock_);
    return std::find(items_.begin(), items_.end(), item) != items_.end();
  }
  // The first item, once there is one; nothing when none comes within `limit`.
  std::optional<std::string> WaitForFirst(std::chrono::milliseconds limit) {
    std::unique_lock guard(lock_);
    if (!added_.wait_for(guard, limit, [this] { return !items_.empty(); })) return std::nullopt;
    return items_.front();
  }

 protected:
  void Add(std::string item) {
    std::lock_guard guard(lock_);
    items_.push_back(std::move(item));
    added_.notify_all();
  }

 private:
  std::mutex lock_;
  std::condition_variable added_;
  std::vector<std::string> items_;
};

class RecordingLog final : public SystemLog, public Recording {
 public:
  void Write(std::string_view line) override { Add(std::string(line)); }
};

class RecordingBrowser final : public Browser, public Recording {
 public:
  void Open(const std::string& url) override { Add(url); }
};

namespace detail {
// The seam a fake stands in for: the one interface among its base classes.
Clock* SeamOf(Clock*);
Home* SeamOf(Home*);
Languages* SeamOf(Languages*);
Browser* SeamOf(Browser*);
SystemLog* SeamOf(SystemLog*);
Bundle* SeamOf(Bundle*);
AppDatabase* SeamOf(AppDatabase*);
}  // namespace detail

// Installs each fake in place of the service it implements, for the lifetime of the guard:
//   ScopedFakes seams{&clock, &home, &log};
class ScopedFakes {
 public:
  template <class... Fakes>
  explicit ScopedFakes(Fakes*... fakes) {
    (Install(fakes), ...);
  }
  ScopedFakes(const ScopedFakes&) = delete;
  ScopedFakes& operator=(const ScopedFakes&) = delete;

 private:
  template <class Fake>
  void Install(Fake* fake) {
    using Seam = std::remove_pointer_t<decltype(detail::SeamOf(fake))>;
    guards_.push_back(std::make_shared<ScopedSeam<Seam>>(fake));
  }

  std::vector<std::shared_ptr<void>> guards_;
};

}  // namespace orvistelle::platform::testing
