#include "update/ManifestSignature.h"

#include <dlfcn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Base64.h"
#include "platform/NoDestructor.h"
#include "platform/SharedLibrary.h"

namespace orvistelle::update {
namespace {

constexpr size_t kPublicKeyBytes = 32;
constexpr size_t kSignatureBytes = 64;

// The few libcrypto functions the check needs, looked up once. Linking libcrypto would load it (and its relocations)
// in every process that loads the library, where most never verify anything.
struct Crypto {
  decltype(&OPENSSL_init_crypto) init = nullptr;
  decltype(&OPENSSL_thread_stop) threadStop = nullptr;
  decltype(&EVP_PKEY_new_raw_public_key) newRawPublicKey = nullptr;
  decltype(&EVP_PKEY_free) freeKey = nullptr;
  decltype(&EVP_MD_CTX_new) newContext = nullptr;
  decltype(&EVP_MD_CTX_free) freeContext = nullptr;
  decltype(&EVP_DigestVerifyInit) verifyInit = nullptr;
  decltype(&EVP_DigestVerify) verify = nullptr;
};

std::optional<Crypto> LoadCrypto() {
  void* library = dlopen("libcrypto.so.3", RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return std::nullopt;
  Crypto crypto;
  bool bound = platform::FindFunction(library, "OPENSSL_init_crypto", crypto.init) &&
               platform::FindFunction(library, "OPENSSL_thread_stop", crypto.threadStop) &&
               platform::FindFunction(library, "EVP_PKEY_new_raw_public_key", crypto.newRawPublicKey) &&
               platform::FindFunction(library, "EVP_PKEY_free", crypto.freeKey) &&
               platform::FindFunction(library, "EVP_MD_CTX_new", crypto.newContext) &&
               platform::FindFunction(library, "EVP_MD_CTX_free", crypto.freeContext) &&
               platform::FindFunction(library, "EVP_DigestVerifyInit", crypto.verifyInit) &&
               platform::FindFunction(library, "EVP_DigestVerify", crypto.verify);
  if (!bound || crypto.init(OPENSSL_INIT_NO_ATEXIT, nullptr) != 1) return std::nullopt;
  return crypto;
}

// libcrypto frees its global state when the process exits, and a verification on the check's thread would then
// crash the exiting host. So it is asked not to (which holds when this is the first to start it); an exit handler,
// which runs before one that libcrypto registered earlier, waits for a running verification and stops later ones;
// and a check that begins after libcrypto was stopped finds out by asking it. Never destroyed: the exit handler and
// the check's thread may use it at any time.
struct Verifier {
  std::mutex mutex;
  bool loadTried = false;
  bool exiting = false;
  std::optional<Crypto> crypto;
};

Verifier& TheVerifier() {
  static platform::NoDestructor<Verifier> verifier;
  return *verifier;
}

void StopVerifying() {
  std::lock_guard lock(TheVerifier().mutex);
  TheVerifier().exiting = true;
}

// Never unloaded once loaded: the process may exit at any moment.
const Crypto* CryptoLocked() {
  Verifier& verifier = TheVerifier();
  if (!verifier.loadTried) {
    verifier.loadTried = true;
    verifier.crypto = LoadCrypto();
    // Without the handler a verification could outlive libcrypto's state, so none is made.
    if (verifier.crypto && std::atexit(StopVerifying) != 0) verifier.crypto.reset();
  }
  // Only the base, which crypto.h reserves as OPENSSL_INIT_BASE_ONLY: asked for more once stopped, libcrypto would
  // record an error in state that is never freed.
  constexpr uint64_t kInitBaseOnly = 0x00040000L;
  bool usable = !verifier.exiting && verifier.crypto && verifier.crypto->init(kInitBaseOnly, nullptr) == 1;
  return usable ? &*verifier.crypto : nullptr;
}

// Exactly `size` bytes in canonical padded base64, trailing white space aside; nothing otherwise.
std::optional<std::string> DecodeExactly(std::string_view text, size_t size) {
  size_t end = text.find_last_not_of(" \t\r\n");
  text = text.substr(0, end == std::string_view::npos ? 0 : end + 1);
  std::optional<std::string> bytes = platform::DecodeBase64(text);
  if (!bytes || bytes->size() != size) return std::nullopt;
  return bytes;
}

bool Verify(const Crypto& crypto, std::string_view message, const std::string& signature, const std::string& key) {
  EVP_PKEY* publicKey =
      crypto.newRawPublicKey(EVP_PKEY_ED25519, nullptr, reinterpret_cast<const unsigned char*>(key.data()), key.size());
  EVP_MD_CTX* context = crypto.newContext();
  bool good = publicKey != nullptr && context != nullptr &&
              crypto.verifyInit(context, nullptr, nullptr, nullptr, publicKey) == 1 &&
              crypto.verify(context, reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
                            reinterpret_cast<const unsigned char*>(message.data()), message.size()) == 1;
  crypto.freeContext(context);
  crypto.freeKey(publicKey);
  return good;
}

}  // namespace

const char* SignatureStateName(SignatureState state) {
  switch (state) {
    case SignatureState::kVerified: return "verified";
    case SignatureState::kMissing: return "missing";
    case SignatureState::kWrong: return "wrong";
    case SignatureState::kNoKey: return "not required (no key in this build)";
    case SignatureState::kNotChecked: break;
  }
  return "not checked";
}

bool VerifyEd25519(std::string_view message, std::string_view signatureBase64, std::string_view publicKeyBase64) {
  std::lock_guard lock(TheVerifier().mutex);
  const Crypto* crypto = CryptoLocked();
  if (crypto == nullptr) return false;
  std::optional<std::string> signature = DecodeExactly(signatureBase64, kSignatureBytes);
  std::optional<std::string> key = DecodeExactly(publicKeyBase64, kPublicKeyBytes);
  bool good = signature && key && Verify(*crypto, message, *signature, *key);
  // What libcrypto keeps for this thread (its error queue) goes now, not at an exit that may come first.
  crypto->threadStop();
  return good;
}

}  // namespace orvistelle::update
