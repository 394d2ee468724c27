// Chooses the interface language in a test the way a host would: through a fake list of preferred languages.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "orvistelle/FcpI18n.h"
#include "platform/testing/FakePlatform.h"

namespace orvistelle::i18n {

// A tag that selects each language index, in column order.
inline const char* const kTagForLanguage[] = {"en-US", "zh-Hans-CN", "zh-Hant-TW", "ja-JP",
                                              "ko-KR", "pt-BR",      "es-ES",      "de-DE"};

class I18nTest : public ::testing::Test {
 protected:
  void ApplyPreferred(std::vector<std::string> tags) {
    languages_.SetPreferred(std::move(tags));
    FcpI18nApplyHostLocale();
  }
  void UseLanguage(int index) { ApplyPreferred({kTagForLanguage[index]}); }
  // Later tests in the same process start from English again.
  void TearDown() override { ApplyPreferred({}); }

 private:
  platform::testing::FakeLanguages languages_;
  platform::ScopedSeam<platform::Languages> seam_{&languages_};
};

}  // namespace orvistelle::i18n
