// libcurl, opened on the first request rather than when the program loads: a window or a plug-in host that never
// asks the network anything pays neither for the library and its dozens of dependencies nor for their set-up.
#pragma once

#include <curl/curl.h>

#include <optional>
#include <string>

namespace orvistelle::platform {

// The functions the transport calls, and the connection pool that every request shares.
struct CurlLibrary {
  decltype(&::curl_easy_init) easyInit;
  decltype(&::curl_easy_cleanup) easyCleanup;
  decltype(&::curl_easy_setopt) easySetopt;
  decltype(&::curl_easy_perform) easyPerform;
  decltype(&::curl_easy_getinfo) easyGetinfo;
  decltype(&::curl_easy_strerror) easyStrerror;
  decltype(&::curl_slist_append) slistAppend;
  decltype(&::curl_slist_free_all) slistFreeAll;
  decltype(&::curl_url) url;
  decltype(&::curl_url_cleanup) urlCleanup;
  decltype(&::curl_url_set) urlSet;
  decltype(&::curl_url_get) urlGet;
  decltype(&::curl_free) free;
  CURLSH* share;
};

// The library, loaded and set up by the first call, whichever thread makes it; nullptr when it cannot be loaded,
// which has been logged once. Never unloaded: detached request threads may still use it while the process exits.
const CurlLibrary* Curl();

// An absolute URL taken apart by libcurl's own parser, so that what is checked is what would be requested.
class CurlUrl {
 public:
  CurlUrl(const CurlLibrary& curl, const std::string& text);
  ~CurlUrl();
  CurlUrl(const CurlUrl&) = delete;
  CurlUrl& operator=(const CurlUrl&) = delete;

  bool Parsed() const { return parsed_; }
  // Nothing when the URL does not parse or has no such part.
  std::optional<std::string> Part(CURLUPart which, unsigned int flags = 0) const;

 private:
  const CurlLibrary& curl_;
  CURLU* url_;
  bool parsed_;
};

}  // namespace orvistelle::platform
