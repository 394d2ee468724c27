#include <sys/stat.h>

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "platform/DevOverrides.h"
#include "platform/DiagnosticsLog.h"
#include "platform/HttpTransport.h"
#include "platform/InfoPlist.h"
#include "platform/SupportFolder.h"
#include "platform/testing/ChildProcess.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::platform {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

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


class TwoHomes final : public Home {
 public:
  TwoHomes(std::string database, std::string directory)
      : database_(std::move(database)), directory_(std::move(directory)) {}
  std::string FromUserDatabase() override { return database_; }
  std::string Directory() override { return directory_; }

 private:
  const std::string database_, directory_;
};

// A host started with another HOME must find the app's files; the database, which may be remote, is asked once.
TEST(SupportFolder, FollowsTheUserDatabaseAskedOncePerProcess) {
  for (const auto& [database, expected] : {std::pair("/db", "/db"), std::pair("", "/env")}) {
    TwoHomes home(database, "/env");
    ScopedSeam<Home> fake(&home);
    EXPECT_EQ(SupportFolder(), std::string(expected) + "/.local/share/orvistelle") << database;
  }
  setenv("ORVISTELLE_DEV_HOME", "/first", 1);
  const std::string first = SupportFolder();
  setenv("ORVISTELLE_DEV_HOME", "/second", 1);
  EXPECT_EQ(std::pair(first, SupportFolder()), std::pair(first, std::string("/first/.local/share/orvistelle")));
  unsetenv("ORVISTELLE_DEV_HOME");
}

// As the desktop's own tools read user-dirs.dirs: the last assignment, "$HOME" expanded, the home itself meaning none.
TEST(VideosFolder, IsTheOneUserDirsNamesElseVideos) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"none", nullptr, "/h/Videos"},
      {"expanded", "XDG_VIDEOS_DIR=\"$HOME/Filme\"\n", "/h/Filme"},
      {"absolute, spaced", "  XDG_VIDEOS_DIR = \"/media/v/\"", "/media/v"},
      {"the last", "XDG_VIDEOS_DIR=\"$HOME/a\"\nXDG_VIDEOS_DIR=\"$HOME/b\"\n", "/h/b"},
      {"commented", "# XDG_VIDEOS_DIR=\"$HOME/x\"\n", "/h/Videos"},
      {"turned off", "XDG_VIDEOS_DIR=\"$HOME/\"", "/h/Videos"},
      {"other keys", "XDG_VIDEOS_DIRS=\"/x\"\nXDG_MUSIC_DIR=\"/y\"\nXDG_VIDEOS_DIR=\"$HOMEX/z\"", "/h/Videos"},
      {"unquoted", "XDG_VIDEOS_DIR=/x", "/h/Videos"},
      {"unclosed", "XDG_VIDEOS_DIR=\"/x", "/h/Videos"}};
  testing::TempDir temp;
  testing::FakeHome home("/h");
  ScopedSeam<Home> fake(&home);
  const std::string config = (temp.path() / "config").string();
  for (const char* configHome : {config.c_str(), "relative"}) {
    for (const auto& [what, text, expected] : rows) {
      fs::remove_all(config);
      fs::create_directories(config);
      if (text != nullptr) std::ofstream(config + "/user-dirs.dirs") << text;
      const auto getenv = [configHome](const char* name) {
        return std::string(name) == "XDG_CONFIG_HOME" ? configHome : nullptr;
      };
      EXPECT_EQ(VideosFolder(getenv), configHome == config ? expected : "/h/Videos") << what << " in " << configHome;
    }
  }
}

// Every entry under `root`, links not followed: "folder", "link <target>", "pipe", or a file's mode and contents.
std::map<std::string, std::string> Tree(const fs::path& root) {
  std::map<std::string, std::string> entries;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const fs::file_status status = entry.symlink_status();
    std::string& seen = entries[entry.path().lexically_relative(root).string()];
    if (fs::is_symlink(status)) seen = "link " + fs::read_symlink(entry.path()).string();
    else if (fs::is_directory(status)) seen = "folder";
    else if (fs::is_fifo(status)) seen = "pipe";
    else seen = (status.permissions() == fs::perms(0600) ? "private " : "shared ") + testing::ReadWholeFile(entry);
  }
  return entries;
}

// Moving "old/in/item" to "new/item": only a real file or folder, never over one, never through a link; every
// folder of the old path that is left empty goes.
TEST(MoveFromEarlierPlace, MovesOnlyWhatIsReallyThereAndClearsTheEmptiedFolders) {
  using Entries = std::map<std::string, std::string>;
  const auto file = [](const fs::path& path, const char* contents) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << contents;
    fs::permissions(path, fs::perms(0644));
  };
  const auto link = [](const char* target, const fs::path& path) {
    fs::create_directories(path.parent_path());
    fs::create_symlink(target, path);
  };
  const std::tuple<const char*, std::function<void(const fs::path&)>, Entries> rows[] = {
      {"a file", [&](const fs::path& root) { file(root / "old/in/item", "s"); },
       {{"new", "folder"}, {"new/item", "private s"}}},
      {"a file beside another",
       [&](const fs::path& root) {
         file(root / "old/in/item", "s");
         file(root / "old/keep", "k");
       },
       {{"new", "folder"}, {"new/item", "private s"}, {"old", "folder"}, {"old/keep", "shared k"}}},
      {"a folder", [&](const fs::path& root) { file(root / "old/in/item/f", "f"); },
       {{"new", "folder"}, {"new/item", "folder"}, {"new/item/f", "shared f"}}},
      {"a taken place",
       [&](const fs::path& root) {
         file(root / "old/in/item", "s");
         file(root / "new/item", "t");
       },
       {{"new", "folder"}, {"new/item", "shared t"}, {"old", "folder"}, {"old/in", "folder"},
        {"old/in/item", "shared s"}}},
      {"a linked file",
       [&](const fs::path& root) {
         file(root / "away", "a");
         link("../../away", root / "old/in/item");
       },
       {{"away", "shared a"}, {"old", "folder"}, {"old/in", "folder"}, {"old/in/item", "link ../../away"}}},
      {"a linked folder on the way",
       [&](const fs::path& root) {
         file(root / "away/item", "a");
         link("../away", root / "old/in");
       },
       {{"away", "folder"}, {"away/item", "shared a"}, {"old", "folder"}, {"old/in", "link ../away"}}},
      {"a pipe",
       [](const fs::path& root) {
         fs::create_directories(root / "old/in");
         mkfifo((root / "old/in/item").c_str(), 0600);
       },
       {{"old", "folder"}, {"old/in", "folder"}, {"old/in/item", "pipe"}}},
      {"empty folders", [](const fs::path& root) { fs::create_directories(root / "old/in"); }, {}}};
  for (const auto& [what, arrange, expected] : rows) {
    testing::TempDir root;
    arrange(root.path());
    MoveFromEarlierPlace(root.path().string(), "old/in/item", (root.path() / "new/item").string());
    EXPECT_EQ(Tree(root.path()), expected) << what;
  }
}

}  // namespace
}  // namespace orvistelle::platform
