#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <httplib.h>

#include <nlohmann/json.hpp>

#include <atomic>
#include <fstream>

#include "orvistelle/BuildConfig.h"
#include "platform/UniqueFd.h"
#include "platform/testing/FakePlatform.h"
#include "tools/devbackend/DevBackend.h"
#include "tools/devbackend/Jwt.h"

namespace orvistelle::devbackend {
namespace {

using nlohmann::json;

constexpr double kStart = 1'700'000'000;
constexpr char kFlow[] = "0b7c2a34-6d1e-4f4a-9a53-1c2d3e4f5a6b";
const httplib::Headers kKey = {{"apikey", config::kPublicApiKey}};

class DevBackendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(dir_ / "latest.json") << R"({"hosts":{"fcp":{"version":"1.0.0"}}})";
    std::string error;
    ASSERT_TRUE(backend_.Start(&error)) << error;
    client_ = std::make_unique<httplib::Client>("127.0.0.1", backend_.Port());
  }

  int SignIn(const std::string& password, const std::string& flow = kFlow) {
    return client_->Post("/site/ja/sign-in", httplib::Params{{"email", "Dev@Example.org"}, {"password", password},
                                                            {"flowId", flow}})->status;
  }
  json Relay(const std::string& flow = kFlow) {
    return json::parse(client_->Get("/rest/v1/auth_relay?id=eq." + flow + "&select=session_payload", kKey)->body);
  }
  httplib::Result Refresh(const json& token) {
    return client_->Post("/auth/v1/token?grant_type=refresh_token", kKey, json{{"refresh_token", token}}.dump(),
                        "application/json");
  }

  platform::testing::TempDir temp_;
  const std::filesystem::path dir_ = temp_.path();
  std::atomic<double> now_{kStart};
  DevBackend backend_{{0, dir_ / "data", dir_ / "latest.json", 120, [this] { return now_.load(); }}};
  std::unique_ptr<httplib::Client> client_;
};

TEST_F(DevBackendTest, SignInLeavesASignedSessionInTheRelayOnceForTenMinutes) {
  for (const auto& [readAfter, rows] : {std::pair(0.0, 1u), {599.0, 1u}, {600.0, 0u}}) {
    now_ = kStart;
    ASSERT_EQ(SignIn("secret"), 200);
    now_ = kStart + readAfter;
    const json relay = Relay();
    ASSERT_EQ(relay.size(), rows) << readAfter;
    EXPECT_EQ(Relay(), json::array()) << "read twice after " << readAfter;
    if (rows == 0) continue;
    const json session = relay[0]["session_payload"];
    const auto claims = VerifyHs256(session["access_token"].get<std::string>(), kDevelopmentSecret, kStart);
    EXPECT_EQ(claims.value_or(json())["email"], "dev@example.org");
    EXPECT_EQ(session["expires_at"], kStart + 120);
    EXPECT_EQ(relay[0].size(), 1u) << "select=session_payload returns that column only";
  }
  // A wrong password for the now known user, or a malformed flow id, is refused.
  EXPECT_EQ(SignIn("other"), 401);
  EXPECT_EQ(SignIn("secret", "not a flow id"), 400);
}

// A spent token presented again within the reuse interval gets the current successor, as two clients of one device
// racing each other need; after it, the whole session ends.
TEST_F(DevBackendTest, ASpentRefreshTokenEndsItsSessionAfterTheReuseInterval) {
  ASSERT_EQ(SignIn("secret"), 200);
  const json first = Relay()[0]["session_payload"]["refresh_token"];
  const json second = json::parse(Refresh(first)->body)["refresh_token"];
  now_ = kStart + 9.9;
  EXPECT_EQ(json::parse(Refresh(first)->body)["refresh_token"], second);
  now_ = kStart + 10;
  EXPECT_EQ(json::parse(Refresh(first)->body)["error_code"], "refresh_token_already_used");
  EXPECT_EQ(json::parse(Refresh(second)->body)["error_code"], "refresh_token_not_found");
}

TEST_F(DevBackendTest, RevokingNeedsTheDevPagesTokenAndEndsEverySessionOfTheUser) {
  ASSERT_EQ(SignIn("secret", "1"), 200);
  ASSERT_EQ(SignIn("secret"), 200);
  const json token = Relay()[0]["session_payload"]["refresh_token"];
  const std::string csrf = backend_.FormToken();  // what the /dev page's forms carry
  for (const std::string& forged : {std::string(), csrf.substr(1), csrf + "A", std::string(csrf.size(), 'A')})
    EXPECT_EQ(client_->Post("/dev/revoke?email=dev@example.org&csrf=" + forged)->status, 403) << forged;
  auto revoked = client_->Post("/dev/revoke?email=dev@example.org&csrf=" + csrf);
  EXPECT_EQ(json::parse(revoked->body)["revoked_sessions"], 2);
  EXPECT_EQ(Refresh(token)->status, 400);
}

TEST_F(DevBackendTest, TurnsAwayWhatTheHostedServicesWouldAndWhatCouldHarmTheDeveloper) {
  const httplib::Headers forged = {{"apikey", SignHs256({{"role", "anon"}, {"exp", kStart + 60}}, "other secret")}};
  auto heartbeat = [&](const std::string& body) { return client_->Post("/console/v1/plugin/heartbeat", body, ""); };
  auto nested = [](int n) { return "{\"a\":" + std::string(n - 1, '[') + "1" + std::string(n - 1, ']') + "}"; };
  const std::tuple<const char*, std::function<httplib::Result()>, int> cases[] = {
      {"a key signed elsewhere", [&] { return client_->Get("/rest/v1/auth_relay?id=eq.x", forged); }, 401},
      {"no key", [&] { return client_->Get("/rest/v1/auth_relay?id=eq.x"); }, 401},
      {"the project key as a user", [&] { return client_->Get("/auth/v1/user", kKey); }, 401},
      {"the whole relay table", [&] { return client_->Get("/rest/v1/auth_relay?select=session_payload", kKey); }, 400},
      {"a heartbeat too long", [&] { return heartbeat("{\"a\":\"" + std::string(64 * 1024 - 7, 'x') + "\"}"); }, 413},
      {"a heartbeat nested 33 deep", [&] { return heartbeat(nested(33)); }, 400},
      {"a heartbeat nested 32 deep", [&] { return heartbeat(nested(32)); }, 200},
      {"a rebound DNS name", [&] { return client_->Get("/dev", {{"Host", "attacker.example:54321"}}); }, 421},
      {"localhost", [&] { return client_->Get("/dev", {{"Host", "localhost:54321"}}); }, 200},
      {"two hosts", [&] { return client_->Get("/dev", {{"Host", "127.0.0.1"}, {"Host", "attacker.example"}}); }, 400}};
  for (const auto& [name, ask, status] : cases) EXPECT_EQ(ask()->status, status) << name;
}

// Connections that stop halfway through their request (a browser's spare ones, a stalled peer) hold up no one else:
// a request made behind two hundred of them is answered at once.
TEST_F(DevBackendTest, StalledConnectionsDoNotHoldUpARequest) {
  std::vector<platform::UniqueFd> stalled;
  sockaddr_in address{.sin_family = AF_INET, .sin_port = htons(backend_.Port()), .sin_addr = {htonl(INADDR_LOOPBACK)}};
  constexpr std::string_view kHalf = "GET /dev HTTP/1.1\r\nHost: 127.0.0.1\r\n";
  for (int i = 0; i < 200; ++i) {
    platform::UniqueFd peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::connect(peer.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::send(peer.get(), kHalf.data(), kHalf.size(), MSG_NOSIGNAL), static_cast<ssize_t>(kHalf.size()));
    stalled.push_back(std::move(peer));
  }
  const auto start = std::chrono::steady_clock::now();
  const httplib::Result answer = client_->Get("/dev");
  EXPECT_EQ(answer ? answer->status : 0, 200);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// The app opens these pages in its language, and reads the manifest, which a developer edits while it runs.
TEST_F(DevBackendTest, ServesThePagesTheAppOpensAndTheManifestAsItIsNow) {
  for (const std::string lang : {"", "/zh", "/ja", "/ko", "/pt-BR", "/es"})
    for (const std::string page : {"/site", "/site/sign-in?from=vask&flowId=x", "/site/sign-up?from=vask",
                                   "/site/terms", "/site/privacy", "/docs/fcp/install"})
      EXPECT_EQ(client_->Get(page.substr(0, 5) + lang + page.substr(5))->status, 200) << lang << page;
  std::ofstream(dir_ / "latest.json") << R"({"hosts":{"fcp":{"version":"2.0.0"}}})";
  EXPECT_EQ(client_->Get("/orvistelle/vask/latest.json")->body, R"({"hosts":{"fcp":{"version":"2.0.0"}}})");
  EXPECT_EQ(client_->Get("/orvistelle/vask/fcp/orvistelle-fcp-linux-latest.deb")->body.substr(0, 8), "!<arch>\n");
}

}  // namespace
}  // namespace orvistelle::devbackend
