#include "platform/HttpTransport.h"

#include <curl/curl.h>

#include <array>
#include <memory>
#include <mutex>

#include "platform/HttpDiagnostics.h"

namespace orvistelle::platform {
namespace {

constexpr long kMaxRedirects = 16;

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

struct Transfer {
  std::string body;
  bool tooLarge = false;
  std::chrono::steady_clock::time_point deadline;
};

size_t CollectBody(char* data, size_t size, size_t count, void* userdata) {
  auto* transfer = static_cast<Transfer*>(userdata);
  size_t bytes = size * count;
  if (transfer->body.size() + bytes > kMaxResponseBytes) {
    transfer->tooLarge = true;
    return 0;  // aborts the transfer
  }
  transfer->body.append(data, bytes);
  return bytes;
}

// The caller's wait bounds everything, including phases that the transfer timeout might not interrupt in time.
int AbortAfterDeadline(void* userdata, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  auto* transfer = static_cast<Transfer*>(userdata);
  return std::chrono::steady_clock::now() >= transfer->deadline ? 1 : 0;
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

void SetLimits(CURL* curl, const HttpRequest& request, Transfer& transfer) {
  long timeoutMs = static_cast<long>(std::min(request.timeout, request.wait).count());
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, timeoutMs);
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, timeoutMs);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &AbortAfterDeadline);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
  curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaxResponseBytes));
}

void SetRedirectsAndSecurity(CURL* curl) {
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, kMaxRedirects);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
}

}  // namespace

HttpResponse HttpSend(const HttpRequest& request) {
  std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
  if (!curl) return {};
  Transfer transfer;
  transfer.deadline = std::chrono::steady_clock::now() + request.wait;

  HeaderList headers;
  for (const std::string& header : request.headers) {
    if (!Append(headers, header.c_str())) return {};
  }
  // libcurl would otherwise ask the server for a "100 Continue" before sending larger bodies.
  if (request.body && !Append(headers, "Expect:")) return {};

  curl_easy_setopt(curl.get(), CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_SHARE, gRuntime->share());
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &CollectBody);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &transfer);
  SetMethodAndBody(curl.get(), request);
  SetLimits(curl.get(), request, transfer);
  SetRedirectsAndSecurity(curl.get());

  CURLcode result = curl_easy_perform(curl.get());
  NoteHttpExchange(curl.get(), request, result);
  if (result != CURLE_OK || transfer.tooLarge) return {};
  long status = 0;
  curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
  if (status == 0) return {};
  return {status, std::move(transfer.body)};
}

}  // namespace orvistelle::platform
