// The C boundary over modules that throw: each function answers its "nothing" and logs each failure once.
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpService.h"
#include "orvistelle/FcpUpdate.h"
#include "platform/testing/FakePlatform.h"

// The account module fails as out of memory, the update module with something that is no std::exception.
[[noreturn]] static void AuthFails() { throw std::bad_alloc(); }
[[noreturn]] static void UpdateFails() { throw "update failed"; }

void FcpAuthMaintain() { AuthFails(); }
bool FcpAuthHasSession() { AuthFails(); }
void FcpAuthLogin() { AuthFails(); }
void FcpAuthLogout() { AuthFails(); }
void FcpAuthOpenSignup() { AuthFails(); }
void FcpAuthOpenTerms() { AuthFails(); }
void FcpAuthOpenPrivacy() { AuthFails(); }
void FcpAuthOpenSite() { AuthFails(); }
void FcpAuthOpenDocs() { AuthFails(); }
bool FcpAuthBusy() { AuthFails(); }
std::string FcpAuthStatus() { AuthFails(); }
bool FcpAuthStatusIsError() { AuthFails(); }
std::string FcpAuthEmail() { AuthFails(); }
void FcpUpdateMaintain() { UpdateFails(); }
bool FcpUpdateForced() { UpdateFails(); }
bool FcpUpdateSoftAvailable() { UpdateFails(); }
std::string FcpUpdateLatestVersion() { UpdateFails(); }
std::string FcpUpdateNotes() { UpdateFails(); }
void FcpUpdateDismissSoft() { UpdateFails(); }
void FcpUpdateOpenDownload() { UpdateFails(); }

namespace orvistelle {
namespace {

// What `Function` answered: "none", true/false, or the string in quotes.
template <auto Function>
std::string Answer() {
  static_assert(noexcept(Function()), "a C host cannot catch what a service function throws");
  if constexpr (std::is_void_v<decltype(Function())>) {
    Function();
    return "none";
  } else {
    return ::testing::PrintToString(Function());
  }
}

TEST(ServiceBoundary, ModuleExceptionsBecomeNothingAndALogLine) {
  struct Row {
    const char* name;
    std::string (*answer)();
    std::string nothing;
    size_t logLines = 1;  // one per failed module call
  };
  const Row rows[] = {
      {.name = "FcpServiceMaintain", .answer = Answer<FcpServiceMaintain>, .nothing = "none", .logLines = 2},
      {.name = "FcpServiceHasSession", .answer = Answer<FcpServiceHasSession>, .nothing = "false"},
      // A failed check for a required update signs nobody in.
      {.name = "FcpServiceLogin", .answer = Answer<FcpServiceLogin>, .nothing = "none"},
      {.name = "FcpServiceLogout", .answer = Answer<FcpServiceLogout>, .nothing = "none"},
      {.name = "FcpServiceBusy", .answer = Answer<FcpServiceBusy>, .nothing = "false"},
      {.name = "FcpServiceStatus", .answer = Answer<FcpServiceStatus>, .nothing = R"("")"},
      {.name = "FcpServiceStatusIsError", .answer = Answer<FcpServiceStatusIsError>, .nothing = "false"},
      {.name = "FcpServiceEmail", .answer = Answer<FcpServiceEmail>, .nothing = R"("")"},
      {.name = "FcpServiceOpenSignUp", .answer = Answer<FcpServiceOpenSignUp>, .nothing = "none"},
      {.name = "FcpServiceOpenDocs", .answer = Answer<FcpServiceOpenDocs>, .nothing = "none"},
      {.name = "FcpServiceOpenTerms", .answer = Answer<FcpServiceOpenTerms>, .nothing = "none"},
      {.name = "FcpServiceOpenPrivacy", .answer = Answer<FcpServiceOpenPrivacy>, .nothing = "none"},
      {.name = "FcpServiceOpenSite", .answer = Answer<FcpServiceOpenSite>, .nothing = "none"},
      {.name = "FcpServiceUpdateForced", .answer = Answer<FcpServiceUpdateForced>, .nothing = "false"},
      {.name = "FcpServiceUpdateSoftAvailable", .answer = Answer<FcpServiceUpdateSoftAvailable>, .nothing = "false"},
      {.name = "FcpServiceUpdateLatestVersion", .answer = Answer<FcpServiceUpdateLatestVersion>, .nothing = R"("")"},
      {.name = "FcpServiceUpdateNotes", .answer = Answer<FcpServiceUpdateNotes>, .nothing = R"("")"},
      {.name = "FcpServiceUpdateDismissSoft", .answer = Answer<FcpServiceUpdateDismissSoft>, .nothing = "none"},
      {.name = "FcpServiceUpdateOpenDownload", .answer = Answer<FcpServiceUpdateOpenDownload>, .nothing = "none"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    platform::testing::RecordingLog log;
    platform::testing::ScopedFakes fakes{&log};
    EXPECT_EQ(row.answer(), row.nothing);
    const std::vector<std::string> lines = log.Take();
    EXPECT_EQ(lines.size(), row.logLines);
    for (const std::string& line : lines) EXPECT_NE(line.find(row.name), std::string::npos) << line;
  }
}

}  // namespace
}  // namespace orvistelle
