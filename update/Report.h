// What the support command shows of the update check.
#pragma once

#include <string>

#include "update/ManifestSignature.h"

namespace orvistelle::update {

struct UpdateReport {
  SignatureState signature = SignatureState::kNotChecked;
  std::string latest;
  bool forced = false;
  bool soft = false;
};

// Where the check reads the manifest: the download server's, a development backend's or a test's.
std::string ManifestURL();

// Runs one check on the calling thread, unless one is running already, and reports the state after it. Blocks for up
// to two requests' time limits: for the support command, never a host's thread.
UpdateReport CheckNowAndReport();

}  // namespace orvistelle::update
