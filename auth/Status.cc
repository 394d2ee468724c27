#include "auth/Status.h"

#include <mutex>
#include <optional>

#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"

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
  static auto* status = new GuardedStatus;
  return *status;
}

StatusLine CurrentLine() {
  std::lock_guard lock(Status().mutex);
  return Status().line;
}

}  // namespace

void SetStatusKey(const std::string& key, bool isError) {
  std::lock_guard lock(Status().mutex);
  Status().line = {key, std::nullopt, isError};
}

void SetStatusText(const std::string& text, bool isError) {
  std::lock_guard lock(Status().mutex);
  Status().line = {"", text, isError};
}

void SetStatusTextUnlessError(const std::string& text) {
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
