#include <sys/stat.h>

#include "auth/Session.h"
#include "auth/Status.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"

namespace orvistelle::auth::testing {
namespace {

struct ClaimsCase {
  std::string token;
  std::string email;
  double expiry;
};

class Claims : public ::testing::TestWithParam<ClaimsCase> {};

TEST_P(Claims, ReadsEmailAndExpiryWithoutTrustingTheToken) {
  AccessClaims claims = ParseAccessClaims(GetParam().token);
  EXPECT_EQ(claims.email, GetParam().email);
  EXPECT_EQ(claims.expiry, GetParam().expiry);
}

INSTANTIATE_TEST_SUITE_P(
    Tokens, Claims,
    ::testing::Values(
        ClaimsCase{Jwt({{"email", "a@b.c"}, {"exp", 1700000123}}), "a@b.c", 1700000123},
        ClaimsCase{Jwt({{"email", ""}, {"user_metadata", {{"email", "m@b.c"}}}, {"exp", "17.5"}}), "m@b.c", 17.5},
        ClaimsCase{Jwt({{"email", 7}, {"user_metadata", "m@b.c"}, {"exp", "soon"}}), "", 0},
        ClaimsCase{Jwt({{"exp", true}, {"user_metadata", {{"email", 1}}}}), "", 0},
        ClaimsCase{Jwt({{"exp", 1e300}}), "", 1e300},
        ClaimsCase{"x.eyJleHAiOjF9", "", 1},             // {"exp":1}: 12 characters, no padding needed
        ClaimsCase{"x.eyJleHAiOjEwfQ", "", 10},          // {"exp":10}: padded with two "="
        ClaimsCase{"x.eyJlbWFpbCI6Ij8_PiJ9.s", "?\x3f>", 0},  // {"email":"??>"}: "_" stands for "/"
        ClaimsCase{"x.eyJlbWFpbCI6Ij8-PiJ9.s", "?>>", 0},      // {"email":"?>>"}: "-" stands for "+"
        ClaimsCase{"x.eyJleHAiOjF9=", "", 0}, ClaimsCase{"x.eyJle$AiOjF9", "", 0}, ClaimsCase{"x.e", "", 0},
        ClaimsCase{"x.WzFd", "", 0},  // [1]
        ClaimsCase{"eyJleHAiOjF9", "", 0}, ClaimsCase{"x..y", "", 0}, ClaimsCase{"", "", 0}));

struct FileCase {
  std::string contents;
  bool loads;
  std::string email;
  double expiry;
};

class SessionFile : public AuthTest, public ::testing::WithParamInterface<FileCase> {};

TEST_P(SessionFile, LoadsOnlyCompleteSessions) {
  WriteSupportFile("fcp-session.json", GetParam().contents);
  EXPECT_EQ(FcpAuthHasSession(), GetParam().loads);
  EXPECT_EQ(FcpAuthEmail(), GetParam().email);
  EXPECT_EQ(CurrentSession().expiresAt, GetParam().expiry);
}

const std::string kToken = Jwt({{"email", "claim@x.y"}, {"exp", 1700000500}});
const std::string kMetaToken = Jwt({{"user_metadata", {{"email", "meta@x.y"}}}, {"exp", "1700000600"}});

INSTANTIATE_TEST_SUITE_P(
    Files, SessionFile,
    ::testing::Values(
        FileCase{Dump({{"access_token", "a"}, {"refresh_token", "r"}, {"email", "e@x.y"}, {"expires_at", 5}}),
                 true, "e@x.y", 5},
        FileCase{Dump({{"access_token", kToken}, {"refresh_token", "r"}}), true, "claim@x.y", 1700000500},
        FileCase{Dump({{"access_token", kMetaToken}, {"refresh_token", "r"}, {"email", 3}}), true, "meta@x.y",
                 1700000600},
        FileCase{Dump({{"access_token", kToken}, {"refresh_token", "r"}, {"email", ""}, {"expires_at", "9"}}),
                 true, "claim@x.y", 1700000500},
        FileCase{Dump({{"access_token", kToken}, {"refresh_token", "r"}, {"expires_at", 9}}), true, "", 9},
        FileCase{Dump({{"access_token", "a"}, {"refresh_token", ""}}), false, "", 0},
        FileCase{Dump({{"access_token", "a"}, {"refresh_token", 1}}), false, "", 0},
        FileCase{Dump({{"refresh_token", "r"}}), false, "", 0}, FileCase{"[]", false, "", 0},
        FileCase{"{\"access_token\":\"a\"", false, "", 0}, FileCase{"", false, "", 0}));

TEST_F(AuthTest, SavesCompactlyWithTruncatedExpiryForTheOwnerOnly) {
  ApplyAccessToken("a1", "r1", std::nullopt);
  ApplyAccessToken(Jwt({{"exp", 1700000100.9}, {"email", "e@x.y"}}), "", std::nullopt);
  std::string expected = Dump(
      {{"access_token", Jwt({{"exp", 1700000100.9}, {"email", "e@x.y"}})}, {"email", "e@x.y"},
       {"expires_at", 1700000100}, {"refresh_token", "r1"}});
  EXPECT_EQ(ReadSupportFile("fcp-session.json"), expected);
  struct stat info {};
  ASSERT_EQ(stat(SessionPath().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(AuthTest, AppliedTokensKeepWhatTheNewOnesLeaveOut) {
  ApplyAccessToken("a1", "r1", 100);
  EXPECT_EQ(CurrentSession().expiresAt, clock.now + 100);
  ApplyAccessToken(Jwt({{"email", "new@x.y"}}), "", -5);
  Session session = CurrentSession();
  EXPECT_EQ(session.refresh, "r1");
  EXPECT_EQ(session.email, "new@x.y");
  EXPECT_EQ(session.expiresAt, clock.now + 100);
  ApplyAccessToken(Jwt({{"exp", 42}}), "r2", 100);
  session = CurrentSession();
  EXPECT_EQ(session.refresh, "r2");
  EXPECT_EQ(session.email, "new@x.y");
  EXPECT_EQ(session.expiresAt, 42);
}

TEST_F(AuthTest, FailedSaveIsShownAndTheSessionStaysInMemory) {
  std::filesystem::create_directories(SupportPath("fcp-session.json"));  // a folder where the file should be
  ApplyAccessToken("a", "r", std::nullopt);
  EXPECT_EQ(FcpAuthStatus(), "Could not save sign-in state: Is a directory");
  EXPECT_TRUE(FcpAuthStatusIsError());
  EXPECT_TRUE(FcpAuthHasSession());
}

TEST_F(AuthTest, ClearingForgetsTheSessionAndItsFile) {
  ApplyAccessToken(kToken, "r", std::nullopt);
  SetBusy(true);
  uint32_t generation = CurrentLoginGeneration();
  ClearSessionState();
  EXPECT_FALSE(ReadSupportFile("fcp-session.json"));
  EXPECT_FALSE(FcpAuthHasSession());
  EXPECT_FALSE(FcpAuthBusy());
  EXPECT_EQ(FcpAuthEmail(), "");
  EXPECT_NE(CurrentLoginGeneration(), generation);
}

TEST_F(AuthTest, StatusKeysFollowTheLanguageButTextsDoNot) {
  EXPECT_EQ(FcpAuthStatus(), "Not signed in");
  EXPECT_FALSE(FcpAuthStatusIsError());
  SetStatusText("", false);
  EXPECT_EQ(FcpAuthStatus(), "");
  SetStatusKey("auth.sessionExpired", true);
  SetStatusTextUnlessError("e@x.y");
  EXPECT_EQ(FcpAuthStatus(), "Session expired. Please sign in again.");
  languages.language = "de-DE";
  FcpI18nApplyHostLocale();
  EXPECT_EQ(FcpAuthStatus(), "Sitzung abgelaufen. Bitte erneut anmelden");
  SetStatusText("literal", true);
  languages.language = "en";
  FcpI18nApplyHostLocale();
  EXPECT_EQ(FcpAuthStatus(), "literal");
  EXPECT_TRUE(FcpAuthStatusIsError());
}

}  // namespace
}  // namespace orvistelle::auth::testing
