#include "platform/HttpDiagnostics.h"

#include "platform/DiagnosticsLog.h"

namespace orvistelle::platform {
namespace {

std::string HostAndPath(const CurlLibrary& curl, const std::string& address) {
  CurlUrl url(curl, address);
  if (!url.Parsed()) return "(unparsable URL)";
  std::optional<std::string> port = url.Part(CURLUPART_PORT);
  return url.Part(CURLUPART_HOST).value_or("") + (port ? ":" + *port : "") + url.Part(CURLUPART_PATH).value_or("");
}

}  // namespace

void NoteHttpExchange(const CurlLibrary& curl, CURL* handle, const HttpRequest& request, CURLcode result,
                      const std::string& route) {
  long status = 0;
  curl_off_t micros = 0;
  curl.easyGetinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  curl.easyGetinfo(handle, CURLINFO_TOTAL_TIME_T, &micros);
  std::string line = "http " + request.method + " " + HostAndPath(curl, request.url) + " -> " + std::to_string(status);
  if (result != CURLE_OK) line += std::string(" (") + curl.easyStrerror(result) + ")";
  line += " in " + std::to_string(micros / 1000) + " ms, " + route;
  Diagnose(line);
}

}  // namespace orvistelle::platform
