#include <chrono>

#include "platform/NoDestructor.h"
#include "platform/Platform.h"

namespace orvistelle::platform {
namespace {

class SystemClock final : public Clock {
 public:
  double Now() override {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
  }
};

}  // namespace

Clock& Clock::Default() {
  static NoDestructor<SystemClock> clock;
  return *clock;
}

}  // namespace orvistelle::platform
