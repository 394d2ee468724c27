// The version manifest on the download server. Only the entry of this host is read; every other key is ignored.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "platform/HttpTransport.h"

namespace orvistelle::update {

inline constexpr char kHostKey[] = "fcp";

// A value of the wrong JSON type reads as "", and as nothing for the direct download, which is read from
// "download_<platform>" ("download_linux" here, as a Mac build reads "download_macos"); so does a version that is
// not one (see IsVersion).
struct HostEntry {
  std::string version;
  std::string forceBelow;
  std::string notes;
  std::string downloadPage;
  std::optional<std::string> download;  // this platform's direct download: only a non-empty string
};

struct NotAnObject {};       // the body is no JSON object: ignored without a word
struct MissingHostEntry {};  // no "hosts" object, or no object for this host in it

using ManifestReading = std::variant<HostEntry, NotAnObject, MissingHostEntry>;

ManifestReading ReadManifest(std::string_view body);

// The manifest's GET: 12 s of silence or 14 s in all end it, and a moved manifest is followed a few times, but only
// within the download server's own origin.
platform::HttpRequest ManifestRequest(std::string url);

}  // namespace orvistelle::update
