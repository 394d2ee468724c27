// The development key the backend signs the manifest it serves with, as the release tool signs a real one. Made at
// first start and kept in the data folder as "update-signing-key.pem", which tools/sign-manifest reads as well.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace orvistelle::devbackend {

class ManifestKey {
 public:
  // Nothing, with the reason in *error, when the file can be neither read nor made.
  static std::unique_ptr<ManifestKey> LoadOrCreate(const std::filesystem::path& dataDir, std::string* error);
  ~ManifestKey();
  ManifestKey(const ManifestKey&) = delete;
  ManifestKey& operator=(const ManifestKey&) = delete;

  // Base64 of the 32-byte public key, what ORVISTELLE_DEV_UPDATE_KEY takes.
  std::string PublicKeyBase64() const;
  // Base64 of the Ed25519 signature of the bytes.
  std::string Sign(std::string_view message) const;
  bool Verifies(std::string_view message, std::string_view signatureBase64) const;

 private:
  struct Key;
  explicit ManifestKey(std::unique_ptr<Key> key);
  std::unique_ptr<Key> key_;
};

}  // namespace orvistelle::devbackend
