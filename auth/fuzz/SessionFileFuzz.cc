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

// A home folder of the run's own, made once and removed at exit: the real one is never read or written.
platform::testing::TempDir* gTemp = nullptr;

Session Loaded() {
  ResetSessionMemory();
  LoadSession();
  return CurrentSession();
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
