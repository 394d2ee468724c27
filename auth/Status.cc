#include "auth/Status.h"

#include <mutex>
#include <optional>

#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"
#include "platform/NoDestructor.h"

namespace orvistelle::auth {
namespace {

struct StatusLine {
  std::string key = "auth.notSignedIn";
  std::optional<std::string> text;  // when set, shown instead of the key
  bool isError = false;
};

struct GuardedStatus {
  std::mutex mutex;
  StatusLine line;
};

// Never destroyed: background tasks may still report while the process exits.
GuardedStatus& Status() {
  static platform::NoDestructor<GuardedStatus> status;
  return *status;
}

StatusLine CurrentLine() {
  std::lock_guard lock(Status().mutex);
  return Status().line;
}

bool IsControlCharacter(std::string_view text, size_t at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte < 0x20 || byte == 0x7f) return true;
  // U+0080 to U+009F, the C1 controls, as UTF-8.
  return byte == 0xc2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) <= 0x9f;
}

}  // namespace

bool IsShowableText(std::string_view text) {
  constexpr size_t kLongest = 320;  // the longest e-mail address that mail standards allow, with room to spare
  if (text.size() > kLongest) return false;
  for (size_t at = 0; at < text.size(); ++at) {
    if (IsControlCharacter(text, at)) return false;
  }
  return true;
}

void SetStatusKey(const std::string& key, bool isError) {
  std::lock_guard lock(Status().mutex);
  Status().line = {key.empty() ? StatusLine{}.key : key, std::nullopt, isError};
}

void SetStatusText(const std::string& text, bool isError) {
  if (!IsShowableText(text)) return;
  std::lock_guard lock(Status().mutex);
  Status().line = {"", text, isError};
}

void SetStatusTextUnlessError(const std::string& text) {
  if (!IsShowableText(text)) return;
  std::lock_guard lock(Status().mutex);
  if (!Status().line.isError) Status().line = {"", text, false};
}

void ResetStatus() {
  std::lock_guard lock(Status().mutex);
  Status().line = StatusLine{};
}

}  // namespace orvistelle::auth

using namespace orvistelle::auth;

std::string FcpAuthStatus() {
  StatusLine line = CurrentLine();
  return line.text ? *line.text : FcpT(line.key.c_str());
}

bool FcpAuthStatusIsError() { return CurrentLine().isError; }
