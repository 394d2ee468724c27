#include "platform/CurlLibrary.h"

#include <dlfcn.h>
#include <openssl/crypto.h>

#include <array>
#include <mutex>

#include "platform/Platform.h"
#include "platform/SharedLibrary.h"

namespace orvistelle::platform {
namespace {

constexpr const char* kSoname = "libcurl.so.4";

// The share handle's locks, one per kind of data the requests share.
class ShareLocks {
 public:
  static void Lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
    static_cast<ShareLocks*>(self)->locks_[static_cast<size_t>(data) % kLocks].lock();
  }
  static void Unlock(CURL*, curl_lock_data data, void* self) {
    static_cast<ShareLocks*>(self)->locks_[static_cast<size_t>(data) % kLocks].unlock();
  }

 private:
  static constexpr size_t kLocks = CURL_LOCK_DATA_LAST;
  std::array<std::mutex, kLocks> locks_;
};

bool FindAll(void* library, CurlLibrary& curl) {
  return FindFunction(library, "curl_easy_init", curl.easyInit) &&
         FindFunction(library, "curl_easy_cleanup", curl.easyCleanup) &&
         FindFunction(library, "curl_easy_setopt", curl.easySetopt) &&
         FindFunction(library, "curl_easy_perform", curl.easyPerform) &&
         FindFunction(library, "curl_easy_getinfo", curl.easyGetinfo) &&
         FindFunction(library, "curl_easy_strerror", curl.easyStrerror) &&
         FindFunction(library, "curl_slist_append", curl.slistAppend) &&
         FindFunction(library, "curl_slist_free_all", curl.slistFreeAll) &&
         FindFunction(library, "curl_url", curl.url) && FindFunction(library, "curl_url_cleanup", curl.urlCleanup) &&
         FindFunction(library, "curl_url_set", curl.urlSet) && FindFunction(library, "curl_url_get", curl.urlGet) &&
         FindFunction(library, "curl_free", curl.free);
}

// OpenSSL tears itself down from an exit handler. A host may return from main while this thread is still setting the
// library up, and that teardown would then run under its feet; without the handler the process simply ends. A libcurl
// built on another TLS library has no such function, and needs nothing.
void KeepOpenSslUntilTheProcessEnds(void* library) {
  decltype(&::OPENSSL_init_crypto) initCrypto = nullptr;
  if (FindFunction(library, "OPENSSL_init_crypto", initCrypto)) initCrypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

// The global set-up, and the share handle that lets every request reuse the pool's connections, DNS answers and
// TLS sessions. Nothing when the library is too old or its set-up fails.
CURLSH* SetUp(void* library) {
  KeepOpenSslUntilTheProcessEnds(library);
  decltype(&::curl_global_init) globalInit = nullptr;
  decltype(&::curl_share_init) shareInit = nullptr;
  decltype(&::curl_share_setopt) shareSetopt = nullptr;
  if (!FindFunction(library, "curl_global_init", globalInit) || !FindFunction(library, "curl_share_init", shareInit) ||
      !FindFunction(library, "curl_share_setopt", shareSetopt) || globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    return nullptr;
  }
  CURLSH* share = shareInit();
  if (share == nullptr) return nullptr;
  shareSetopt(share, CURLSHOPT_LOCKFUNC, &ShareLocks::Lock);
  shareSetopt(share, CURLSHOPT_UNLOCKFUNC, &ShareLocks::Unlock);
  shareSetopt(share, CURLSHOPT_USERDATA, new ShareLocks());
  shareSetopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
  shareSetopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
  shareSetopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  return share;
}

const CurlLibrary* Load() {
  void* library = dlopen(kSoname, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    Log(std::string("No HTTP request can be sent without libcurl: ") + dlerror());
    return nullptr;
  }
  auto* curl = new CurlLibrary();
  if (!FindAll(library, *curl) || (curl->share = SetUp(library)) == nullptr) {
    Log(std::string("No HTTP request can be sent: ") + kSoname + " is too old or could not be set up");
    delete curl;
    return nullptr;
  }
  return curl;
}

}  // namespace

const CurlLibrary* Curl() {
  static std::once_flag once;
  static const CurlLibrary* library = nullptr;
  std::call_once(once, [] { library = Load(); });
  return library;
}

CurlUrl::CurlUrl(const CurlLibrary& curl, const std::string& text)
    : curl_(curl),
      url_(curl.url()),
      parsed_(url_ != nullptr && curl.urlSet(url_, CURLUPART_URL, text.c_str(), 0) == CURLUE_OK) {}

CurlUrl::~CurlUrl() { curl_.urlCleanup(url_); }

std::optional<std::string> CurlUrl::Part(CURLUPart which, unsigned int flags) const {
  char* text = nullptr;
  if (!parsed_ || curl_.urlGet(url_, which, &text, flags) != CURLUE_OK) return std::nullopt;
  std::string part(text);
  curl_.free(text);
  return part;
}

}  // namespace orvistelle::platform
