#include "platform/HttpDiagnostics.h"

#include <memory>

#include "platform/DiagnosticsLog.h"

namespace orvistelle::platform {
namespace {

struct UrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
  void operator()(char* part) const { curl_free(part); }
};

std::string UrlPart(CURLU* url, CURLUPart which) {
  char* raw = nullptr;
  if (curl_url_get(url, which, &raw, 0) != CURLUE_OK) return {};
  std::unique_ptr<char, UrlDeleter> part(raw);
  return part.get();
}

std::string HostAndPath(const std::string& address) {
  std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
  if (!url || curl_url_set(url.get(), CURLUPART_URL, address.c_str(), 0) != CURLUE_OK) return "(unparsable URL)";
  std::string port = UrlPart(url.get(), CURLUPART_PORT);
  return UrlPart(url.get(), CURLUPART_HOST) + (port.empty() ? "" : ":" + port) + UrlPart(url.get(), CURLUPART_PATH);
}

}  // namespace

void NoteHttpExchange(CURL* curl, const HttpRequest& request, CURLcode result) {
  long status = 0;
  curl_off_t micros = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_getinfo(curl, CURLINFO_TOTAL_TIME_T, &micros);
  std::string line = "http " + request.method + " " + HostAndPath(request.url) + " -> " + std::to_string(status);
  if (result != CURLE_OK) line += std::string(" (") + curl_easy_strerror(result) + ")";
  line += " in " + std::to_string(micros / 1000) + " ms";
  Diagnose(line);
}

}  // namespace orvistelle::platform
