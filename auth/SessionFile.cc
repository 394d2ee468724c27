#include "auth/SessionFile.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>

#include "auth/AccessClaims.h"
#include "auth/Files.h"
#include "platform/HttpTransport.h"
#include "platform/Json.h"

namespace orvistelle::auth {
using platform::Json, platform::JsonObject, platform::StringMember, platform::NonEmptyStringMember,
    platform::NumberMember, platform::Dump;
namespace {

// The file keeps what one answer of the backend carried, tokens of any size included.
constexpr size_t kSessionFileLimit = platform::kMaxResponseBytes;

// Seconds toward zero, held inside the 64-bit range whatever a token claimed.
int64_t WholeSeconds(double seconds) {
  if (std::isnan(seconds)) return 0;
  constexpr double kLimit = 9.2e18;
  return static_cast<int64_t>(std::clamp(seconds, -kLimit, kLimit));
}

}  // namespace

std::string SessionPath() { return SupportFile("fcp-session.json"); }

std::optional<Session> ReadSessionFile(std::error_code* error) {
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

std::error_code WriteSessionFile(const Session& session) {
  EnsureDir();
  Json file = {{"access_token", session.access},
               {"refresh_token", session.refresh},
               {"email", session.email},
               {"expires_at", WholeSeconds(session.expiresAt)}};
  return WriteStateFile(SessionPath(), Dump(file));
}

}  // namespace orvistelle::auth
