// Development builds only: a host started by a test, or by tools/run.sh, can aim the library at a development
// backend on any loopback port and shorten the maintenance timer, or keep it out of the real home, through its
// environment. Release builds compile both out, so the shipped product keeps its built-in endpoints and timings
// whatever the environment says.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace orvistelle::platform {

// ORVISTELLE_DEV_BACKEND: an http(s) base URL without a trailing slash that replaces the auth, API and download
// bases (one development backend serves all three). Anything else, or a release build, gives nothing.
std::optional<std::string> DevBackendBase();

// ORVISTELLE_DEV_TIMER_MS: 1 to 3600000 milliseconds, replacing the maintenance timer's first delay and period.
std::optional<std::chrono::milliseconds> DevTimerPeriod();

// ORVISTELLE_DEV_HOME: an absolute folder that stands in for the home directory the user database records, so that
// host processes started by tests keep their support files out of the real home.
std::optional<std::string> DevHomeDirectory();

// ORVISTELLE_DEV_UPDATE_KEY: base64 of the Ed25519 key that update manifests are checked with, such as the one the
// development backend shows at /dev, replacing the built-in key (which a development build may lack).
std::optional<std::string> DevUpdateKey();

}  // namespace orvistelle::platform
