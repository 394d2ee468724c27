#include "auth/Heartbeat.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "auth/Background.h"
#include "auth/Files.h"
#include "auth/Http.h"
#include "auth/Settings.h"
#include "auth/Uuid.h"
#include "platform/Json.h"
#include "platform/Platform.h"

namespace orvistelle::auth {
using platform::Json, platform::Dump;
namespace {

std::atomic<bool> gReporting{false};

std::string InstallId() {
  std::string id = Trimmed(ReadStateFile(InstallIdPath()).value_or(""));
  if (!id.empty()) return id;
  id = NewLowercaseUUID();
  WriteStateFile(InstallIdPath(), id);  // should this fail, the next attempt makes another id
  return id;
}

// Deliberately not the update check's rule: the build number stands in for a missing marketing version.
std::string HeartbeatVersion() {
  platform::Bundle& bundle = platform::Seam<platform::Bundle>::Get();
  std::optional<std::string> shortVersion = bundle.InfoString("CFBundleShortVersionString");
  if (shortVersion && !shortVersion->empty()) return *shortVersion;
  return bundle.InfoString("CFBundleVersion").value_or("0");
}

std::string HeartbeatBody(const std::string& installId) {
  return Dump({{"product", "vask"},
               {"installId", installId},
               {"version", HeartbeatVersion()},
               {"platform", std::string(platform::kPlatformName)},
               {"host", "fcp"}});
}

void SendHeartbeat(const std::string& body, const std::string& day) {
  int64_t status = Http("POST", CurrentSettings().apiBaseURL + "/console/v1/plugin/heartbeat", "", body, "").status;
  if (status == 200) {
    EnsureDir();
    WriteStateFile(HeartbeatDayPath(), day);  // should this fail, the next pass reports again
  } else {
    platform::Log("heartbeat failed (" + std::to_string(status) + ")");
  }
  gReporting.store(false);
}

}  // namespace

std::string InstallIdPath() { return SupportFile("fcp-install-id.txt"); }

std::string HeartbeatDayPath() { return SupportFile("fcp-heartbeat-day.txt"); }

std::string UtcDay(double seconds) {
  using namespace std::chrono;
  auto moment = sys_seconds(std::chrono::seconds(static_cast<int64_t>(std::floor(seconds))));
  year_month_day day(floor<days>(moment));
  char text[sizeof "-2147483648-12-31"];
  const int length = std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(day.year()),
                                   static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
  return std::string(text, static_cast<size_t>(std::max(length, 0)));
}

void ReportHeartbeatIfNeeded() {
  std::string today = UtcDay(platform::Seam<platform::Clock>::Get().Now());
  if (Trimmed(ReadStateFile(HeartbeatDayPath()).value_or("")) == today) return;
  bool idle = false;
  if (!gReporting.compare_exchange_strong(idle, true)) return;
  EnsureDir();
  std::string body = HeartbeatBody(InstallId());
  RunInBackground([body, today] { SendHeartbeat(body, today); });
}

void ResetHeartbeatMemory() { gReporting.store(false); }

}  // namespace orvistelle::auth
