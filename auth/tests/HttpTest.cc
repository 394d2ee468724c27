#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "auth/Files.h"
#include "auth/Http.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::auth::testing {
namespace {

const std::string kKey = config::kPublicApiKey;

struct HeaderCase {
  std::string bearer, apiKey;
  std::optional<std::string> body;
  std::map<std::string, std::string> headers;  // Host aside
};

class HttpHeaders : public AuthTest, public ::testing::WithParamInterface<HeaderCase> {};

TEST_P(HttpHeaders, BackendSeesExactlyTheStandardHeaders) {
  const HeaderCase& c = GetParam();
  backend.Answer("/echo", Reply{201, "made"});
  int64_t status = -1;
  std::string method = c.body ? "POST" : "GET";
  auto body = Http(method, backend.url() + "/echo?a=1&b=%20", c.bearer, c.body, c.apiKey, &status);
  EXPECT_EQ(status, 201);
  EXPECT_EQ(body, "made");
  ASSERT_EQ(backend.Seen("/echo").size(), 1u);
  SeenRequest seen = backend.Seen("/echo")[0];
  EXPECT_EQ(seen.method, method);
  EXPECT_EQ(seen.target, "/echo?a=1&b=%20");
  EXPECT_EQ(seen.body, c.body.value_or(""));
  seen.headers.erase("host");
  EXPECT_EQ(seen.headers, c.headers);
}

INSTANTIATE_TEST_SUITE_P(
    Variants, HttpHeaders,
    ::testing::Values(
        HeaderCase{"", "", std::nullopt,
                   {{"apikey", kKey}, {"authorization", "Bearer " + kKey}, {"accept", "application/json"}}},
        HeaderCase{"user-token", "", std::nullopt,
                   {{"apikey", kKey}, {"authorization", "Bearer user-token"}, {"accept", "application/json"}}},
        HeaderCase{"", "other-key", R"({"a":1})",
                   {{"apikey", "other-key"}, {"authorization", "Bearer other-key"}, {"accept", "application/json"},
                    {"content-type", "application/json"}, {"content-length", "7"}}},
        HeaderCase{"t", "k", "",
                   {{"apikey", "k"}, {"authorization", "Bearer t"}, {"accept", "application/json"},
                    {"content-type", "application/json"}, {"content-length", "0"}}}));

TEST_F(AuthTest, RequestsThatCannotBeMadeGiveStatusZeroAtOnce) {
  std::string base = backend.url();
  for (const std::string& url : std::vector<std::string>{base + "/a b", base + "/a\tb", base + "/\x01", base + "/caf\xc3\xa9", base + "/%zz",
                          base + "/%2", base + "/<x>", "ftp://127.0.0.1/x", "127.0.0.1/x", "http://", "http:///x",
                          "http://:80/x", "", "/relative"}) {
    int64_t status = -1;
    EXPECT_FALSE(Http("GET", url, "", std::nullopt, "", &status)) << url;
    EXPECT_EQ(status, 0) << url;
  }
  int64_t status = -1;
  EXPECT_FALSE(Http("GET", base + "/x", "token\r\nX-Injected: 1", std::nullopt, "", &status));
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(backend.Seen("/x").empty());
}

TEST(HttpURL, AcceptsAbsoluteHttpURLs) {
  for (const char* url : {"http://h", "HTTPS://h.example:8443/p/a-t_h.~?q=%2F&r=[1]#f", "http://u:p@h/x",
                          "http://[::1]:8080/"}) {
    EXPECT_TRUE(IsValidURL(url)) << url;
  }
}

TEST(HttpRequest, WaitsTwentySecondsForTheTransferAndTwentyTwoInAll) {
  auto request = BackendRequest("GET", "http://h/x", "", std::nullopt, "");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->timeout, 20s);
  EXPECT_EQ(request->wait, 22s);
  EXPECT_FALSE(request->body);
}

// A server that accepts connections and never says a word.
TEST(HttpRequest, SilentServerGivesStatusZeroWithinTheLimits) {
  int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(listen(listener, 8), 0);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/never";
  for (auto [timeout, wait] : {std::pair{200ms, 2000ms}, std::pair{2000ms, 200ms}}) {
    auto request = BackendRequest("GET", url, "", std::nullopt, "");
    request->timeout = timeout;
    request->wait = wait;
    auto started = std::chrono::steady_clock::now();
    platform::HttpResponse response = platform::HttpSend(*request);
    EXPECT_EQ(response.status, 0);
    EXPECT_FALSE(response.body);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1500ms);
  }
  close(listener);
}

TEST(Json, OnlyObjectsAndOnlyValuesOfTheRightType) {
  for (std::optional<std::string> bytes : std::initializer_list<std::optional<std::string>>{
           std::nullopt, "", "[]", "[{}]", "\"{}\"", "3", "null", "{", "{\"a\":1,}", "{\"a\":\"\xff\"}"}) {
    EXPECT_FALSE(JsonObject(bytes)) << bytes.value_or("(nothing)");
  }
  ASSERT_TRUE(JsonObject("{}"));
  auto object = JsonObject(R"({"s":"x","e":"","n":1.5,"i":-2,"b":true,"o":{},"a":[],"z":null})");
  ASSERT_TRUE(object);
  EXPECT_EQ(StringMember(*object, "s"), "x");
  EXPECT_EQ(StringMember(*object, "e"), "");
  EXPECT_EQ(NonEmptyStringMember(*object, "e"), std::nullopt);
  EXPECT_EQ(NumberMember(*object, "n"), 1.5);
  EXPECT_EQ(NumberMember(*object, "i"), -2);
  EXPECT_TRUE(ObjectMember(*object, "o"));
  for (const char* key : {"n", "b", "o", "a", "z", "missing"}) EXPECT_FALSE(StringMember(*object, key)) << key;
  for (const char* key : {"s", "b", "o", "a", "z"}) EXPECT_FALSE(NumberMember(*object, key)) << key;
  for (const char* key : {"s", "n", "a", "z"}) EXPECT_FALSE(ObjectMember(*object, key)) << key;
}

TEST_F(AuthTest, SupportDirFallsBackToThePlatformHome) {
  EXPECT_EQ(SupportDir(), (home / "Library/Application Support/Orvistelle").string());
  fakeHome.fromDatabase = "";
  fakeHome.directory = home / "fallback";
  EXPECT_EQ(SupportDir(), (home / "fallback/Library/Application Support/Orvistelle").string());
  EnsureDir();
  EXPECT_TRUE(std::filesystem::is_directory(SupportDir()));
}

}  // namespace
}  // namespace orvistelle::auth::testing
