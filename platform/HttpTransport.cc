#include "platform/HttpTransport.h"

#include <curl/curl.h>
#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <memory>
#include <mutex>

#include "orvistelle/BuildConfig.h"
#include "platform/HttpDiagnostics.h"
#include "platform/Platform.h"

namespace orvistelle::platform {
namespace {

// libcurl's global set-up is not thread-safe, so it runs while the library loads, before any thread exists.
// The share handle lets every request reuse the pool's connections and DNS answers.
class CurlRuntime {
 public:
  CurlRuntime() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_LOCKFUNC, &CurlRuntime::Lock);
    curl_share_setopt(share_, CURLSHOPT_UNLOCKFUNC, &CurlRuntime::Unlock);
    curl_share_setopt(share_, CURLSHOPT_USERDATA, this);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  // Never torn down: detached request threads may still be using the pool while the process exits.
  CURLSH* share() const { return share_; }

 private:
  static void Lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
    static_cast<CurlRuntime*>(self)->locks_[static_cast<size_t>(data) % kLocks].lock();
  }
  static void Unlock(CURL*, curl_lock_data data, void* self) {
    static_cast<CurlRuntime*>(self)->locks_[static_cast<size_t>(data) % kLocks].unlock();
  }

  static constexpr size_t kLocks = CURL_LOCK_DATA_LAST;
  CURLSH* share_ = nullptr;
  std::array<std::mutex, kLocks> locks_;
};

CurlRuntime* const gRuntime = new CurlRuntime();

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

struct CurlDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using HeaderList = std::unique_ptr<curl_slist, CurlDeleter>;

// curl_slist_append returns the list's head, which is the same node once the list has one.
bool Append(HeaderList& list, const char* header) {
  curl_slist* head = curl_slist_append(list.get(), header);
  if (head == nullptr) return false;
  if (head != list.get()) list.reset(head);
  return true;
}

void SetMethodAndBody(CURL* curl, const HttpRequest& request) {
  if (request.body) {
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body->data());
  }
  if (request.method == "GET" && !request.body) {
    curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
  } else if (request.method == "HEAD") {
    curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
  } else if (request.method != "POST" || !request.body) {
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
  }
}

// libcurl's own transfer timeout counts a stop of the process too, so it is only a backstop for a transfer whose
// progress calls have ceased, well behind the caller's wait that AbortWhenStalled keeps.
void SetLimits(CURL* curl, const HttpRequest& request, Transfer& transfer) {
  constexpr std::chrono::milliseconds kBackstop = std::chrono::minutes(10);
  auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(transfer.deadline - SteadyClock::now());
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>((std::max(remaining.count(), 1L) + kBackstop.count())));
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(request.idle, remaining).count()));
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &AbortWhenStalled);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &NoteHeaderLine);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
  curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaxResponseBytes));
}

// Redirects are never followed here: HttpSend decides on each one itself.
void SetSecurity(CURL* curl) {
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
}

struct Exchange {
  HttpResponse response;
  std::optional<std::string> redirect;  // the absolute target of a redirect answer
};

Exchange Perform(const HttpRequest& request, const std::string& url, SteadyClock::time_point deadline) {
  std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
  if (!curl || SteadyClock::now() >= deadline) return {};
  Transfer transfer;
  transfer.deadline = deadline;
  transfer.idle = request.idle;

  HeaderList headers;
  for (const std::string& header : request.headers) {
    if (!Append(headers, header.c_str())) return {};
  }
  // libcurl would otherwise ask the server for a "100 Continue" before sending larger bodies.
  if (request.body && !Append(headers, "Expect:")) return {};
  std::string userAgent = UserAgent();

  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_SHARE, gRuntime->share());
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl.get(), CURLOPT_USERAGENT, userAgent.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &CollectBody);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &transfer);
  SetMethodAndBody(curl.get(), request);
  SetLimits(curl.get(), request, transfer);
  SetSecurity(curl.get());

  CURLcode result = curl_easy_perform(curl.get());
  NoteHttpExchange(curl.get(), request, result);
  if (result != CURLE_OK || transfer.tooLarge) return {};
  long status = 0;
  curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
  if (status == 0) return {};
  char* redirect = nullptr;
  curl_easy_getinfo(curl.get(), CURLINFO_REDIRECT_URL, &redirect);
  if (redirect != nullptr) return {{}, std::string(redirect)};
  return {{status, std::move(transfer.body)}, std::nullopt};
}

std::string Lowercase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

struct UrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

std::optional<std::string> UrlPart(CURLU* url, CURLUPart part, unsigned int flags) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return std::nullopt;
  std::string value(text);
  curl_free(text);
  return Lowercase(std::move(value));
}

// "scheme://host:port", or nothing for a URL that does not parse.
std::optional<std::string> Origin(std::string_view text) {
  std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
  if (!url || curl_url_set(url.get(), CURLUPART_URL, std::string(text).c_str(), 0) != CURLUE_OK) return std::nullopt;
  std::optional<std::string> scheme = UrlPart(url.get(), CURLUPART_SCHEME, 0);
  std::optional<std::string> host = UrlPart(url.get(), CURLUPART_HOST, 0);
  std::optional<std::string> port = UrlPart(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
  if (!scheme || !host || !port) return std::nullopt;
  return *scheme + "://" + *host + ":" + *port;
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
  utsname names{};
  return uname(&names) == 0 ? Token(names.sysname) : "unknown";
}

}  // namespace

HttpResponse HttpSend(const HttpRequest& request) {
  SteadyClock::time_point deadline = SteadyClock::now() + request.wait;
  std::string url = request.url;
  for (int hop = 0;; ++hop) {
    Exchange exchange = Perform(request, url, deadline);
    if (!exchange.redirect) return std::move(exchange.response);
    if (hop >= request.sameOriginRedirects || !SameOrigin(url, *exchange.redirect)) return {};
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
  std::optional<std::string> first = Origin(a);
  return first && first == Origin(b);
}

}  // namespace orvistelle::platform
