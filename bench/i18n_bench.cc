// Text lookup cost: FcpT against GNU gettext's dgettext on a .mo compiled from the same catalogue, both in German,
// both cycling through every key in catalogue order.
#include <benchmark/benchmark.h>
#include <libintl.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "GermanInterface.h"
#include "i18n/Catalogue.h"
#include "orvistelle/FcpI18n.h"

namespace {

constexpr char kDomain[] = "orvistelle";

const std::vector<const char*>& Keys() {
  static const std::vector<const char*> keys = [] {
    std::vector<const char*> all;
    for (const auto& entry : orvistelle::i18n::CatalogueEntries()) all.push_back(entry.key);
    return all;
  }();
  return keys;
}

void BM_FcpT(benchmark::State& state) {
  const auto& keys = Keys();
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(FcpT(keys[next]));
    if (++next == keys.size()) next = 0;
  }
}
BENCHMARK(BM_FcpT);

void BM_dgettext(benchmark::State& state) {
  const auto& keys = Keys();
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(dgettext(kDomain, keys[next]));
    if (++next == keys.size()) next = 0;
  }
}
BENCHMARK(BM_dgettext);

// gettext translates only outside the "C" locale. A German locale is the natural setting; where none is installed,
// C.UTF-8 with LANGUAGE=de makes gettext read the same German catalogue.
void UseGermanForGettext() {
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
    setenv("LANGUAGE", "de", 1);
    std::setlocale(LC_ALL, "C.UTF-8");
  }
  bindtextdomain(kDomain, ORVISTELLE_BENCH_LOCALE_DIR);
  bind_textdomain_codeset(kDomain, "UTF-8");
}

// A gettext that found no catalogue answers with the key at once, which would make it look fast for nothing.
bool BothAnswerAlike() {
  for (const char* key : Keys()) {
    const std::string ours = FcpT(key);
    const char* theirs = dgettext(kDomain, key);
    if (ours != theirs || ours == key) {
      std::fprintf(stderr, "i18n_bench: \"%s\" reads \"%s\" here and \"%s\" through gettext\n", key, ours.c_str(),
                   theirs);
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const orvistelle::bench::GermanInterface german;
  UseGermanForGettext();
  if (!BothAnswerAlike()) return 1;
  std::fprintf(stderr, "i18n_bench: %zu keys, LC_MESSAGES=%s\n", Keys().size(), std::setlocale(LC_MESSAGES, nullptr));
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
