#pragma once

#include <string>

namespace orvistelle::devbackend {

// The outer layer of a Debian package, an ar archive, holding the format version and one README that says this is
// no real download: the app's fallback download link then opens something a developer can inspect. Installing it
// fails, as it should.
std::string StandInPackage();

}  // namespace orvistelle::devbackend
