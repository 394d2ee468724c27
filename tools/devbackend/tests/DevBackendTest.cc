#include <gtest/gtest.h>
#include <httplib.h>

#include <nlohmann/json.hpp>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "orvistelle/BuildConfig.h"
#include "platform/testing/FakePlatform.h"
#include "tools/devbackend/DevBackend.h"
#include "tools/devbackend/Jwt.h"

namespace orvistelle::devbackend {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr double kStart = 1'700'000'000;
constexpr int kLifetime = 120;
constexpr char kFlow[] = "0b7c2a34-6d1e-4f4a-9a53-1c2d3e4f5a6b";

class DevBackendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WriteManifest(R"({"hosts":{"fcp":{"version":"1.0.0"}}})");
    StartBackend();
  }

  void StartBackend() {
    Options options{0, dir_ / "data", dir_ / "latest.json", kLifetime, [this] { return now_.load(); }};
    backend_ = std::make_unique<DevBackend>(options);
    std::string error;
    ASSERT_TRUE(backend_->Start(&error)) << error;
    client_ = std::make_unique<httplib::Client>("127.0.0.1", backend_->Port());
  }

  void WriteManifest(const std::string& text) { std::ofstream(dir_ / "latest.json") << text; }

  httplib::Result SignIn(const std::string& email, const std::string& password, const std::string& flow = kFlow) {
    return client_->Post("/site/ja/sign-in", httplib::Params{{"email", email}, {"password", password}, {"flowId", flow}});
  }

  json Relay(const std::string& flow) {
    auto res = client_->Get("/rest/v1/auth_relay?id=eq." + flow + "&select=session_payload", KeyHeaders());
    EXPECT_EQ(res->status, 200);
    return json::parse(res->body);
  }

  // Signs in through the form and returns the session the relay hands to the app.
  json SignedInSession(const std::string& email) {
    EXPECT_EQ(SignIn(email, "secret")->status, 200);
    return Relay(kFlow).at(0).at("session_payload");
  }

  httplib::Result Refresh(const std::string& refreshToken) {
    return client_->Post("/auth/v1/token?grant_type=refresh_token", KeyHeaders(),
                         json{{"refresh_token", refreshToken}}.dump(), "application/json");
  }

  httplib::Result CurrentUser(const std::string& accessToken) {
    auto headers = KeyHeaders();
    headers.emplace("Authorization", "Bearer " + accessToken);
    return client_->Get("/auth/v1/user", headers);
  }

  static httplib::Headers KeyHeaders() { return {{"apikey", config::kPublicApiKey}}; }

  static json Claims(const std::string& token) {
    auto first = token.find('.');
    return json::parse(*Base64UrlDecode(token.substr(first + 1, token.rfind('.') - first - 1)));
  }

  platform::testing::TempDir temp_;
  const fs::path dir_ = temp_.path();
  std::atomic<double> now_{kStart};
  std::unique_ptr<DevBackend> backend_;
  std::unique_ptr<httplib::Client> client_;
};

TEST_F(DevBackendTest, SignInFormLeavesASignedSessionInTheFlowsRelayRow) {
  auto page = SignIn("Dev@Example.org", "secret");
  ASSERT_EQ(page->status, 200);
  EXPECT_NE(page->body.find("Signed in as dev@example.org"), std::string::npos);

  json rows = Relay(kFlow);
  ASSERT_EQ(rows.size(), 1u);
  ASSERT_EQ(rows[0].size(), 1u) << "select=session_payload returns that column only";
  const json& session = rows[0]["session_payload"];
  const std::string access = session["access_token"];
  EXPECT_FALSE(session["refresh_token"].get<std::string>().empty());
  EXPECT_EQ(session["token_type"], "bearer");
  EXPECT_EQ(session["expires_at"], kStart + kLifetime);

  ASSERT_TRUE(VerifyHs256(access, "orvistelle-development-secret-not-for-production", now_));
  json claims = Claims(access);
  EXPECT_EQ(claims["email"], "dev@example.org");
  EXPECT_EQ(claims["exp"], kStart + kLifetime);
  EXPECT_EQ(claims["sub"], session["user"]["id"]);

  EXPECT_EQ(Relay("6f1c0d7e-0000-4000-8000-000000000000"), json::array());
  // A wrong password for the now known user, or a malformed flow id, writes no row.
  const std::string other = "11111111-1111-4111-8111-111111111111";
  EXPECT_EQ(SignIn("dev@example.org", "other", other)->status, 401);
  EXPECT_EQ(SignIn("dev@example.org", "secret", "not a flow id")->status, 400);
  EXPECT_EQ(Relay(other), json::array());
}

TEST_F(DevBackendTest, AuthAndRelayTurnAwayRequestsWithoutTheProjectKey) {
  const std::string forged = SignHs256({{"role", "anon"}, {"exp", kStart + 3600}}, "some other secret");
  for (const httplib::Headers& headers : {httplib::Headers{}, httplib::Headers{{"apikey", forged}}}) {
    EXPECT_EQ(client_->Get("/rest/v1/auth_relay?id=eq.x&select=session_payload", headers)->status, 401);
    EXPECT_EQ(client_->Get("/auth/v1/user", headers)->status, 401);
    EXPECT_EQ(client_->Post("/auth/v1/token?grant_type=refresh_token", headers, "{}", "application/json")->status,
              401);
  }
  EXPECT_EQ(client_->Get("/rest/v1/auth_relay?select=session_payload", KeyHeaders())->status, 400)
      << "the relay never lists the whole table";
}

// A spent token presented again within the reuse interval gets the current successor, as two clients of one device
// racing each other would need; after it, the whole session ends.
TEST_F(DevBackendTest, RefreshTokensRotateAndASpentOneEndsItsSessionAfterTheReuseInterval) {
  json session = SignedInSession("dev@example.org");
  now_ = kStart + 60;
  auto first = Refresh(session["refresh_token"]);
  ASSERT_EQ(first->status, 200);
  json renewed = json::parse(first->body);
  EXPECT_NE(renewed["refresh_token"], session["refresh_token"]);
  EXPECT_EQ(renewed["user"]["email"], "dev@example.org");
  EXPECT_EQ(Claims(renewed["access_token"])["exp"], kStart + 60 + kLifetime);

  now_ = kStart + 69;
  auto withinInterval = Refresh(session["refresh_token"]);
  ASSERT_EQ(withinInterval->status, 200);
  EXPECT_EQ(json::parse(withinInterval->body)["refresh_token"], renewed["refresh_token"]);
  now_ = kStart + 70;
  auto reused = Refresh(session["refresh_token"]);
  EXPECT_EQ(reused->status, 400);
  EXPECT_EQ(json::parse(reused->body)["error_code"], "refresh_token_already_used");
  auto successor = Refresh(renewed["refresh_token"]);
  EXPECT_EQ(successor->status, 400);
  EXPECT_EQ(json::parse(successor->body)["msg"], "Invalid Refresh Token: Refresh Token Not Found");
}

TEST_F(DevBackendTest, CurrentUserNeedsALiveAccessTokenOfALiveSessionWhichSurvivesARestart) {
  json session = SignedInSession("dev@example.org");
  backend_->Stop();
  StartBackend();
  auto user = CurrentUser(session["access_token"]);
  ASSERT_EQ(user->status, 200);
  EXPECT_EQ(json::parse(user->body)["email"], "dev@example.org");

  now_ = kStart + kLifetime;
  EXPECT_EQ(CurrentUser(session["access_token"])->status, 401);
  now_ = kStart;
  EXPECT_EQ(CurrentUser(config::kPublicApiKey)->status, 401) << "the project key names no user";
  EXPECT_EQ(Refresh(session["refresh_token"])->status, 200);
}

TEST_F(DevBackendTest, RevokeEndsEverySessionOfTheUser) {
  json session = SignedInSession("dev@example.org");
  const std::string csrf = backend_->FormToken();
  EXPECT_NE(client_->Get("/dev")->body.find("name=\"csrf\" value=\"" + csrf + "\""), std::string::npos);
  for (const std::string& forged : {std::string(), csrf.substr(1), std::string(csrf.size(), 'A')}) {
    EXPECT_EQ(client_->Post("/dev/revoke?email=dev@example.org&csrf=" + forged)->status, 403) << forged;
  }
  auto revoked = client_->Post("/dev/revoke?email=dev@example.org&csrf=" + csrf);
  ASSERT_EQ(revoked->status, 200);
  EXPECT_EQ(json::parse(revoked->body)["revoked_sessions"], 1);
  EXPECT_EQ(Refresh(session["refresh_token"])->status, 400);
  EXPECT_EQ(CurrentUser(session["access_token"])->status, 403);
  EXPECT_EQ(client_->Post("/dev/revoke?email=nobody@example.org&csrf=" + csrf)->status, 404);
}

TEST_F(DevBackendTest, RelayRowIsHandedOutOnceAndExpiresAfterTenMinutes) {
  struct Case {
    double readAfter;
    size_t rows;
  } cases[] = {{0, 1}, {599, 1}, {600, 0}};
  for (const Case& c : cases) {
    now_ = kStart;
    ASSERT_EQ(SignIn("dev@example.org", "secret")->status, 200);
    now_ = kStart + c.readAfter;
    EXPECT_EQ(Relay(kFlow).size(), c.rows) << c.readAfter;
    EXPECT_EQ(Relay(kFlow), json::array()) << "read twice after " << c.readAfter;
  }
}

std::string Nested(int levels) {
  std::string text;
  for (int i = 0; i < levels; ++i) text += R"({"a":)";
  return text + "1" + std::string(levels, '}');
}

TEST_F(DevBackendTest, TurnsAwayOversizedDeepAndForeignRequests) {
  struct Case {
    const char* what;
    std::string host;
    std::string heartbeat;
    int status;
  } cases[] = {
      {"the body that once overflowed the stack", "", Nested(100000), 413},
      {"64 KiB and one byte", "", R"({"a":")" + std::string(64 * 1024 - 7, 'x') + "\"}", 413},
      {"64 KiB", "", R"({"a":")" + std::string(64 * 1024 - 8, 'x') + "\"}", 200},
      {"33 levels", "", Nested(33), 400},
      {"32 levels", "", Nested(32), 200},
      {"a rebound DNS name", "attacker.example:54321", "{}", 421},
      {"localhost", "localhost:54321", "{}", 200},
  };
  for (const Case& c : cases) {
    httplib::Headers headers;
    if (!c.host.empty()) headers.emplace("Host", c.host);
    auto res = client_->Post("/console/v1/plugin/heartbeat", headers, c.heartbeat, "application/json");
    ASSERT_TRUE(res) << c.what;
    EXPECT_EQ(res->status, c.status) << c.what;
  }
  EXPECT_EQ(client_->Get("/dev", {{"Host", "attacker.example"}})->status, 421);
}

TEST_F(DevBackendTest, HeartbeatsAndUpdateFetchesShowOnTheDevPage) {
  const std::string beat = R"({"product":"vask","installId":"5d0c6c1e-beat","version":"1.0.0","platform":"macos",)"
                           R"("host":"fcp"})";
  EXPECT_EQ(client_->Post("/console/v1/plugin/heartbeat", beat, "application/json")->status, 200);
  EXPECT_EQ(client_->Post("/console/v1/plugin/heartbeat", "[]", "application/json")->status, 400);

  EXPECT_EQ(client_->Get("/orvistelle/vask/latest.json")->body, R"({"hosts":{"fcp":{"version":"1.0.0"}}})");
  WriteManifest(R"({"hosts":{"fcp":{"version":"2.0.0"}}})");
  EXPECT_EQ(client_->Get("/orvistelle/vask/latest.json")->body, R"({"hosts":{"fcp":{"version":"2.0.0"}}})");
  auto zip = client_->Get("/orvistelle/vask/fcp/orvistelle-fcp-macos-latest.zip");
  ASSERT_EQ(zip->status, 200);
  EXPECT_EQ(zip->body.substr(0, 4), std::string("PK\x03\x04", 4));

  const std::string dev = client_->Get("/dev")->body;
  for (const char* shown :
       {"5d0c6c1e-beat", "/orvistelle/vask/latest.json", "/orvistelle/vask/fcp/orvistelle-fcp-macos-latest.zip"})
    EXPECT_NE(dev.find(shown), std::string::npos) << shown;
}

TEST_F(DevBackendTest, ServesEveryPageTheAppOpensInEveryLanguage) {
  for (std::string lang : {"", "/zh", "/ja", "/ko", "/pt-BR", "/es"}) {
    for (std::string page : {"/site", "/site/sign-in?from=vask&flowId=x", "/site/sign-up?from=vask", "/site/terms",
                             "/site/privacy", "/docs/fcp/install"}) {
      std::string path = page.substr(0, 5) + lang + page.substr(5);
      auto res = client_->Get(path);
      ASSERT_TRUE(res) << path;
      EXPECT_EQ(res->status, 200) << path;
      EXPECT_NE(res->body.find("Development site"), std::string::npos) << path;
    }
  }
  EXPECT_EQ(client_->Get("/site/de/terms")->status, 404) << "German takes the English pages";
  EXPECT_EQ(client_->Get("/docs/install")->status, 404);
}

TEST(JwtTest, TheBuildsPublicKeyIsSignedWithTheDevelopmentSecretInBase64Url) {
  auto claims = VerifyHs256(config::kPublicApiKey, kDevelopmentSecret, kStart);
  ASSERT_TRUE(claims);
  EXPECT_EQ((*claims)["role"], "anon");
  EXPECT_FALSE(VerifyHs256(config::kPublicApiKey, "another secret", kStart));
  // Base64url round-trips every tail length and refuses the other alphabet and impossible lengths.
  for (std::string bytes : {"", "f", "fo", "foo", "foo\xff", "\xfb\xff\xfe"}) {
    EXPECT_EQ(Base64UrlDecode(Base64UrlEncode(bytes)), bytes);
  }
  EXPECT_EQ(Base64UrlEncode("\xfb\xff"), "-_8");
  EXPECT_FALSE(Base64UrlDecode("ab+/"));
  EXPECT_FALSE(Base64UrlDecode("abcde"));
}

}  // namespace
}  // namespace orvistelle::devbackend
