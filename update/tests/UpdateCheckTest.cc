#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "orvistelle/FcpUpdate.h"
#include "update/DismissalFile.h"
#include "update/ManifestSignature.h"
#include "update/Report.h"
#include "update/UpdateTesting.h"
#include "update/Version.h"
#include "update/tests/TestSupport.h"

namespace orvistelle::update {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

constexpr double kSixHours = 21600.0;
constexpr char kDirectPackage[] = "https://127.0.0.1/get/orvistelle-1.2.0.deb";  // the download server's host

TEST(CmpSemver, ComparesNumericallyAndSymmetrically) {
  const std::tuple<const char*, const char*, int> rows[] = {
      {"1.2", "1.2.0", 0}, {"v1.2.0", "1.2.0.9", 0}, {"1.10.0", "1.9.9", 1}, {"1.2.3-beta", "1.2.3", 0},
      {"", "0.0.0", -1}, {"", "", 0}, {"v", "0", 0}, {"V2", "v1.99.99", 1}, {"1.rc1.0", "1.0.0", 0},
      {" 1. 2.\t3", "1.2.3", 0}, {" \t\n\v\f\r1", "1", 0}, {"-1.0.0", "0.0.0", -1}, {"+2.0.0", "2", 0},
      {"vv1", "0", 0}, {"4294967297.0.0", "2147483647.0.0", 0}, {"1.2147483648", "1.2147483646", 1},
      {"99999999999999999999999.1", "2147483647.0", 1}, {"-99999999999.0.0", "-2147483648", 0}};
  for (const auto& [a, b, expected] : rows) {
    EXPECT_EQ(CmpSemver(a, b), expected) << a << " vs " << b;
    EXPECT_EQ(CmpSemver(b, a), -expected) << b << " vs " << a;
  }
}

TEST(IsVersion, TakesDigitGroupsAndALabelOnly) {
  for (const char* version : {"1", "v1.2.3", "V2.0", "1.2.3-beta.1", "1.2.3+build-7", "1.2.3.4", "123456789.0"}) {
    EXPECT_TRUE(IsVersion(version)) << version;
  }
  for (const char* garbage : {"", "v", "1.", ".1", "1..2", "1.2.3-", "1.2.3 ", " 1", "1.2.3\n[Orvistelle] x", "rc1",
                              "-1", "1234567890", "1.2.3-be ta", "vv1", "1.2.x"}) {
    EXPECT_FALSE(IsVersion(garbage)) << garbage;
  }
}

std::string Manifest(const json& fcp) { return json{{"hosts", {{"fcp", fcp}}}, {"schema", 2}}.dump(); }

std::string Manifest(const std::string& version, const std::string& forceBelow) {
  return Manifest(json{{"version", version}, {"force_below", forceBelow}, {"notes", "Faster skin smoothing."},
                       {"download_page", "https://example.test/get"}, {"download_linux", kDirectPackage}});
}

class UpdateCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetForTesting();
    SetDownloadBaseURLForTesting(server.BaseURL());
  }
  void CheckLater(double seconds = kSixHours) {
    fakes.clock.Advance(seconds);
    FcpUpdateMaintain();
    ASSERT_TRUE(WaitForCheckForTesting(20s));
  }
  std::vector<std::string> Offer() { return {FcpUpdateLatestVersion(), FcpUpdateNotes(), FcpUpdateDownloadURL()}; }

  testing::FakeSystem fakes;
  testing::ManifestServer server;
  const std::string package = server.BaseURL() + "/orvistelle/vask/fcp/orvistelle-fcp-linux-latest.deb";
};

// A good answer replaces all the host reads; any other is logged (or ignored if no JSON object) and changes nothing.
// Another platform's download is never offered.
TEST_F(UpdateCheck, OnlyAGoodAnswerReplacesTheOffer) {
  server.Answer(200, Manifest({{"version", "1.3.0"}, {"notes", 3}, {"download_page", "x"}, {"download_linux", ""},
                               {"download_macos", "https://example.test/get/orvistelle-1.3.0.zip"}}));
  CheckLater();
  EXPECT_EQ(Offer(), (std::vector<std::string>{"1.3.0", "", package}));  // mistyped or missing values read as empty
  server.Answer(200, Manifest("1.2.0", "1.1.0"));
  CheckLater();
  EXPECT_EQ(Offer(), (std::vector<std::string>{"1.2.0", "Faster skin smoothing.", kDirectPackage}));
  EXPECT_EQ(fakes.log.Take().back(), "[Orvistelle] update check host=fcp latest=1.2.0 force_below=1.1.0");
  const std::string missing = "update check: missing hosts.fcp";
  const std::tuple<int, std::string, std::string> failures[] = {
      {500, Manifest("9.0.0", "9.0.0"), "update check failed (500)"}, {200, "", "update check failed (200)"},
      {200, R"([{"hosts": {}}])", ""}, {200, R"({"hosts": )", ""}, {200, R"({"hosts": []})", missing},
      {200, R"({"hosts": {"fcp": "1.3.0"}})", missing}, {200, "{}", missing}};
  for (const auto& [status, body, log] : failures) {
    server.Answer(status, body);
    CheckLater();
    EXPECT_EQ(fakes.log.Take(), log.empty() ? std::vector<std::string>{} : std::vector{"[Orvistelle] " + log}) << body;
    EXPECT_EQ(Offer()[0], "1.2.0") << body;
  }
}

// The installed version is the bundle's short version string, else 0.0.0; the build number never counts.
TEST_F(UpdateCheck, ForcedFollowsForceBelowAndSoftNeedsANewerUnforcedVersion) {
  const std::tuple<std::optional<std::string>, std::string, std::string, bool, bool> offers[] = {
      {"1.0.0", "1.2.0", "1.1.0", true, false}, {"1.1.5", "1.2.0", "1.1.0", false, true},
      {"1.1.0", "1.2.0", "1.1.0", false, true}, {"1.2.0", "1.2.0", "1.3.0", true, false},
      {"1.3.0", "1.2.0", "", false, false},     {"v1.2", "1.2.0", "", false, false},
      {std::nullopt, "0.0.1", "", false, true}, {std::nullopt, "", "0.1", true, false},
      {"1.0.0", "1.2.0", "1.1.0x", false, true}, {"1.0.0", "1.2.0\n", "", false, false}};  // not versions: ignored
  fakes.bundle.SetInfo("CFBundleVersion", "9.9.9");
  for (const auto& [installed, version, forceBelow, forced, soft] : offers) {
    fakes.bundle.SetInfo("CFBundleShortVersionString", installed);
    server.Answer(200, Manifest(version, forceBelow));
    CheckLater();
    EXPECT_EQ(std::pair(FcpUpdateForced(), FcpUpdateSoftAvailable()), std::pair(forced, soft))
        << installed.value_or("none") << " of " << version;
  }
}

// For a day, also in the next run, which reads the saved dismissal when it starts and only then.
TEST_F(UpdateCheck, DismissalHidesThatVersionForADay) {
  server.Answer(200, Manifest("1.2.0", ""));
  CheckLater();
  FcpUpdateDismissSoft();
  const std::string file = fakes.homeFolder.path() / ".local/share/orvistelle/fcp-update-dismiss.json";
  EXPECT_EQ(json::parse(std::ifstream(file), nullptr, false), (json{{"version", "1.2.0"}, {"until", 1'700'108'000}}));
  EXPECT_FALSE(FcpUpdateSoftAvailable());
  SetUp();  // the next run
  CheckLater(1);
  EXPECT_FALSE(FcpUpdateSoftAvailable());
  fakes.clock.Advance(86398.75);  // to the end, which is over
  EXPECT_TRUE(FcpUpdateSoftAvailable());
  // A mistyped or broken file hides nothing, nor does an end further than a day ahead: the clock ran fast.
  const std::string aYearAhead = json{{"version", "1.2.0"}, {"until", fakes.clock.Now() + 365 * 86400.0}}.dump();
  for (const std::string& content : {std::string(R"({"version":120,"until":"1800000000"})"), std::string("{"),
                                     aYearAhead}) {
    std::ofstream(file, std::ios::trunc) << content;
    EXPECT_EQ(LoadDismissal().has_value(), content != "{") << content;
    SetUp();
    CheckLater(1);
    EXPECT_TRUE(FcpUpdateSoftAvailable()) << content;
  }
  std::ofstream(file, std::ios::trunc) << json{{"version", "1.2.0"}, {"until", fakes.clock.Now() + 3600}};
  FcpUpdateMaintain();  // a file written during the run is not read
  EXPECT_TRUE(FcpUpdateSoftAvailable());
}

// The browser goes only to this product's own servers; any other download falls back to the fixed one.
TEST_F(UpdateCheck, OpenDownloadSendsTheBrowserOnlyToThisProductsServers) {
  const std::string own = "HTTPS://127.0.0.1:1/A-Z_09~.zip?q=1#f", plain = "http://127.0.0.1/get/a%20b.zip";
  const std::pair<std::string, std::string> downloads[] = {
      {own, own}, {plain, plain}, {"https://elsewhere.test/a.zip", package},
      {"https://127.0.0.1.elsewhere.test/", package}, {"https://127.0.0.1@elsewhere.test/a.zip", package},
      {"https://127.0.0.1/a b.zip", package}, {"ftp://127.0.0.1/a.zip", package}, {"http:/127.0.0.1/a.zip", package},
      {"file:///etc/passwd", package}, {"javascript:alert(1)", package}};
  for (const auto& [url, opened] : downloads) {
    server.Answer(200, Manifest({{"version", "1.2.0"}, {"download_linux", url}}));
    CheckLater();
    FcpUpdateOpenDownload();
    EXPECT_EQ(fakes.browser.Take(), std::vector<std::string>{opened}) << url;
  }
}

// Written by tools/sign-manifest: a manifest, its signature and the key's public half.
constexpr char kSigned[] = "{\"hosts\":{\"fcp\":{\"version\":\"1.3.0\"}}}\n";
constexpr char kSignature[] =
    "pHLKbykxRkG6foLRD65TI5UWRuPfBfP4VxnwO4FFxkvrdpiW7j4Gde86CPDECKdYWCw7e12S0TGiw5wdGfbrBA==";
constexpr char kKey[] = "McGWuzdt7rG6D5KwMaiSKmb7YzILQTFn6jjTwk/j8OA=";

TEST(VerifyEd25519, TakesWhatTheReleaseToolWritesAndNothingElse) {
  std::string altered = kSigned, flipped = kSignature;
  altered[30] = '1';
  flipped[10] = 'A';
  const std::tuple<std::string, std::string, std::string, bool> rows[] = {
      {kSigned, kSignature + std::string("\n"), kKey, true}, {altered, kSignature, kKey, false},
      {kSigned, flipped, kKey, false}, {kSigned, kSignature, "11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=", false},
      {kSigned, std::string(kSignature).substr(0, 86), kKey, false}, {kSigned, kSignature, "", false},
      {kSigned, std::string(kSignature).substr(0, 86) + "AAAAAA", kKey, false},  // the signature, then more
      {kSigned, "", kKey, false}};
  for (const auto& [manifest, signature, key, good] : rows) {
    EXPECT_EQ(VerifyEd25519(manifest, signature, key), good) << manifest << signature << key;
  }
}

// With a key, nothing of a manifest is used unless its signature verifies; a bad one is logged and tried again at
// the next check.
TEST_F(UpdateCheck, OnlyAManifestSignedWithTheKeyIsUsed) {
  SetUpdatePublicKeyForTesting(kKey);
  server.Answer(200, kSigned);
  const std::string bad = "[Orvistelle] update check: bad signature";
  const std::tuple<int, std::string, std::string, std::string> rows[] = {
      {404, "", "", bad}, {200, "", "", bad}, {200, std::string(86, 'A') + "==", "", bad},
      {200, kSignature, "1.3.0", "[Orvistelle] update check host=fcp latest=1.3.0 force_below="}};
  for (const auto& [status, signature, latest, log] : rows) {
    server.AnswerSignature(status, signature);
    CheckLater();
    EXPECT_EQ(std::pair(FcpUpdateLatestVersion(), fakes.log.Take()), std::pair(latest, std::vector{log})) << signature;
  }
}

// No background check starts while one is in flight, the support command's included; the next comes six hours
// after the end of the last.
TEST_F(UpdateCheck, OneCheckAtATimeAndTheNextSixHoursAfterTheLastEnded) {
  server.Hold();
  std::jthread now([] { CheckNowAndReport(); });
  ASSERT_TRUE(platform::testing::WaitUntil([this] { return server.Requests() == 1; }));
  EXPECT_FALSE(WaitForCheckForTesting(0ms));
  fakes.clock.Advance(kSixHours + 100);
  std::vector<std::jthread> callers(8);
  for (std::jthread& caller : callers) caller = std::jthread(FcpUpdateMaintain);
  callers.clear();
  server.Release();
  now.join();
  CheckLater(kSixHours - 1);
  EXPECT_EQ(server.Requests(), 1);
  CheckLater(1);
  EXPECT_EQ(server.Requests(), 2);
}

}  // namespace
}  // namespace orvistelle::update
