// The publisher's Ed25519 signature over the manifest's exact bytes, published beside it as base64
// ("latest.json.sig"). Whoever can change the file on the download server, or answer in its place, could otherwise
// require an update of every copy or send every user to a download of their choosing.
#pragma once

#include <string_view>

namespace orvistelle::update {

enum class SignatureState {
  kNotChecked,  // no manifest has arrived yet
  kVerified,
  kMissing,  // no signature came with the manifest
  kWrong,    // a signature came, but not one over these bytes by this key
  kNoKey,    // a development build without a key takes manifests unsigned
};

// "verified", "missing", "wrong", "not checked" or "not required (no key in this build)".
const char* SignatureStateName(SignatureState state);

// Whether `signatureBase64` (64 bytes; trailing white space allowed) is the signature of `message` by the key in
// `publicKeyBase64` (32 bytes). Loads libcrypto on first use, on the calling thread, so that a process which never
// checks an update does not load it; false also when it cannot be loaded, and once the process is exiting.
bool VerifyEd25519(std::string_view message, std::string_view signatureBase64, std::string_view publicKeyBase64);

}  // namespace orvistelle::update
