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
  const Headers standard = {{"apikey", key}, {"authorization", "Bearer " + key}, {"accept", json}};
  const Headers withBody = {{"apikey", "k"}, {"accept", json}, {"content-type", json}};
  auto with = [](Headers headers, const std::string& name, const std::string& value) {
    headers[name] = value;
    return headers;
  };
  for (const Case& c : std::vector<Case>{
           {"", "", std::nullopt, standard},
           {"user", "", std::nullopt, with(standard, "authorization", "Bearer user")},
           {"", "k", R"({"a":1})", with(with(withBody, "authorization", "Bearer k"), "content-length", "7")},
           {"t", "k", "", with(with(withBody, "authorization", "Bearer t"), "content-length", "0")}}) {
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

TEST_F(AuthTest, SupportDirFallsBackToThePlatformHome) {
  fakeHome.SetDirectory((home.path() / "fallback").string());
  fakeHome.SetUserDatabase(home.path().string());
  EXPECT_EQ(SupportDir(), Support("").parent_path().string());
  fakeHome.SetUserDatabase("");
  EXPECT_EQ(SupportDir(), (home.path() / "fallback/Library/Application Support/Orvistelle").string());
}

}  // namespace
}  // namespace orvistelle::auth::testing
