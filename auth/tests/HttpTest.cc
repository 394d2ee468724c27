#include <netinet/in.h>
#include <unistd.h>

#include "auth/Files.h"
#include "auth/Http.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::auth::testing {
namespace {

TEST_F(AuthTest, BackendSeesExactlyTheStandardHeaders) {
  using Headers = std::map<std::string, std::string>;
  const std::string key = config::kPublicApiKey, json = "application/json";
  struct Case {
    std::string bearer, apiKey;
    std::optional<std::string> body;
    Headers headers;  // Host aside
  };
  backend.Answer("/echo", Reply{201, "made"});
  for (const Case& c : std::vector<Case>{
           {"", "", std::nullopt, {{"apikey", key}, {"authorization", "Bearer " + key}, {"accept", json}}},
           {"user", "", std::nullopt, {{"apikey", key}, {"authorization", "Bearer user"}, {"accept", json}}},
           {"",
            "k",
            R"({"a":1})",
            {{"apikey", "k"},
             {"authorization", "Bearer k"},
             {"accept", json},
             {"content-type", json},
             {"content-length", "7"}}},
           {"t",
            "k",
            "",
            {{"apikey", "k"},
             {"authorization", "Bearer t"},
             {"accept", json},
             {"content-type", json},
             {"content-length", "0"}}}}) {
    int64_t status = -1;
    std::string method = c.body ? "POST" : "GET";
    EXPECT_EQ(Http(method, backend.BaseURL() + "/echo?a=1&b=%20", c.bearer, c.body, c.apiKey, &status), "made");
    EXPECT_EQ(status, 201);
    SeenRequest seen = backend.Seen("/echo").back();
    EXPECT_EQ(seen.method + " " + seen.target + " " + seen.body, method + " /echo?a=1&b=%20 " + c.body.value_or(""));
    seen.headers.erase("host");
    EXPECT_EQ(seen.headers.extract("user-agent").mapped(), platform::UserAgent());
    EXPECT_EQ(seen.headers, c.headers);
  }
}

TEST_F(AuthTest, RequestsThatCannotBeMadeGiveStatusZeroAtOnce) {
  std::string base = backend.BaseURL();
  for (const std::string& url : {base + "/a b", base + "/\t", base + "/caf\xc3\xa9", base + "/%zz", base + "/%2",
                                 base + "/<x>", std::string("ftp://h/x"), std::string("h/x"), std::string("http://"),
                                 std::string("http:///x"), std::string("http://:80/x")}) {
    int64_t status = -1;
    EXPECT_FALSE(Http("GET", url, "", std::nullopt, "", &status)) << url;
    EXPECT_EQ(status, 0) << url;
  }
  EXPECT_FALSE(Http("GET", base + "/x", "token\r\nX-Injected: 1", std::nullopt, "", nullptr));
  EXPECT_TRUE(backend.Seen("/x").empty());
  for (const char* url :
       {"http://h", "HTTPS://h.example:8443/p-_.~?q=%2F&r=[1]#f", "http://u:p@h/x", "http://[::1]:8/"}) {
    EXPECT_TRUE(IsValidURL(url)) << url;
  }
}

// The production limits are 20 s of silence and 22 s in all; a server that accepts and never answers is cut off by
// either.
TEST(Http, SilentServerGivesStatusZeroWithinTheLimits) {
  int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t length = sizeof address;
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length) | listen(listener, 8), 0);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  auto request = BackendRequest("GET", "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)), "", {}, "");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->idle, 20s);
  EXPECT_EQ(request->wait, 22s);
  EXPECT_EQ(request->sameOriginRedirects, 0);  // a token or body is never re-sent after a redirect
  for (auto [idle, wait] : {std::pair{200ms, 2000ms}, std::pair{2000ms, 200ms}}) {
    request->idle = idle;
    request->wait = wait;
    auto started = std::chrono::steady_clock::now();
    platform::HttpResponse response = platform::HttpSend(*request);
    EXPECT_EQ(response.status, 0);
    EXPECT_FALSE(response.body);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1500ms);
  }
  close(listener);
}

TEST_F(AuthTest, SupportDirFallsBackToThePlatformHome) {
  fakeHome.SetDirectory((home.path() / "fallback").string());
  fakeHome.SetUserDatabase(home.path().string());
  EXPECT_EQ(SupportDir(), Support("").parent_path().string());
  fakeHome.SetUserDatabase("");
  EXPECT_EQ(SupportDir(), (home.path() / "fallback/Library/Application Support/Orvistelle").string());
}

}  // namespace
}  // namespace orvistelle::auth::testing
