#include "tools/devbackend/ManifestKey.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <unistd.h>

#include <cstdio>

#include "platform/Base64.h"

namespace orvistelle::devbackend {
namespace {

constexpr char kKeyFile[] = "update-signing-key.pem";

using File = std::unique_ptr<FILE, decltype(&std::fclose)>;

std::string Base64(const unsigned char* bytes, size_t size) {
  return platform::EncodeBase64(std::string_view(reinterpret_cast<const char*>(bytes), size));
}

EVP_PKEY* ReadKey(const std::filesystem::path& path) {
  File file(std::fopen(path.c_str(), "r"), &std::fclose);
  if (!file) return nullptr;
  EVP_PKEY* key = PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr);
  if (key != nullptr && EVP_PKEY_get_id(key) != EVP_PKEY_ED25519) {
    EVP_PKEY_free(key);
    return nullptr;
  }
  return key;
}

// Private to the developer: made with mode 0600, and never over an existing file.
EVP_PKEY* CreateKey(const std::filesystem::path& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  File file(fdopen(fd, "w"), &std::fclose);
  if (!file) {
    ::close(fd);
    return nullptr;
  }
  EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
  if (key != nullptr && PEM_write_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
    EVP_PKEY_free(key);
    return nullptr;
  }
  return key;
}

}  // namespace

struct ManifestKey::Key {
  explicit Key(EVP_PKEY* k) : pkey(k) {}
  ~Key() { EVP_PKEY_free(pkey); }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  EVP_PKEY* pkey;
};

std::unique_ptr<ManifestKey> ManifestKey::LoadOrCreate(const std::filesystem::path& dataDir, std::string* error) {
  const std::filesystem::path path = dataDir / kKeyFile;
  EVP_PKEY* key = std::filesystem::exists(path) ? ReadKey(path) : CreateKey(path);
  if (key == nullptr) {
    *error = path.string() + ": not an Ed25519 private key in PEM form, and none could be made there";
    return nullptr;
  }
  return std::unique_ptr<ManifestKey>(new ManifestKey(std::make_unique<Key>(key)));
}

ManifestKey::ManifestKey(std::unique_ptr<Key> key) : key_(std::move(key)) {}

ManifestKey::~ManifestKey() = default;

std::string ManifestKey::PublicKeyBase64() const {
  unsigned char raw[32];
  size_t size = sizeof raw;
  EVP_PKEY_get_raw_public_key(key_->pkey, raw, &size);
  return Base64(raw, size);
}

std::string ManifestKey::Sign(std::string_view message) const {
  unsigned char signature[64];
  size_t size = sizeof signature;
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_DigestSignInit(context, nullptr, nullptr, nullptr, key_->pkey);
  EVP_DigestSign(context, signature, &size, reinterpret_cast<const unsigned char*>(message.data()), message.size());
  EVP_MD_CTX_free(context);
  return Base64(signature, size);
}

bool ManifestKey::Verifies(std::string_view message, std::string_view signatureBase64) const {
  return Sign(message) == signatureBase64.substr(0, signatureBase64.find_last_not_of(" \t\r\n") + 1);
}

}  // namespace orvistelle::devbackend
