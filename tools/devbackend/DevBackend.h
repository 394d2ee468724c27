// A stand-in for the product's servers on loopback: auth (refresh-token grant, current user, sign-out), the sign-in
// relay table, the plug-in heartbeat, the update manifest, its signature and the download, and the website and guide
// pages the app opens.
// It speaks the dialect of the hosted services, so the client needs no development mode of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace orvistelle::devbackend {

struct Options {
  int port = 54321;  // 0 picks a free one
  std::filesystem::path dataDir;
  std::filesystem::path manifestPath;  // read at every request, so that a developer can edit it while running
  int accessTokenLifetimeSeconds = 3600;
  std::function<double()> clock;     // seconds since 1970; the system clock when empty
  double reuseIntervalSeconds = 10;  // how long a spent refresh token still gets its successor
  bool signManifest = true;  // serve latest.json.sig, signed with the development key, unless one lies beside it
};

class DevBackend {
 public:
  explicit DevBackend(Options options);
  ~DevBackend();
  DevBackend(const DevBackend&) = delete;
  DevBackend& operator=(const DevBackend&) = delete;

  // Opens the data folder and serves on 127.0.0.1 from a background thread; false with the reason in *error.
  bool Start(std::string* error);
  void Stop();
  int Port() const;
  std::string BaseURL() const;
  // What the /dev page's forms carry and POST /dev/revoke requires: fresh at every start.
  std::string FormToken() const;
  // Base64 of the key the manifest is signed with: what ORVISTELLE_DEV_UPDATE_KEY takes. Only once started.
  std::string UpdatePublicKey() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvistelle::devbackend
