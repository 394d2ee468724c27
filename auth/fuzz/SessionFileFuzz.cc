// The bytes as the session file: a session that loads must come back unchanged after a save.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "auth/Files.h"
#include "auth/Session.h"
#include "auth/SessionFile.h"
#include "platform/testing/FakePlatform.h"

namespace {

using namespace orvistelle;
using namespace orvistelle::auth;

Session Loaded() { return ResetSessionMemory(), LoadSession(), CurrentSession(); }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static platform::testing::TempDir home;  // the run's own, removed at exit: the real one is never read or written
  platform::Seam<platform::Home>::Override(new platform::testing::FakeHome(home.path().string()));
  EnsureDir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::ofstream(SessionPath(), std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data), size);
  Session loaded = Loaded();
  if (!HoldsSession(loaded)) return 0;
  SaveSession();
  Session reloaded = Loaded();
  bool same = reloaded.access == loaded.access && reloaded.refresh == loaded.refresh && reloaded.email == loaded.email;
  if (!same || (std::fabs(loaded.expiresAt) < 9e18 && std::fabs(reloaded.expiresAt - loaded.expiresAt) >= 1)) {
    std::abort();
  }
  return 0;
}
