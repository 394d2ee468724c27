#include <atomic>
#include <set>
#include <thread>

#include "i18n/tests/I18nTestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::i18n {
namespace {

using ConcurrencyTest = I18nTest;

// Readers race the first build of the catalogue and a language that keeps changing; each answer must belong
// wholly to one of the two languages.
TEST_F(ConcurrencyTest, LookupsAndLinksStayConsistentWhileTheLanguageChanges) {
  const std::string site = config::kSiteURL;
  const std::set<std::string> ready = {"準備完了", "Bereit"};
  const std::set<std::string> versions = {"バージョン 9.9", "Version 9.9"};
  const std::set<std::string> terms = {site + "/ja/terms", site + "/terms"};
  const std::set<std::string> codes = {"ja", "de"};
  UseLanguage(3);

  constexpr int kReaders = 4;
  std::atomic<int> finished{0};
  std::atomic<int> wrong{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < kReaders; ++i) {
    readers.emplace_back([&] {
      for (int round = 0; round < 2000; ++round) {
        wrong += !ready.count(FcpT("shell.stateReady")) + !versions.count(FcpTf("shell.version", "9.9")) +
                 !terms.count(FcpI18nTermsURL()) + !codes.count(FcpI18nLangCode());
      }
      ++finished;
    });
  }
  for (int round = 0; finished.load() < kReaders; ++round) UseLanguage(round % 2 == 0 ? 7 : 3);
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace orvistelle::i18n
