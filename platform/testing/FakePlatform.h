// Fakes for the seams in platform/Platform.h, and the temporary folder and bounded wait their tests need, shared by
// the tests of every module. Each fake may be called from any thread, like the service it stands in for.
#pragma once

#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

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
    std::string pattern = std::string(tmp != nullptr && *tmp == '/' ? tmp : "/tmp") + "/orvistelle-test-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
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

// A value that any thread may read or change.
template <class T>
class Guarded {
 public:
  explicit Guarded(T value = {}) : value_(std::move(value)) {}
  T Get() const {
    std::lock_guard guard(lock_);
    return value_;
  }
  void Set(T value) {
    Change([&value](T& current) { current = std::move(value); });
  }
  // Whatever `change` returns.
  template <class F>
  auto Change(const F& change) {
    std::lock_guard guard(lock_);
    return change(value_);
  }

 private:
  mutable std::mutex lock_;
  T value_;
};

// One folder for both answers, unless the user database is given its own.
class FakeHome final : public Home {
 public:
  explicit FakeHome(std::string directory = "", std::optional<std::string> database = std::nullopt)
      : directory_(std::move(directory)), database_(database.value_or(directory_)) {}
  std::string FromUserDatabase() override { return database_; }
  std::string Directory() override { return directory_; }

 private:
  const std::string directory_, database_;
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
  BundleLocation Main() override { return location_.Get(); }
  std::optional<std::string> InfoString(std::string_view key) override {
    const std::map<std::string, std::string> info = info_.Get();
    return info.contains(std::string(key)) ? std::optional(info.at(std::string(key))) : std::nullopt;
  }
  void SetLocation(BundleLocation location) { location_.Set(std::move(location)); }
  // No value removes the key.
  void SetInfo(const std::string& key, std::optional<std::string> value) {
    info_.Change([&](std::map<std::string, std::string>& info) {
      info.erase(key);
      if (value) info.emplace(key, std::move(*value));
    });
  }
  void ReplaceInfo(std::map<std::string, std::string> info) { info_.Set(std::move(info)); }

 private:
  Guarded<BundleLocation> location_;
  Guarded<std::map<std::string, std::string>> info_;
};

// What a fake was handed, in order.
class Recording {
 public:
  std::vector<std::string> Snapshot() { return items_.Get(); }
  // Everything so far, forgotten here.
  std::vector<std::string> Take() {
    return items_.Change([](std::vector<std::string>& items) { return std::exchange(items, {}); });
  }
  // The first item, once there is one; nothing when none comes within `limit`.
  std::optional<std::string> WaitForFirst(std::chrono::milliseconds limit) {
    if (!WaitUntil([this] { return !items_.Get().empty(); }, limit)) return std::nullopt;
    return items_.Get().front();
  }

 protected:
  void Add(std::string item) {
    items_.Change([&item](std::vector<std::string>& items) { items.push_back(std::move(item)); });
  }

 private:
  Guarded<std::vector<std::string>> items_;
};

class RecordingLog final : public SystemLog, public Recording {
 public:
  void Write(std::string_view line) override { Add(std::string(line)); }
};

class RecordingBrowser final : public Browser, public Recording {
 public:
  void Open(const std::string& url) override { Add(url); }
};

// Installs each fake in place of the service it implements, for the lifetime of the guard:
//   ScopedFakes seams{&clock, &home, &log};
class ScopedFakes {
 public:
  template <class... Fakes>
  explicit ScopedFakes(Fakes*... fakes) : guards_{Install(fakes)...} {}

 private:
  // A seam's interface alone declares Default(), so its result names the seam that a fake stands in for.
  template <class Fake>
  static std::shared_ptr<void> Install(Fake* fake) {
    return std::make_shared<ScopedSeam<std::remove_reference_t<decltype(Fake::Default())>>>(fake);
  }

  std::vector<std::shared_ptr<void>> guards_;
};

}  // namespace orvistelle::platform::testing
