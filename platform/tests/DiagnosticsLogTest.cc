#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <thread>

#include "platform/DiagnosticsLog.h"
#include "platform/HttpTransport.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// A log in a fresh state folder with a fixed clock; logging is off again afterwards.
class DiagnosticsLogTest : public ::testing::Test {
 protected:
  DiagnosticsLogTest() { SetDiagnosticsFolder(folder_.string()); }
  ~DiagnosticsLogTest() override { SetDiagnosticsFolder(""); }

  std::vector<std::string> Lines() { return ReadDiagnosticsTail(DiagnosticsLogPath(), SIZE_MAX); }

  testing::TempDir temp_;
  fs::path folder_ = temp_.path() / "state/orvistelle";
  testing::FakeClock clock_{1'700'000'000.25};
  testing::FakeHome home_{(temp_.path() / "home").string()};
  testing::RecordingLog systemLog_;
  testing::ScopedFakes seams_{&clock_, &home_, &systemLog_};
};

TEST_F(DiagnosticsLogTest, LinesCarryUtcTimeStayOneLineAndMirrorTheSystemLog) {
  Diagnose("set-up: a\nb\rc");
  Log("heartbeat failed (0)");
  EXPECT_EQ(Lines(), (std::vector<std::string>{"2023-11-14T22:13:20.250Z set-up: a b c",
                                               "2023-11-14T22:13:20.250Z heartbeat failed (0)"}));
  EXPECT_EQ(systemLog_.Snapshot(), std::vector<std::string>{"[Orvistelle] heartbeat failed (0)"});
  EXPECT_EQ(fs::status(DiagnosticsLogPath()).permissions() & fs::perms::all, fs::perms(0600));
  EXPECT_EQ(DiagnosticsFolder([](const char*) -> const char* { return "relative"; }),
            (fs::path(home_.Directory()) / ".local/state/orvistelle").string());
  EXPECT_EQ(DiagnosticsFolder([](const char*) { return "/xdg/state"; }), "/xdg/state/orvistelle");
}

TEST_F(DiagnosticsLogTest, RotatesOnceAtTheLimitAndTheTailReadsAcrossBoth) {
  const std::string filler(100, 'x');
  int written = 0;
  for (; written < 3 * static_cast<int>(kDiagnosticsLogLimit / filler.size()); ++written) {
    Diagnose(std::to_string(written) + " " + filler);
  }
  const std::string path = DiagnosticsLogPath();
  EXPECT_LT(fs::file_size(path), kDiagnosticsLogLimit);
  EXPECT_LT(fs::file_size(path + ".1"), kDiagnosticsLogLimit + 200);
  EXPECT_FALSE(fs::exists(path + ".2"));
  const std::vector<std::string> tail = ReadDiagnosticsTail(path, 3);
  ASSERT_EQ(tail.size(), 3u);
  EXPECT_EQ(tail.back(), "2023-11-14T22:13:20.250Z " + std::to_string(written - 1) + " " + filler);
  EXPECT_EQ(tail.front(), "2023-11-14T22:13:20.250Z " + std::to_string(written - 3) + " " + filler);
}

TEST_F(DiagnosticsLogTest, AnUnusableFolderOrFileLosesLinesQuietly) {
  std::ofstream(temp_.path() / "file") << "in the way";
  SetDiagnosticsFolder((temp_.path() / "file/orvistelle").string());
  Diagnose("lost");
  EXPECT_TRUE(Lines().empty());
  SetDiagnosticsFolder(folder_.string());
  fs::create_directories(DiagnosticsLogPath());  // a folder where the file belongs
  Diagnose("lost too");
  EXPECT_TRUE(Lines().empty());
  SetDiagnosticsFolder("");
  EXPECT_EQ(DiagnosticsLogPath(), "");
  Diagnose("nowhere");
}

TEST_F(DiagnosticsLogTest, ConcurrentWritersKeepEveryLineWhole) {
  constexpr int kThreads = 4, kLines = 200;
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t) {
    writers.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) Diagnose("writer " + std::to_string(t) + " line " + std::to_string(i));
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::vector<std::string> lines = Lines();
  EXPECT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
  for (const std::string& line : lines) EXPECT_TRUE(std::regex_match(line, std::regex(".*Z writer \\d line \\d+")));
}

// Credentials, flow ids and filters ride in the user information and the query; neither reaches the file.
TEST_F(DiagnosticsLogTest, RequestsGiveHostPathStatusErrorAndDurationOnly) {
  testing::LoopbackServer loopback;
  loopback.server().Get("/rest/v1/auth_relay", [](const httplib::Request&, httplib::Response& response) {
    response.status = 404;
  });
  HttpRequest request;
  request.url = "http://name:secret@" + loopback.BaseURL().substr(std::string("http://").size()) +
                "/rest/v1/auth_relay?flow=secret";
  request.headers = {"Authorization: Bearer secret"};
  HttpSend(request);
  request.method = "POST";
  request.url = "http://127.0.0.1:1/auth/v1/token?grant_type=secret#secret";
  HttpSend(request);
  const std::vector<std::string> lines = Lines();
  ASSERT_EQ(lines.size(), 2u);
  const std::regex answered(R"(.*Z http GET 127\.0\.0\.1:\d+/rest/v1/auth_relay -> 404 in \d+ ms)");
  const std::regex refused(
      R"(.*Z http POST 127\.0\.0\.1:1/auth/v1/token -> 0 \(Couldn't connect to server\) in \d+ ms)");
  EXPECT_TRUE(std::regex_match(lines[0], answered)) << lines[0];
  EXPECT_TRUE(std::regex_match(lines[1], refused)) << lines[1];
}

}  // namespace
}  // namespace orvistelle::platform
