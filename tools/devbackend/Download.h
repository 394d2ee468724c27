#pragma once

#include <string>

namespace orvistelle::devbackend {

// A small, valid ZIP archive holding one README that says this is no real download: the app's fallback download
// link then opens something a developer can inspect.
std::string StandInDownloadZip();

}  // namespace orvistelle::devbackend
