#include <gtest/gtest.h>

#include <string>

#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)  // gcc's
#define ORVISTELLE_SANITIZER_ALLOCATOR 1
#elif defined(__has_feature)  // clang's
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ORVISTELLE_SANITIZER_ALLOCATOR 1
#endif
#endif
#ifdef ORVISTELLE_SANITIZER_ALLOCATOR
// From the sanitizer runtime, whose headers Debian ships only with clang.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
long long AllocatedBytes() { return static_cast<long long>(__sanitizer_get_current_allocated_bytes()); }
#else
long long AllocatedBytes() { return static_cast<long long>(mallinfo2().uordblks); }
#endif

#include "auth/AuthTesting.h"
#include "auth/Status.h"
#include "orvistelle/FcpI18n.h"
#include "orvistelle/FcpService.h"
#include "orvistelle/FcpUpdate.h"
#include "update/UpdateTesting.h"
#include "update/tests/TestSupport.h"

extern "C" const char* CallEveryServiceFunctionFromC(void);

namespace orvistelle {
namespace {

using namespace std::chrono_literals;

// Both modules against loopback, with sign-in polls a millisecond apart; every module is reset afterwards.
class Service : public ::testing::Test {
 protected:
  void SetUp() override {
    update::ResetForTesting();
    update::SetDownloadBaseURLForTesting(server.BaseURL());
    auth::AuthSettings settings = auth::ProductionSettings();
    settings.authBaseURL = settings.apiBaseURL = server.BaseURL();
    settings.pollInterval = 1ms;
    auth::SetAuthSettingsForTesting(settings);
    fakes.bundle.SetInfo("CFBundleShortVersionString", "1.0.0");
  }
  void TearDown() override {
    server.Release();
    auth::ResetAuthForTesting();
    update::ResetForTesting();
  }

  void LoadManifest(const std::string& version, const std::string& forceBelow) {
    server.Answer(200, R"({"hosts":{"fcp":{"version":")" + version + R"(","force_below":")" + forceBelow + "\"}}}");
    FcpUpdateMaintain();  // not the account maintenance, whose background pass would log and set the status
    ASSERT_TRUE(update::WaitForCheckForTesting(20s));
  }

  testing::FakeSystem fakes;
  testing::ManifestServer server;
};

TEST_F(Service, EveryFunctionIsCallableFromC) {
  EXPECT_STREQ(CallEveryServiceFunctionFromC(), "");
  // The sign-in page, the five other pages and the download.
  EXPECT_EQ(fakes.browser.Snapshot().size(), 7u);
}

TEST_F(Service, ReturnedStringsStayValidAndUnchangedAfterTheValueChanges) {
  const char* before = FcpServiceStatus();
  const std::string copy = before;
  FcpServiceLogout();
  EXPECT_EQ(FcpServiceStatus(), FcpT("auth.signedOut"));
  EXPECT_EQ(before, copy);
  auth::SetStatusText(copy, false);  // a value seen before comes back as the same string
  EXPECT_EQ(FcpServiceStatus(), before);
  LoadManifest("1.2.0", "");
  const char* latest = FcpServiceUpdateLatestVersion();
  EXPECT_STREQ(latest, "1.2.0");
  EXPECT_EQ(FcpServiceUpdateLatestVersion(), latest);
}

// A status that changes at every pass, as a server sending a new e-mail each time would make it, must not grow what
// the library keeps for its hosts.
TEST_F(Service, ReturnedStringsDoNotAccumulate) {
  const long long before = AllocatedBytes();
  for (int pass = 0; pass < 20000; ++pass) {
    auth::SetStatusText(std::to_string(pass) + std::string(200, '@'), false);
    FcpServiceStatus();
  }
  EXPECT_LT(AllocatedBytes() - before, 1 << 20);
}

TEST_F(Service, LoginDoesNothingWhileAnUpdateIsRequiredButLogoutStillWorks) {
  LoadManifest("1.2.0", "1.1.0");
  ASSERT_TRUE(FcpServiceUpdateForced());
  fakes.log.Take();
  const std::string status = FcpServiceStatus();
  FcpServiceLogin();
  EXPECT_TRUE(fakes.browser.Snapshot().empty());
  EXPECT_EQ(FcpServiceStatus(), status);
  EXPECT_FALSE(FcpServiceBusy());
  EXPECT_TRUE(fakes.log.Take().empty());
  FcpServiceLogout();
  EXPECT_EQ(FcpServiceStatus(), FcpT("auth.signedOut"));

  fakes.bundle.SetInfo("CFBundleShortVersionString", "1.1.0");
  FcpServiceLogin();
  EXPECT_EQ(fakes.browser.Snapshot().size(), 1u);
}

TEST_F(Service, RepeatedMaintainStartsOneUpdateCheck) {
  server.Hold();
  FcpServiceMaintain();
  FcpServiceMaintain();
  server.Release();
  ASSERT_TRUE(update::WaitForCheckForTesting(20s));
  EXPECT_EQ(server.Requests(), 1);
}

}  // namespace
}  // namespace orvistelle
