#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "platform/NoDestructor.h"
#include "platform/Platform.h"

extern char** environ;

namespace orvistelle::platform {
namespace {

// xdg-open picks the user's browser (or $BROWSER). It runs with the URL as its only argument and no shell, so no
// character in a URL can be read as a command.
class XdgOpenBrowser final : public Browser {
 public:
  void Open(const std::string& url) override {
    std::string program = "xdg-open";
    std::string argument = url;
    char* argv[] = {program.data(), argument.data(), nullptr};
    pid_t child = 0;
    int error = posix_spawnp(&child, program.c_str(), nullptr, nullptr, argv, environ);
    if (error != 0) {
      Log(std::string("could not open URL: xdg-open: ") + std::strerror(error));
      return;
    }
    // Reaped off the caller's thread: xdg-open may wait on the browser for as long as it likes.
    std::thread([child] {
      int status = 0;
      while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
      }
    }).detach();
  }
};

}  // namespace

Browser& Browser::Default() {
  static NoDestructor<XdgOpenBrowser> browser;
  return *browser;
}

}  // namespace orvistelle::platform
