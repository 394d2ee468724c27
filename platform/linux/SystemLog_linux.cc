#include <syslog.h>

#include <cstdio>
#include <mutex>
#include <string>

#include "platform/NoDestructor.h"
#include "platform/Platform.h"

namespace orvistelle::platform {
namespace {

// Standard error for whoever started us from a terminal, syslog (and so the journal) for everyone else.
class StderrAndSyslog final : public SystemLog {
 public:
  void Write(std::string_view line) override {
    std::string text(line);
    std::call_once(opened_, [] { openlog("orvistelle", LOG_PID, LOG_USER); });
    (void)std::fprintf(stderr, "%s\n", text.c_str());
    syslog(LOG_NOTICE, "%s", text.c_str());
  }

 private:
  std::once_flag opened_;
};

}  // namespace

SystemLog& SystemLog::Default() {
  static NoDestructor<StderrAndSyslog> log;
  return *log;
}

}  // namespace orvistelle::platform
