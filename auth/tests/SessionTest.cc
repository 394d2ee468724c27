#include <sys/stat.h>

#include "auth/Session.h"
#include "auth/Status.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/FcpI18n.h"

namespace orvistelle::auth::testing {
namespace {

TEST(Claims, ReadsEmailAndExpiryWithoutTrustingTheToken) {
  struct Case {
    std::string token, email;
    double expiry;
  };
  for (const Case& c : std::vector<Case>{
           {Jwt({{"email", "a@b.c"}, {"exp", 1700000123}}), "a@b.c", 1700000123},
           {Jwt({{"email", ""}, {"user_metadata", {{"email", "m@b.c"}}}, {"exp", " 17.5"}}), "m@b.c", 17.5},
           {Jwt({{"email", 7}, {"user_metadata", "m@b.c"}, {"exp", "soon"}}), "", 0},
           {Jwt({{"exp", true}, {"user_metadata", {{"email", 1}}}}), "", 0},
           {"x.eyJleHAiOjF9", "", 1},                  // {"exp":1}, no padding needed
           {"x.eyJleHAiOjEwfQ", "", 10},               // {"exp":10}, two "=" added
           {"x.eyJlbWFpbCI6Ij8_PiJ9.s", "?\x3f>", 0},  // "_" stands for "/"
           {"x.eyJlbWFpbCI6Ij8-PiJ9.s", "?>>", 0},     // "-" stands for "+"
           {"x.eyJleHAiOjF9=", "", 0},
           {"x.eyJle$AiOjF9", "", 0},
           {"x.e", "", 0},
           {"x.WzFd", "", 0} /* [1] */,
           {"x.bm90IGpzb24", "", 0} /* not json */,
           {"eyJleHAiOjF9", "", 0},
           {"x..y", "", 0}}) {
    AccessClaims claims = ParseAccessClaims(c.token);
    EXPECT_EQ(claims.email, c.email) << c.token;
    EXPECT_EQ(claims.expiry, c.expiry) << c.token;
  }
}

// Only a session with both tokens loads; the e-mail and expiry come from the file when usable, else from the token.
TEST_F(AuthTest, LoadsOnlyCompleteSessions) {
  const std::string token = Jwt({{"email", "claim@x.y"}, {"exp", 1700000500}});
  const struct {
    Json contents;  // a string is written as it is
    bool loads;
    std::string email;
    double expiry;
  } rows[] = {
      {{{"access_token", "a"}, {"refresh_token", "r"}, {"email", "e@x.y"}, {"expires_at", 5}}, true, "e@x.y", 5},
      {{{"access_token", token}, {"refresh_token", "r"}}, true, "claim@x.y", 1700000500},
      {{{"access_token", Jwt({{"user_metadata", {{"email", "m@x.y"}}}, {"exp", "6"}})}, {"refresh_token", "r"},
        {"email", 3}}, true, "m@x.y", 6},
      {{{"access_token", token}, {"refresh_token", "r"}, {"expires_at", "9"}}, true, "claim@x.y", 1700000500},
      {{{"access_token", token}, {"refresh_token", "r"}, {"expires_at", 9}}, true, "", 9},
      {{{"access_token", "a"}, {"refresh_token", "r"}, {"email", "e\n@x.y"}, {"expires_at", 5}}, true, "", 5},
      {{{"access_token", "a"}, {"refresh_token", "r"}, {"email", std::string(321, 'e')}, {"expires_at", 5}}, true, "", 5},
      {{{"access_token", "a"}, {"refresh_token", ""}}, false, "", 0},
      {{{"access_token", "a"}, {"refresh_token", 1}}, false, "", 0},
      {Json::array(), false, "", 0},
      {"{\"access_token\":\"a\"", false, "", 0},
      {"", false, "", 0},
  };
  for (const auto& row : rows) {
    ClearSessionState();
    Write("fcp-session.json", row.contents.is_string() ? row.contents.get<std::string>() : Dump(row.contents));
    EXPECT_EQ(FcpAuthHasSession(), row.loads) << Dump(row.contents);
    EXPECT_EQ(FcpAuthEmail(), row.email) << Dump(row.contents);
    EXPECT_EQ(CurrentSession().expiresAt, row.expiry) << Dump(row.contents);
  }
}

TEST_F(AuthTest, SavesCompactlyWithWholeSecondsForTheOwnerOnly) {
  std::string access = Jwt({{"exp", 1700000100.9}, {"email", "e@x.y"}});
  ApplyAccessToken({access, "r1", std::nullopt, ""}, CurrentLoginGeneration(), FileRule::kReplace);
  EXPECT_EQ(Read("fcp-session.json"),
            Dump({{"access_token", access}, {"email", "e@x.y"}, {"expires_at", 1700000100}, {"refresh_token", "r1"}}));
  struct stat info {};
  ASSERT_EQ(stat(SessionPath().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

// What a server or a file says is shown and kept only if it is short and free of control characters.
TEST_F(AuthTest, HostileTextsAreNeitherShownNorKept) {
  const struct {
    std::string text;
    bool showable;
  } rows[] = {{"line\nbreak@x.y", false},  {"\x1b[2J@x.y", false},           {"next\xc2\x85line@x.y", false},
              {"del\x7f@x.y", false},      {std::string(321, 'a'), false}, {std::string(320, 'a'), true},
              {"\xc3\xbc" "ber@x.y", true}};
  for (const auto& row : rows) {
    SaveEmail("kept@x.y", CurrentLoginGeneration());
    SetStatusText("shown", false);
    SaveEmail(row.text, CurrentLoginGeneration());
    SetStatusText(row.text, false);
    SetStatusTextUnlessError(row.text);
    EXPECT_EQ(FcpAuthEmail(), row.showable ? row.text : "kept@x.y") << row.text;
    EXPECT_EQ(Status(), row.showable ? row.text : "shown") << row.text;
    EXPECT_EQ(ParseAccessClaims(Jwt({{"email", row.text}})).email, row.showable ? row.text : "") << row.text;
  }
  SetStatusKey("", true);
  EXPECT_EQ(Status(), "Not signed in (error)");
}

TEST_F(AuthTest, StatusKeysFollowTheLanguageButTextsDoNot) {
  EXPECT_EQ(Status(), "Not signed in");
  SetStatusKey("auth.sessionExpired", true);
  SetStatusTextUnlessError("e@x.y");
  languages.SetPreferred({"de-DE"});
  FcpI18nApplyHostLocale();
  EXPECT_EQ(Status(), "Sitzung abgelaufen. Bitte erneut anmelden (error)");
  SetStatusText("", false);
  EXPECT_EQ(Status(), "");
  languages.SetPreferred({"en"});
  FcpI18nApplyHostLocale();
}

}  // namespace
}  // namespace orvistelle::auth::testing
