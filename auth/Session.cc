#include "auth/Session.h"

#include <atomic>
#include <charconv>
#include <cmath>
#include <limits>
#include <mutex>

#include "auth/Files.h"
#include "auth/Json.h"
#include "auth/Status.h"
#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"
#include "platform/Platform.h"

namespace orvistelle::auth {
namespace {

struct SessionState {
  std::mutex mutex;
  Session session;
  std::atomic<uint32_t> loginGeneration{0};
  std::atomic<bool> busy{false};
};

// Never destroyed: background tasks may still use the session while the process exits.
SessionState& State() {
  static auto* state = new SessionState;
  return *state;
}

template <class Change>
void UpdateSession(Change change) {
  std::lock_guard lock(State().mutex);
  change(State().session);
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

}  // namespace

Session CurrentSession() {
  std::lock_guard lock(State().mutex);
  return State().session;
}

bool HoldsSession(const Session& session) { return !session.access.empty() && !session.refresh.empty(); }

void SetEmail(const std::string& email) {
  if (!IsShowableText(email)) return;
  UpdateSession([&email](Session& session) { session.email = email; });
}

std::string SessionPath() { return SupportFile("fcp-session.json"); }

void LoadSession() {
  std::optional<Json> file = JsonObject(ReadStateFile(SessionPath()));
  if (!file) return;
  Session loaded;
  loaded.access = NonEmptyStringMember(*file, "access_token").value_or("");
  loaded.refresh = NonEmptyStringMember(*file, "refresh_token").value_or("");
  if (!HoldsSession(loaded)) return;
  loaded.email = ShowableOrEmpty(StringMember(*file, "email").value_or(""));
  if (std::optional<double> expiresAt = NumberMember(*file, "expires_at")) {
    loaded.expiresAt = *expiresAt;
  } else {
    AccessClaims claims = ParseAccessClaims(loaded.access);
    loaded.expiresAt = claims.expiry;
    if (loaded.email.empty()) loaded.email = claims.email;
  }
  UpdateSession([&loaded](Session& session) { session = std::move(loaded); });
}

void SaveSession() {
  EnsureDir();
  Session session = CurrentSession();
  Json file = {{"access_token", session.access},
               {"refresh_token", session.refresh},
               {"email", session.email},
               {"expires_at", WholeSeconds(session.expiresAt)}};
  if (std::error_code error = WriteStateFile(SessionPath(), Dump(file))) {
    SetStatusText(FcpTf("auth.sessionSaveFailed", error.message()), true);
  }
}

AccessClaims ParseAccessClaims(std::string_view token) {
  std::optional<Json> claims = JsonObject(JwtPayload(token));
  if (!claims) return {};
  return {EmailClaim(*claims), ExpiryClaim(*claims)};
}

void ApplyAccessToken(const std::string& access, const std::string& refresh, std::optional<double> expiresIn) {
  AccessClaims claims = ParseAccessClaims(access);
  double now = platform::Seam<platform::Clock>::Get().Now();
  UpdateSession([&](Session& session) {
    session.access = access;
    if (!refresh.empty()) session.refresh = refresh;
    if (!claims.email.empty()) session.email = claims.email;
    if (claims.expiry > 0) {
      session.expiresAt = claims.expiry;
    } else if (expiresIn && *expiresIn > 0) {
      session.expiresAt = now + *expiresIn;
    }
  });
  SaveSession();
}

void ClearSessionState() {
  NextLoginGeneration();
  SetBusy(false);
  UpdateSession([](Session& session) { session = Session{}; });
  RemoveFile(SessionPath());
}

uint32_t NextLoginGeneration() { return State().loginGeneration.fetch_add(1) + 1; }

uint32_t CurrentLoginGeneration() { return State().loginGeneration.load(); }

void SetBusy(bool busy) { State().busy.store(busy); }

void ResetSessionMemory() {
  UpdateSession([](Session& session) { session = Session{}; });
  SetBusy(false);
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
