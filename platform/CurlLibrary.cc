#include "platform/CurlLibrary.h"

#include <dlfcn.h>

#include <array>
#include <mutex>

#include "platform/Platform.h"

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

template <typename Function>
bool Find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

bool FindAll(void* library, CurlLibrary& curl) {
  return Find(library, "curl_easy_init", curl.easyInit) && Find(library, "curl_easy_cleanup", curl.easyCleanup) &&
         Find(library, "curl_easy_setopt", curl.easySetopt) && Find(library, "curl_easy_perform", curl.easyPerform) &&
         Find(library, "curl_easy_getinfo", curl.easyGetinfo) &&
         Find(library, "curl_easy_strerror", curl.easyStrerror) &&
         Find(library, "curl_slist_append", curl.slistAppend) &&
         Find(library, "curl_slist_free_all", curl.slistFreeAll) && Find(library, "curl_url", curl.url) &&
         Find(library, "curl_url_cleanup", curl.urlCleanup) && Find(library, "curl_url_set", curl.urlSet) &&
         Find(library, "curl_url_get", curl.urlGet) && Find(library, "curl_free", curl.free);
}

// The global set-up, and the share handle that lets every request reuse the pool's connections, DNS answers and
// TLS sessions. Nothing when the library is too old or its set-up fails.
CURLSH* SetUp(void* library) {
  decltype(&::curl_global_init) globalInit = nullptr;
  decltype(&::curl_share_init) shareInit = nullptr;
  decltype(&::curl_share_setopt) shareSetopt = nullptr;
  if (!Find(library, "curl_global_init", globalInit) || !Find(library, "curl_share_init", shareInit) ||
      !Find(library, "curl_share_setopt", shareSetopt) || globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
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
    : curl_(curl), url_(curl.url()), parsed_(url_ != nullptr && curl.urlSet(url_, CURLUPART_URL, text.c_str(), 0) ==
                                                                     CURLUE_OK) {}

CurlUrl::~CurlUrl() { curl_.urlCleanup(url_); }

std::optional<std::string> CurlUrl::Part(CURLUPart which, unsigned int flags) const {
  char* text = nullptr;
  if (!parsed_ || curl_.urlGet(url_, which, &text, flags) != CURLUE_OK) return std::nullopt;
  std::string part(text);
  curl_.free(text);
  return part;
}

}  // namespace orvistelle::platform
