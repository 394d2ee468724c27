#include "platform/HttpTransport.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "orvistelle/BuildConfig.h"
#include "platform/CurlLibrary.h"
#include "platform/HttpDiagnostics.h"
#include "platform/Platform.h"
#include "platform/SystemProxy.h"

namespace orvistelle::platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

struct Transfer {
  std::string body;
  bool tooLarge = false;
  SteadyClock::time_point deadline;
  std::chrono::milliseconds idle{0};
  SteadyClock::time_point lastActivity = SteadyClock::now();
  SteadyClock::time_point lastCall;  // of AbortWhenStalled; none yet while it is the epoch
  curl_off_t bytesMoved = 0;
};

// libcurl calls AbortWhenStalled about once a second even when nothing flows; a longer gap means that the process
// was stopped (a signal, a debugger), and that time does not count against the transfer.
constexpr auto kLongestCallGap = std::chrono::seconds(2);

size_t CollectBody(char* data, size_t size, size_t count, void* userdata) {
  auto* transfer = static_cast<Transfer*>(userdata);
  size_t bytes = size * count;
  if (transfer->body.size() + bytes > kMaxResponseBytes) {
    transfer->tooLarge = true;
    return 0;  // aborts the transfer
  }
  transfer->body.append(data, bytes);
  transfer->lastActivity = SteadyClock::now();
  return bytes;
}

// A head arriving line by line is data flowing too.
size_t NoteHeaderLine(char*, size_t size, size_t count, void* userdata) {
  static_cast<Transfer*>(userdata)->lastActivity = SteadyClock::now();
  return size * count;
}

// Silence longer than the idle limit ends the transfer, however long it has run; the caller's wait bounds it all,
// including phases that the transfer timeout might not interrupt in time. Both count only time the process was
// running, so that an answer already waiting in the socket when a stopped process resumes is still taken: the
// server may have acted on the request (a refresh token rotated) and not do so again.
int AbortWhenStalled(void* userdata, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
  auto* transfer = static_cast<Transfer*>(userdata);
  SteadyClock::time_point now = SteadyClock::now();
  if (transfer->lastCall != SteadyClock::time_point() && now - transfer->lastCall > kLongestCallGap) {
    transfer->deadline += now - transfer->lastCall;
    transfer->lastActivity = std::min(transfer->lastActivity + (now - transfer->lastCall), now);
  }
  transfer->lastCall = now;
  if (received + sent != transfer->bytesMoved) {
    transfer->bytesMoved = received + sent;
    transfer->lastActivity = now;
  }
  return now >= transfer->deadline || now - transfer->lastActivity >= transfer->idle ? 1 : 0;
}

struct EasyHandle {
  explicit EasyHandle(const CurlLibrary& library) : curl(library), handle(library.easyInit()) {}
  ~EasyHandle() { curl.easyCleanup(handle); }
  EasyHandle(const EasyHandle&) = delete;
  EasyHandle& operator=(const EasyHandle&) = delete;

  const CurlLibrary& curl;
  CURL* handle;
};

class HeaderList {
 public:
  explicit HeaderList(const CurlLibrary& curl) : curl_(curl) {}
  ~HeaderList() { curl_.slistFreeAll(head_); }
  HeaderList(const HeaderList&) = delete;
  HeaderList& operator=(const HeaderList&) = delete;

  // curl_slist_append returns the list's head, or nothing when it could not append.
  bool Append(const char* header) {
    curl_slist* head = curl_.slistAppend(head_, header);
    if (head == nullptr) return false;
    head_ = head;
    return true;
  }
  curl_slist* get() const { return head_; }

 private:
  const CurlLibrary& curl_;
  curl_slist* head_ = nullptr;
};

void SetMethodAndBody(const EasyHandle& easy, const HttpRequest& request) {
  const auto setopt = easy.curl.easySetopt;
  if (request.body) {
    setopt(easy.handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
    setopt(easy.handle, CURLOPT_POSTFIELDS, request.body->data());
  }
  if (request.method == "GET" && !request.body) {
    setopt(easy.handle, CURLOPT_HTTPGET, 1L);
  } else if (request.method == "HEAD") {
    setopt(easy.handle, CURLOPT_NOBODY, 1L);
  } else if (request.method != "POST" || !request.body) {
    setopt(easy.handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
  }
}

// libcurl's own transfer timeout counts a stop of the process too, so it is only a backstop for a transfer whose
// progress calls have ceased, well behind the caller's wait that AbortWhenStalled keeps.
void SetLimits(const EasyHandle& easy, const HttpRequest& request, Transfer& transfer) {
  constexpr std::chrono::milliseconds kBackstop = std::chrono::minutes(10);
  const auto setopt = easy.curl.easySetopt;
  auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(transfer.deadline - SteadyClock::now());
  setopt(easy.handle, CURLOPT_TIMEOUT_MS, static_cast<long>(std::max(remaining.count(), 1L) + kBackstop.count()));
  setopt(easy.handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(request.idle, remaining).count()));
  setopt(easy.handle, CURLOPT_NOSIGNAL, 1L);
  setopt(easy.handle, CURLOPT_NOPROGRESS, 0L);
  setopt(easy.handle, CURLOPT_XFERINFOFUNCTION, &AbortWhenStalled);
  setopt(easy.handle, CURLOPT_XFERINFODATA, &transfer);
  setopt(easy.handle, CURLOPT_HEADERFUNCTION, &NoteHeaderLine);
  setopt(easy.handle, CURLOPT_HEADERDATA, &transfer);
  setopt(easy.handle, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaxResponseBytes));
}

// Redirects are never followed here: HttpSend decides on each one itself.
void SetSecurity(const EasyHandle& easy) {
  const auto setopt = easy.curl.easySetopt;
  setopt(easy.handle, CURLOPT_FOLLOWLOCATION, 0L);
  setopt(easy.handle, CURLOPT_PROTOCOLS_STR, "http,https");
  setopt(easy.handle, CURLOPT_SSL_VERIFYPEER, 1L);
  setopt(easy.handle, CURLOPT_SSL_VERIFYHOST, 2L);
}

// With the desktop's choice made, libcurl must not second-guess it from the environment's no_proxy.
void SetProxy(const EasyHandle& easy, const ProxyRoute& route) {
  if (!route.proxy) return;
  easy.curl.easySetopt(easy.handle, CURLOPT_PROXY, route.proxy->c_str());
  easy.curl.easySetopt(easy.handle, CURLOPT_NOPROXY, "");
}

struct Exchange {
  HttpResponse response;
  std::optional<std::string> redirect;  // the absolute target of a redirect answer
};

Exchange Perform(const CurlLibrary& curl, const HttpRequest& request, const std::string& url,
                 SteadyClock::time_point deadline) {
  ProxyRoute route = RouteFor(curl, url);
  Exchange exchange;
  exchange.response.route = route.name;
  EasyHandle easy(curl);
  if (easy.handle == nullptr || SteadyClock::now() >= deadline) return exchange;
  Transfer transfer;
  transfer.deadline = deadline;
  transfer.idle = request.idle;

  HeaderList headers(curl);
  for (const std::string& header : request.headers) {
    if (!headers.Append(header.c_str())) return exchange;
  }
  // libcurl would otherwise ask the server for a "100 Continue" before sending larger bodies.
  if (request.body && !headers.Append("Expect:")) return exchange;
  std::string userAgent = UserAgent();

  curl.easySetopt(easy.handle, CURLOPT_URL, url.c_str());
  curl.easySetopt(easy.handle, CURLOPT_SHARE, curl.share);
  curl.easySetopt(easy.handle, CURLOPT_HTTPHEADER, headers.get());
  curl.easySetopt(easy.handle, CURLOPT_USERAGENT, userAgent.c_str());
  curl.easySetopt(easy.handle, CURLOPT_WRITEFUNCTION, &CollectBody);
  curl.easySetopt(easy.handle, CURLOPT_WRITEDATA, &transfer);
  SetMethodAndBody(easy, request);
  SetLimits(easy, request, transfer);
  SetSecurity(easy);
  SetProxy(easy, route);

  CURLcode result = curl.easyPerform(easy.handle);
  NoteHttpExchange(curl, easy.handle, request, result, route.name);
  if (result != CURLE_OK || transfer.tooLarge) return exchange;
  long status = 0;
  curl.easyGetinfo(easy.handle, CURLINFO_RESPONSE_CODE, &status);
  if (status == 0) return exchange;
  char* redirect = nullptr;
  curl.easyGetinfo(easy.handle, CURLINFO_REDIRECT_URL, &redirect);
  if (redirect != nullptr) {
    exchange.redirect = redirect;
  } else {
    exchange.response.status = status;
    exchange.response.body = std::move(transfer.body);
  }
  return exchange;
}

std::string Lowercase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// "scheme://host:port", or nothing for a URL that does not parse.
std::optional<std::string> Origin(const CurlLibrary& curl, std::string_view text) {
  CurlUrl url(curl, std::string(text));
  std::optional<std::string> scheme = url.Part(CURLUPART_SCHEME);
  std::optional<std::string> host = url.Part(CURLUPART_HOST);
  std::optional<std::string> port = url.Part(CURLUPART_PORT, CURLU_DEFAULT_PORT);
  if (!scheme || !host || !port) return std::nullopt;
  return Lowercase(*scheme + "://" + *host + ":" + *port);
}

// A product token as HTTP allows it: anything but letters, digits and the token punctuation is percent-escaped.
std::string Token(std::string_view text) {
  static constexpr std::string_view kPunctuation = "!#$&'*+-.^_`|~";
  std::string token;
  for (unsigned char c : text) {
    if (std::isalnum(c) || kPunctuation.find(static_cast<char>(c)) != std::string_view::npos) {
      token += static_cast<char>(c);
    } else {
      static constexpr char kHex[] = "0123456789ABCDEF";
      token += {'%', kHex[c >> 4], kHex[c & 15]};
    }
  }
  return token;
}

std::string OperatingSystemName() {
  const std::optional<OperatingSystemNames> system = OperatingSystem();
  return system ? Token(system->name) : "unknown";
}

}  // namespace

HttpResponse HttpSend(const HttpRequest& request) {
  SteadyClock::time_point deadline = SteadyClock::now() + request.wait;
  const CurlLibrary* curl = Curl();
  if (curl == nullptr) return {};
  std::string url = request.url;
  for (int hop = 0;; ++hop) {
    Exchange exchange = Perform(*curl, request, url, deadline);
    if (!exchange.redirect) return std::move(exchange.response);
    if (hop >= request.sameOriginRedirects || !SameOrigin(url, *exchange.redirect)) {
      return {0, std::nullopt, std::move(exchange.response.route)};
    }
    url = std::move(*exchange.redirect);
  }
}

std::string UserAgent() {
  Bundle& bundle = Seam<Bundle>::Get();
  std::string product = Token(std::filesystem::path(bundle.Main().executablePath).filename().string());
  if (std::optional<std::string> version = bundle.InfoString("CFBundleVersion"); version && !product.empty()) {
    product += "/" + Token(*version);
  }
  std::string library = std::string("orvistelle/") + config::kVersion + " (" + OperatingSystemName() + ")";
  return product.empty() ? library : product + " " + library;
}

bool SameOrigin(std::string_view a, std::string_view b) {
  const CurlLibrary* curl = Curl();
  if (curl == nullptr) return false;
  std::optional<std::string> first = Origin(*curl, a);
  return first && first == Origin(*curl, b);
}

}  // namespace orvistelle::platform
