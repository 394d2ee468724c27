#include <sys/stat.h>

#include "app/Probes.h"
#include "app/Setup.h"
#include "app/tests/ShellFixture.h"

namespace orvistelle::shell::testing {
namespace {

using ProbeTest = ShellFixture;

TEST_F(ProbeTest, PlainFilesInPlaceOfFoldersCountAsAbsent) {
  fs::remove_all(Plugin());
  WriteFile(Plugin(), "not a bundle");
  WriteFile(InstalledTemplate(), "not a template");
  EXPECT_FALSE(HasXPCPlugin());
  EXPECT_FALSE(HasMotionTemplate());
}

TEST_F(ProbeTest, BundleWithoutPlugInsFolderHasNoPluginAndSkipsThePluginTemplate) {
  WriteFile(Plugin() / "Contents/Resources/MotionTemplates/Effects/Orvistelle.localized/x", "");
  fs::remove_all(BundledTemplate());
  bundleSeam_.ChangeLocation([](platform::BundleLocation& location) { location.builtInPlugInsPath.clear(); });
  EXPECT_EQ(XpcPluginPath(), std::nullopt);
  EXPECT_FALSE(HasXPCPlugin());
  EXPECT_EQ(BundledTemplatePath(), BundledTemplate().string());  // first candidate, absent
  EXPECT_FALSE(HasBundledTemplate());
}

TEST_F(ProbeTest, TemplateSearchPrefersResourcesThenPluginThenTheTreeAboveTheExecutable) {
  const fs::path pluginCopy = Plugin() / "Contents/Resources/MotionTemplates/Effects/Orvistelle.localized";
  fs::create_directories(pluginCopy);
  EXPECT_EQ(BundledTemplatePath(), BundledTemplate().string());
  fs::remove_all(BundledTemplate());
  EXPECT_EQ(BundledTemplatePath(), pluginCopy.string());
  fs::remove_all(pluginCopy);
  // The executable's folder and its seven nearest ancestors are searched; the eighth is not.
  const fs::path tree = temp_.path() / "tree";
  fs::path folder = tree / "1/2/3/4/5/6/7/8";
  bundleSeam_.ChangeLocation([&folder](platform::BundleLocation& location) {
    location.executablePath = (folder / "exe").string();
  });
  fs::create_directories(tree / "templates/Effects/Orvistelle.localized");
  EXPECT_FALSE(HasBundledTemplate());
  fs::create_directories(tree / "1/templates/Effects/Orvistelle.localized");
  EXPECT_EQ(BundledTemplatePath(), (tree / "1/templates/Effects/Orvistelle.localized").string());
}

TEST_F(ProbeTest, UpwardSearchStopsAtTheRoot) {
  bundleSeam_.SetLocation({"/orvistelle-nowhere", "/orvistelle-nowhere/exe", "", ""});
  EXPECT_EQ(BundledTemplatePath(), "/orvistelle-nowhere/templates/Effects/Orvistelle.localized");
  bundleSeam_.SetLocation({});
  EXPECT_EQ(BundledTemplatePath(), "");
}

TEST_F(ProbeTest, HostProbeMatchesOnlyThisBundleWithLinksResolved) {
  const fs::path link = temp_.path() / "link.app";
  fs::create_directory_symlink(bundle_, link);
  database_.listed = {(temp_.path() / "Downloads/Orvistelle FCP Beauty.app").string()};
  EXPECT_FALSE(IsHostRegisteredForThisApp());
  database_.listed.push_back(link.string());
  EXPECT_TRUE(IsHostRegisteredForThisApp());
  EXPECT_EQ(database_.queried.back(), "net.tarnwix.orvistelle.fcp");
  // Started through the link while the database lists the real folder.
  database_.listed = {bundle_.string()};
  bundleSeam_.ChangeLocation([&link](platform::BundleLocation& location) { location.bundlePath = link.string(); });
  EXPECT_TRUE(IsHostRegisteredForThisApp());
}

struct PlanCase {
  bool host, templ;
  std::vector<std::string> calls;
  bool templateWanted;
};

class SetupPlanTest : public ShellFixture, public ::testing::WithParamInterface<PlanCase> {};

TEST_P(SetupPlanTest, RegistersUnlessOnlyTheTemplateIsMissing) {
  const PlanCase& c = GetParam();
  SetHostRegistered(c.host);
  PendingSetup pending = StartSetup({c.host, true, c.templ});
  EXPECT_EQ(database_.calls, c.calls);
  EXPECT_EQ(pending.registrationAttempted, !c.calls.empty());
  EXPECT_EQ(pending.templateWanted, c.templateWanted);
}

INSTANTIATE_TEST_SUITE_P(Probes, SetupPlanTest,
                         ::testing::Values(PlanCase{true, true, {"register"}, true},
                                           PlanCase{true, false, {}, true},
                                           PlanCase{false, true, {"register"}, false},
                                           PlanCase{false, false, {"register"}, true}));

class TemplateInstallTest : public ShellFixture {
 protected:
  std::vector<std::string> HiddenSiblings() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(InstalledTemplate().parent_path())) {
      if (entry.path().filename().string().front() == '.') names.push_back(entry.path().filename().string());
    }
    return names;
  }
  fs::path NewFile() { return InstalledTemplate() / "Orvistelle Beauty/Orvistelle Beauty.moef"; }
};

TEST_F(TemplateInstallTest, ReplacesAFolderWholeAndAFileByTheFolder) {
  SetInstalledTemplate(true);
  ASSERT_TRUE(InstallTemplateNow(nullptr));
  EXPECT_FALSE(fs::exists(InstalledTemplate() / "marker.txt"));
  EXPECT_EQ(ReadFile(NewFile()), "<ozml/>");

  fs::remove_all(InstalledTemplate());
  WriteFile(InstalledTemplate(), "a file where the folder belongs");
  ASSERT_TRUE(InstallTemplateNow(nullptr));
  EXPECT_TRUE(fs::is_directory(InstalledTemplate()));
  EXPECT_TRUE(HiddenSiblings().empty());
}

// A set-up killed halfway leaves its hidden copies behind; the next one removes them, and only them. The installed
// folders and files keep the modes that they have in the bundle.
TEST_F(TemplateInstallTest, RemovesWhatAKilledSetUpLeftAndKeepsTheSourceModes) {
  SetInstalledTemplate(true);
  const std::string name = InstalledTemplate().filename().string();
  const fs::path parent = InstalledTemplate().parent_path();
  WriteFile(parent / ("." + name + ".new-a1B2c3") / "half.moef", "<oz");
  WriteFile(parent / ("." + name + ".old-d4E5f6") / "marker.txt", "older");
  WriteFile(parent / ".unrelated", "someone else's");
  const struct {
    fs::path path;
    fs::perms mode;
  } modes[] = {{"", fs::perms(0755)}, {"Orvistelle Beauty", fs::perms(0750)},
               {"Orvistelle Beauty/Orvistelle Beauty.moef", fs::perms(0640)}};
  for (const auto& row : modes) fs::permissions(BundledTemplate() / row.path, row.mode);
  ASSERT_TRUE(InstallTemplateNow(nullptr));
  EXPECT_EQ(HiddenSiblings(), std::vector<std::string>{".unrelated"});
  for (const auto& row : modes) {
    EXPECT_EQ(fs::status(InstalledTemplate() / row.path).permissions(), row.mode) << row.path;
  }
}

TEST_F(TemplateInstallTest, FailedCopyKeepsThePreviousTemplate) {
  SetInstalledTemplate(true, "previous");
  ASSERT_EQ(mkfifo((BundledTemplate() / "pipe").c_str(), 0600), 0);  // a file type no copy can take
  InstallError error;
  EXPECT_FALSE(InstallTemplateNow(&error));
  EXPECT_EQ(error.domain, kPosixErrorDomain);
  EXPECT_FALSE(error.description.empty());
  EXPECT_EQ(ReadFile(InstalledTemplate() / "marker.txt"), "previous");
  EXPECT_TRUE(HiddenSiblings().empty());
}

TEST_F(TemplateInstallTest, LinksAreCopiedAsLinksAndNeverFollowedWhenRemoving) {
  const fs::path outside = temp_.path() / "outside";
  WriteFile(outside / "keep.txt", "mine");
  fs::create_directory_symlink(outside, BundledTemplate() / "shared");
  SetInstalledTemplate(true);
  fs::create_directory_symlink(outside, InstalledTemplate() / "link");
  ASSERT_TRUE(InstallTemplateNow(nullptr));
  EXPECT_EQ(fs::read_symlink(InstalledTemplate() / "shared"), outside);

  ASSERT_TRUE(InstallTemplateNow(nullptr));  // removes the old copy holding the "shared" link
  fs::remove_all(InstalledTemplate());
  fs::create_directory_symlink(outside, InstalledTemplate());  // the destination itself a link
  ASSERT_TRUE(InstallTemplateNow(nullptr));
  EXPECT_FALSE(fs::is_symlink(InstalledTemplate()));
  EXPECT_EQ(ReadFile(outside / "keep.txt"), "mine");
  EXPECT_EQ(std::distance(fs::directory_iterator(outside), fs::directory_iterator()), 1);
}

TEST_F(TemplateInstallTest, ReportsAHomeWhereTheFoldersCannotBeMade) {
  WriteFile(fs::path(home_.Directory()) / "Movies", "a file where a folder belongs");
  InstallError error;
  EXPECT_FALSE(InstallTemplateNow(&error));
  EXPECT_EQ(error.code, ENOTDIR);
}

}  // namespace
}  // namespace orvistelle::shell::testing
