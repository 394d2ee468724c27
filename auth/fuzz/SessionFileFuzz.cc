// The bytes as the session file the loader meets, and through the JSON readers every state file and answer goes
// through. A session that loads must come back unchanged after a save.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "auth/Files.h"
#include "auth/Json.h"
#include "auth/Session.h"
#include "platform/Platform.h"
#include "platform/testing/FakePlatform.h"

namespace {

using namespace orvistelle;
using namespace orvistelle::auth;

void Require(bool holds) {
  if (!holds) std::abort();
}

// A home folder of the run's own, made once and removed at exit: the real one is never read or written.
platform::testing::TempDir* gTemp = nullptr;

void CheckJsonReaders(const std::string& bytes) {
  std::optional<Json> value = ParseJson(bytes);
  std::optional<Json> object = JsonObject(bytes);
  Require(object.has_value() == (value && value->is_object()));
  if (!value) return;
  Require(ParseJson(Dump(*value)) == value);
  if (!object) return;
  for (const auto& [key, member] : object->items()) {
    Require(StringMember(*object, key).has_value() == member.is_string());
    Require(NonEmptyStringMember(*object, key).has_value() ==
            (member.is_string() && !member.get_ref<const std::string&>().empty()));
    Require(NumberMember(*object, key).has_value() == member.is_number());
    Require((ObjectMember(*object, key) != nullptr) == member.is_object());
  }
}

void CheckSessionFile(const std::string& bytes) {
  std::ofstream(SessionPath(), std::ios::binary | std::ios::trunc) << bytes;
  ResetSessionMemory();
  LoadSession();
  Session loaded = CurrentSession();
  if (!HoldsSession(loaded)) {
    Require(loaded.access.empty() && loaded.refresh.empty() && loaded.email.empty() && loaded.expiresAt == 0);
    return;
  }
  SaveSession();
  ResetSessionMemory();
  LoadSession();
  Session reloaded = CurrentSession();
  Require(reloaded.access == loaded.access && reloaded.refresh == loaded.refresh && reloaded.email == loaded.email);
  // Saved in whole seconds, and held inside the 64-bit range.
  Require(std::fabs(loaded.expiresAt) > 9e18 || std::fabs(reloaded.expiresAt - loaded.expiresAt) < 1);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  gTemp = new platform::testing::TempDir;
  platform::Seam<platform::Home>::Override(new platform::testing::FakeHome(gTemp->path().string()));
  EnsureDir();
  std::atexit([] { delete gTemp; });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  CheckJsonReaders(bytes);
  CheckSessionFile(bytes);
  return 0;
}
