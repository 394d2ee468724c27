// What the support command reports of the account session and the update check, gathered where the two modules meet.
#pragma once

#include <string>

namespace orvistelle::service {

struct ServicesReport {
  bool session = false;   // a session is held; no token ever leaves here
  std::string signature;  // the manifest signature's state, as the update module names it
  std::string latest;     // the latest version; "" before a manifest
  std::string update;     // "required", "optional" or "none"
};

// Where the library reaches the account backend and the download server, development overrides included: the
// support command asks both whether they answer.
struct BackendEndpoints {
  std::string user;      // the signed-in user's account
  std::string manifest;  // the version manifest
};
BackendEndpoints CurrentBackendEndpoints();

// Checks the manifest now, on the calling thread: it blocks for up to two requests' time limits, so it is for the
// support command, never for a host's thread.
ServicesReport ReportServicesNow();

}  // namespace orvistelle::service
