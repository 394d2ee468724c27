// The first byte picks the answer's status (0: 200, 1: no answer and no body, n: 100 + n), the rest is the body.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "auth/SignIn.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  int64_t status = data[0] == 0 ? 200 : data[0] == 1 ? 0 : 100 + data[0];
  std::optional<std::string> body;
  if (data[0] != 1) body.emplace(reinterpret_cast<const char*>(data + 1), size - 1);
  auto tokens = orvistelle::auth::ReadRelayAnswer(status, body);
  // Only a 200 answer with both tokens may end the polling.
  if (tokens && (status != 200 || tokens->access.empty() || tokens->refresh.empty())) std::abort();
  return 0;
}
