#include <gtest/gtest.h>

#include <regex>

#include "platform/DevOverrides.h"
#include "platform/DiagnosticsLog.h"
#include "platform/HttpTransport.h"
#include "platform/InfoPlist.h"
#include "platform/WebUrl.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::platform {
namespace {

using namespace std::chrono_literals;

TEST(LanguageTag, IsTheFirstNamedLocaleWithoutEncodingOrModifier) {
  const std::pair<std::map<std::string, std::string>, std::optional<std::string>> rows[] = {
      {{{"LANG", "C.UTF-8"}}, std::nullopt}, {{{"LANG", "POSIX"}}, std::nullopt}, {{{"LANG", "sr_RS@latin"}}, "sr_RS"},
      {{{"LANG", "de_DE.UTF-8@euro"}}, "de_DE"}, {{{"LANGUAGE", "pt_PT:pt"}, {"LANG", "de_DE"}}, "pt_PT"},
      {{{"LANGUAGE", ":ja"}, {"LANG", "ko_KR.UTF-8"}}, "ko_KR"}, {{{"LC_ALL", "ja_JP"}, {"LANG", "de_DE"}}, "ja_JP"},
      {{{"LC_ALL", ""}, {"LC_MESSAGES", "fr_FR"}, {"LANG", "de_DE"}}, "fr_FR"}};
  for (const auto& [environment, tag] : rows) {
    auto lookup = [&e = environment](const char* name) { return e.contains(name) ? e.at(name).c_str() : nullptr; };
    EXPECT_EQ(LanguageTagFromEnvironment(lookup), tag) << tag.value_or("none");
  }
}

// A development override is taken only in a form that cannot be mistaken; anything else leaves the built-in value.
TEST(DevOverrides, TakeOnlyWellFormedValues) {
  const std::tuple<const char*, const char*, bool> rows[] = {
      {"ORVISTELLE_DEV_BACKEND", "http://127.0.0.1:5", true}, {"ORVISTELLE_DEV_BACKEND", "https://h/", false},
      {"ORVISTELLE_DEV_TIMER_MS", "3600000", true},           {"ORVISTELLE_DEV_TIMER_MS", "3600001", false},
      {"ORVISTELLE_DEV_TIMER_MS", "0", false},                {"ORVISTELLE_DEV_TIMER_MS", "5x", false},
      {"ORVISTELLE_DEV_HOME", "/tmp/h", true},                {"ORVISTELLE_DEV_HOME", "tmp/h", false}};
  for (const auto& [name, value, taken] : rows) {
    setenv(name, value, 1);
    EXPECT_EQ(DevBackendBase() || DevTimerPeriod() || DevHomeDirectory(), taken) << name << "=" << value;
    unsetenv(name);
  }
}

// Only the string values of the top-level dictionary; what is not such a property list is refused whole.
TEST(InfoPlist, TakesTheStringsOfATopLevelDictionary) {
  EXPECT_EQ(ParseInfoPlist(R"(<?xml version="1.0"?><!DOCTYPE plist><plist version="1.0"><dict><key>Id</key>
      <string>net.example</string><key>UI</key><true/><key>More</key><dict><key>In</key><string>x</string></dict>
      <key>Version</key><string>1.2 &amp; &lt;b&gt;</string></dict></plist>)"),
            (std::map<std::string, std::string>{{"Id", "net.example"}, {"Version", "1.2 & <b>"}}));
  EXPECT_FALSE(ParseInfoPlist("<plist><dict><key>a</key><string>&bogus;</string></dict></plist>"));
}

// What may be requested or opened in the browser: an absolute web address with a host and nothing hiding in it.
TEST(WebUrl, IsAnAbsoluteHttpAddressWithAHostAndNoUserInfo) {
  const std::pair<const char*, std::optional<std::string>> rows[] = {
      {"http://h", "h"}, {"HTTPS://Ex.Test:8443/p-_.~?q=%2F&r=[1]#f!$'()*+,;=@", "ex.test"},
      {"http://[::1]:8/", "[::1]"}, {"http://a%2fb.test/%20", std::nullopt}, {"http:/x", std::nullopt},
      {"http://", std::nullopt}, {"https://user:pw@host/x", std::nullopt}, {"https://@host/x", std::nullopt},
      {"http:///x", std::nullopt}, {"http://:80/x", std::nullopt}, {"http://h:8x/", std::nullopt},
      {"http://[::1/", std::nullopt}, {"https://h/a b", std::nullopt}, {"https://h/%2", std::nullopt},
      {"https://h/%g0", std::nullopt}, {"https://ex\xc3\xa4mple.test", std::nullopt}, {"ftp://h/x", std::nullopt},
      {"file:///etc/passwd", std::nullopt}, {"javascript:alert(1)//", std::nullopt}};
  for (const auto& [url, host] : rows) {
    EXPECT_EQ(WebUrlHost(url), host) << url;
    EXPECT_EQ(IsWebUrl(url), host.has_value()) << url;
  }
}

// A token or body never reaches another origin, a peer that stops talking, breaks off, speaks no HTTP or floods
// holds no caller and hands back nothing, and the log keeps neither credentials nor queries. The rows run at once, on threads sharing the connection pool and the log.
TEST(HttpTransport, AnswersOnlyFromTheOriginAskedWithinTheTimeAllowedAndLogsNoSecret) {
  testing::TempDir temp;
  testing::FakeClock clock{1'700'000'000.25};
  testing::ScopedFakes seams{&clock};
  fault::Latch latch;
  fault::RawPeer silent(fault::Silent(latch)), reset(fault::ResetMidBody()), notHttp(fault::NotHttp());
  fault::RawPeer flood(fault::Flood());
  testing::LoopbackServer loopback([&](httplib::Server& server) {
    server.Post("/land", [](const httplib::Request& request, httplib::Response& response) {
      response.status = 418;
      response.set_content(request.get_header_value("X-One") + request.body, "text/plain");
    });
    server.Post("/hop", [](const auto&, auto& response) { response.set_redirect("/land?secret", 307); });
    server.Post("/loop", [](const auto&, auto& response) { response.set_redirect("/loop", 307); });
    server.Post("/away", [&](const auto&, auto& response) { response.set_redirect(silent.BaseURL(), 307); });
  });
  const std::string base = "http://name:secret@" + loopback.BaseURL().substr(std::strlen("http://"));
  const std::tuple<std::string, int, std::optional<std::string>> rows[] = {
      {base + "/land?secret", 0, "1{}"}, {base + "/hop", 3, "1{}"}, {base + "/hop", 0, {}}, {base + "/loop", 3, {}},
      {base + "/away", 3, {}},           {silent.BaseURL(), 0, {}},  {"file:///etc/passwd", 0, {}},
      {reset.BaseURL(), 0, {}},          {notHttp.BaseURL(), 0, {}}, {flood.BaseURL(), 0, {}}};
  SetDiagnosticsFolder(temp.path().string());
  std::vector<std::thread> threads;
  for (const auto& row : rows) {
    threads.emplace_back([&row] {
      const auto& [url, redirects, body] = row;
      const auto start = std::chrono::steady_clock::now();
      HttpResponse response = HttpSend({.method = "POST", .url = url, .headers = {"X-One: 1"}, .body = "{}",
                                        .idle = 1s, .sameOriginRedirects = redirects});
      EXPECT_EQ(response.status, body ? 418 : 0) << url;
      EXPECT_EQ(response.body, body) << url;
      EXPECT_LT(std::chrono::steady_clock::now() - start, 3s) << url;
    });
  }
  for (std::thread& thread : threads) thread.join();
  latch.Open();
  EXPECT_EQ(silent.Accepted(), 1);
  const std::vector<std::string> lines = ReadDiagnosticsTail(DiagnosticsLogPath(), 99);
  SetDiagnosticsFolder("");
  EXPECT_EQ(lines.size(), 14u);  // one per exchange, each hop being one
  const std::regex line(R"(2023-11-14T22:13:20\.250Z http POST (127\.0\.0\.1:\d+)?/[\w/]* )"
                        R"(-> (418|307|(0|200) \(.+\)) in \d+ ms)");
  for (const std::string& logged : lines) EXPECT_TRUE(std::regex_match(logged, line)) << logged;
}

}  // namespace
}  // namespace orvistelle::platform
