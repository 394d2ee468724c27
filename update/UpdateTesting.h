// Hooks for the update module's tests: where the download server is, and a way to simulate a restart.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace orvistelle::update {

// Points the manifest and the fallback download at another server; "" restores the built-in one.
void SetDownloadBaseURLForTesting(std::string baseURL);

// Checks manifests with this key (base64; "" checks none) instead of the built-in one; nothing restores it.
void SetUpdatePublicKeyForTesting(std::optional<std::string> publicKeyBase64);

// Waits for a running check, then forgets all a fresh process would not know, the server and key set above included.
void ResetForTesting();

// Waits until no check is running; false if one still runs after `limit`.
bool WaitForCheckForTesting(std::chrono::milliseconds limit);

}  // namespace orvistelle::update
