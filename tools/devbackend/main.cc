// orvistelle-devbackend [--port N] [--data-dir DIR] [--manifest FILE] [--token-lifetime SECONDS]
//                       [--reuse-interval SECONDS] | --help
// Serves the development backend on 127.0.0.1 until interrupted. Port 0 picks a free port; the first line printed
// names the address in any case, so that scripts can wait for it.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string_view>

#include "tools/devbackend/DevBackend.h"

namespace {

using orvistelle::devbackend::Options;

constexpr char kUsage[] =
    "usage: orvistelle-devbackend [--port N] [--data-dir DIR] [--manifest FILE] [--token-lifetime SECONDS]\n"
    "                             [--reuse-interval SECONDS]\n"
    "  --port            port on 127.0.0.1 (default 54321; 0 picks a free one)\n"
    "  --data-dir        where the SQLite database lives (default " ORVISTELLE_DEVBACKEND_DATA
    ")\n"
    "  --manifest        the update manifest served as latest.json (default " ORVISTELLE_DEVBACKEND_MANIFEST
    ")\n"
    "  --token-lifetime  access-token lifetime in seconds (default 3600); 120 shows a refresh within minutes\n"
    "  --reuse-interval  seconds in which a spent refresh token still gets its successor (default 10); 0 revokes at\n"
    "                    once\n"
    "  --help            this text\n";
constexpr char kStopping[] =
    "Serves until interrupted (Ctrl+C or kill -TERM). What the app sent is listed at /dev; see README.md beside the\n"
    "sources for the endpoints.\n";

std::optional<int> NonNegative(std::string_view text) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string_view::npos) {
    return std::nullopt;
  }
  return std::atoi(std::string(text).c_str());
}

std::optional<Options> ParseFlags(int argc, char** argv) {
  if (argc % 2 == 0) return std::nullopt;
  Options options;
  options.dataDir = ORVISTELLE_DEVBACKEND_DATA;
  options.manifestPath = ORVISTELLE_DEVBACKEND_MANIFEST;
  for (int i = 1; i < argc; i += 2) {
    const std::string_view flag = argv[i];
    const std::string_view value = argv[i + 1];
    const auto number = NonNegative(value);
    if (flag == "--data-dir") {
      options.dataDir = value;
    } else if (flag == "--manifest") {
      options.manifestPath = value;
    } else if (flag == "--port" && number && *number <= 65535) {
      options.port = *number;
    } else if (flag == "--token-lifetime" && number && *number > 0) {
      options.accessTokenLifetimeSeconds = *number;
    } else if (flag == "--reuse-interval" && number) {
      options.reuseIntervalSeconds = *number;
    } else {
      return std::nullopt;
    }
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage << kStopping;
    return 0;
  }
  auto options = ParseFlags(argc, argv);
  if (!options) {
    std::cerr << kUsage;
    return 2;
  }
  // Every thread inherits the blocked signals, so only sigwait below sees them.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  orvistelle::devbackend::DevBackend backend(*options);
  std::string error;
  if (!backend.Start(&error)) {
    std::cerr << "orvistelle-devbackend: " << error << "\n";
    return 1;
  }
  std::cout << "Orvistelle development backend on " << backend.BaseURL() << " (what the app sent: " << backend.BaseURL()
            << "/dev)" << std::endl;
  int received = 0;
  sigwait(&stopSignals, &received);
  backend.Stop();
  return 0;
}
