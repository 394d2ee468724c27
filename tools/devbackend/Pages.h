// The HTML the development backend serves: the product's website and guide as a developer needs them, and the
// /dev page that shows what the app has sent.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/devbackend/Store.h"

namespace orvistelle::devbackend {

// "2024-05-01T12:00:00Z"; times in the store are seconds since 1970.
std::string IsoTime(double seconds);
std::string HtmlEscape(std::string_view text);

// Website pages; lang is "" for English or one of the site's language prefixes without its slash.
std::string SiteHomePage(std::string_view lang);
std::string SignUpPage(std::string_view lang);
std::string TermsPage(std::string_view lang);
std::string PrivacyPage(std::string_view lang);
std::string SignInPage(std::string_view lang, std::string_view flowId, std::string_view email, std::string_view error);
std::string SignedInPage(std::string_view lang, std::string_view email);
std::string DocsHomePage(std::string_view lang);
std::string DocsInstallPage(std::string_view lang);
std::string NotFoundPage(std::string_view path);

struct DevPageData {
  std::string manifestPath;
  std::string dataDir;
  int tokenLifetimeSeconds = 0;
  std::string csrfToken;  // goes into every form, which the server checks on submission
  std::string updatePublicKey;
  std::string signatureState;
  std::vector<HeartbeatRow> heartbeats;
  std::vector<FetchRow> fetches;
  std::vector<SessionRow> sessions;
  std::vector<RelayRow> relays;
};
std::string DevPage(const DevPageData& data);

}  // namespace orvistelle::devbackend
