#include "tools/devbackend/DevBackend.h"

#include <httplib.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <sys/socket.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>
#include <variant>

#include "platform/Base64.h"
#include "tools/devbackend/Download.h"
#include "tools/devbackend/Jwt.h"
#include "tools/devbackend/ManifestKey.h"
#include "tools/devbackend/Pages.h"
#include "tools/devbackend/Store.h"

namespace orvistelle::devbackend {
namespace {

using nlohmann::json;

constexpr char kHost[] = "127.0.0.1";
constexpr char kLanguagePrefix[] = "(?:/(zh|ja|ko|pt-BR|es))?";
constexpr char kHtml[] = "text/html; charset=utf-8";
constexpr int kDevPageRows = 50;
constexpr size_t kWorkers = 256;
constexpr size_t kMaxBodyBytes = 64 * 1024;
// Printing a value recurses once per level, so deeper bodies are turned away before anything prints them.
constexpr int kMaxJsonDepth = 32;

void SendJson(httplib::Response& res, int status, const json& body) {
  res.status = status;
  res.set_content(body.dump(), "application/json");
}

void SendHtml(httplib::Response& res, int status, const std::string& html) {
  res.status = status;
  res.set_content(html, kHtml);
}

// The auth server's error form: {"code", "error_code", "msg"}.
json AuthError(int code, std::string_view errorCode, std::string_view message) {
  return {{"code", code}, {"error_code", errorCode}, {"msg", message}};
}

json PostgrestError(std::string_view code, std::string_view message, std::string_view details) {
  return {{"code", code}, {"message", message}, {"details", details}, {"hint", nullptr}};
}

std::string Lowercase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool IsFlowId(const std::string& id) {
  return !id.empty() && id.size() <= 64 &&
         std::all_of(id.begin(), id.end(), [](unsigned char c) { return std::isalnum(c) || c == '-'; });
}

json UserJson(const User& user) {
  std::string created = IsoTime(user.createdAt);
  return {{"id", user.id},
          {"aud", "authenticated"},
          {"role", "authenticated"},
          {"email", user.email},
          {"email_confirmed_at", created},
          {"app_metadata", {{"provider", "email"}, {"providers", json::array({"email"})}}},
          {"user_metadata", {{"email", user.email}}},
          {"created_at", created},
          {"updated_at", created}};
}

// The columns PostgREST would return for select=..., or the first unknown column's name.
std::variant<std::vector<std::string>, std::string> SelectedColumns(const std::string& select) {
  static const std::vector<std::string> kColumns = {"id", "session_payload", "created_at"};
  if (select.empty() || select == "*") return kColumns;
  std::vector<std::string> chosen;
  std::stringstream list(select);
  for (std::string column; std::getline(list, column, ',');) {
    if (std::find(kColumns.begin(), kColumns.end(), column) == kColumns.end()) return column;
    chosen.push_back(column);
  }
  return chosen;
}

// The values a browser sends when it reached us by address rather than through a name that some other site
// controls (a rebound DNS name resolving to 127.0.0.1 reaches the same socket).
bool IsLoopbackHost(const std::string& host) {
  const std::string name = host.substr(0, host.find(':'));
  return name == kHost || name == "localhost";
}

// Discarded for text that is not JSON and for JSON nested deeper than kMaxJsonDepth.
json ParseShallowJson(const std::string& text) {
  bool tooDeep = false;
  json value = json::parse(
      text,
      [&tooDeep](int depth, json::parse_event_t, json&) {
        tooDeep = tooDeep || depth > kMaxJsonDepth;
        return !tooDeep;
      },
      false);
  return tooDeep ? json(json::value_t::discarded) : value;
}

std::string NewCsrfToken() {
  unsigned char bytes[24];
  RAND_bytes(bytes, sizeof bytes);
  return platform::EncodeBase64Url(std::string_view(reinterpret_cast<const char*>(bytes), sizeof bytes));
}

std::optional<std::string> ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

bool SameSecret(const std::string& given, const std::string& expected) {
  return given.size() == expected.size() && CRYPTO_memcmp(given.data(), expected.data(), given.size()) == 0;
}

}  // namespace

struct DevBackend::Impl {
  explicit Impl(Options o) : options(std::move(o)) {}

  double Now() const {
    if (options.clock) return options.clock();
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  }

  std::string BaseURL() const { return std::string("http://") + kHost + ":" + std::to_string(port); }

  // The gateway in front of the auth server and the database turns away requests without the project's key.
  bool HasApiKey(const httplib::Request& req, httplib::Response& res) const {
    std::string key = req.has_header("apikey") ? req.get_header_value("apikey") : req.get_param_value("apikey");
    if (key.empty()) {
      SendJson(
          res, 401,
          {{"message", "No API key found in request"}, {"hint", "No `apikey` request header or url param was found."}});
      return false;
    }
    if (!VerifyHs256(key, kDevelopmentSecret, Now())) {
      SendJson(res, 401, {{"message", "Invalid API key"}, {"hint", "Double check the project's public key."}});
      return false;
    }
    return true;
  }

  json SessionJson(const Grant& grant) const {
    const auto issuedAt = static_cast<int64_t>(Now());
    const int64_t expiresAt = issuedAt + options.accessTokenLifetimeSeconds;
    json claims = {{"iss", BaseURL() + "/auth/v1"},
                   {"aud", "authenticated"},
                   {"sub", grant.user.id},
                   {"email", grant.user.email},
                   {"role", "authenticated"},
                   {"session_id", grant.sessionId},
                   {"iat", issuedAt},
                   {"exp", expiresAt},
                   {"user_metadata", {{"email", grant.user.email}}}};
    return {{"access_token", SignHs256(claims, kDevelopmentSecret)},
            {"token_type", "bearer"},
            {"expires_in", options.accessTokenLifetimeSeconds},
            {"expires_at", expiresAt},
            {"refresh_token", grant.refreshToken},
            {"user", UserJson(grant.user)}};
  }

  void RefreshTokenGrant(const httplib::Request& req, httplib::Response& res) {
    if (!HasApiKey(req, res)) return;
    if (req.get_param_value("grant_type") != "refresh_token") {
      SendJson(res, 400, AuthError(400, "validation_failed", "unsupported_grant_type"));
      return;
    }
    auto body = json::parse(req.body, nullptr, false);
    if (!body.is_object()) {
      SendJson(res, 400, AuthError(400, "bad_json", "Could not parse request body as JSON"));
      return;
    }
    std::string token = body["refresh_token"].is_string() ? body["refresh_token"].get<std::string>() : "";
    auto rotated = store->Rotate(token, Now(), options.reuseIntervalSeconds);
    if (const auto* error = std::get_if<RotateError>(&rotated)) {
      SendJson(res, 400,
               *error == RotateError::kAlreadyUsed
                   ? AuthError(400, "refresh_token_already_used", "Invalid Refresh Token: Already Used")
                   : AuthError(400, "refresh_token_not_found", "Invalid Refresh Token: Refresh Token Not Found"));
      return;
    }
    SendJson(res, 200, SessionJson(std::get<Grant>(rotated)));
  }

  // The session id of the bearer's access token; nothing, with the auth server's refusal sent, for any other request.
  std::optional<std::string> BearerSession(const httplib::Request& req, httplib::Response& res) {
    if (!HasApiKey(req, res)) return std::nullopt;
    std::string authorization = req.get_header_value("Authorization");
    if (authorization.rfind("Bearer ", 0) != 0) {
      SendJson(res, 401, AuthError(401, "no_authorization", "This endpoint requires a Bearer token"));
      return std::nullopt;
    }
    auto claims = VerifyHs256(authorization.substr(7), kDevelopmentSecret, Now());
    if (!claims || !(*claims)["session_id"].is_string()) {
      SendJson(res, 401, AuthError(401, "bad_jwt", "invalid JWT: unable to verify it, or it has expired"));
      return std::nullopt;
    }
    return (*claims)["session_id"].get<std::string>();
  }

  void CurrentUser(const httplib::Request& req, httplib::Response& res) {
    std::optional<std::string> sessionId = BearerSession(req, res);
    if (!sessionId) return;
    auto user = store->UserOfSession(*sessionId);
    if (!user) {
      SendJson(res, 403, AuthError(403, "session_not_found", "Session from session_id claim in JWT does not exist"));
      return;
    }
    SendJson(res, 200, UserJson(*user));
  }

  // The relay table as PostgREST serves it, narrowed to the one query the app makes: by id, never the whole table.
  void AuthRelay(const httplib::Request& req, httplib::Response& res) {
    if (!HasApiKey(req, res)) return;
    std::string filter = req.get_param_value("id");
    if (filter.rfind("eq.", 0) != 0) {
      SendJson(res, 400,
               PostgrestError("PGRST100", "\"failed to parse filter (" + filter + ")\"",
                              "The development backend answers id=eq.<flow id> only."));
      return;
    }
    auto columns = SelectedColumns(req.get_param_value("select"));
    if (const auto* unknown = std::get_if<std::string>(&columns)) {
      SendJson(res, 400, PostgrestError("42703", "column auth_relay." + *unknown + " does not exist", ""));
      return;
    }
    json rows = json::array();
    if (auto relay = store->TakeRelay(filter.substr(3), Now())) {
      const json values = {{"id", relay->id},
                           {"session_payload", json::parse(relay->sessionPayload, nullptr, false)},
                           {"created_at", IsoTime(relay->createdAt)}};
      json row = json::object();
      for (const auto& column : std::get<std::vector<std::string>>(columns)) row[column] = values[column];
      rows.push_back(row);
    }
    SendJson(res, 200, rows);
  }

  // Sign-out as the auth server has it for scope=local: the session of the bearer's token ends, its refresh tokens
  // with it. The other scopes are not needed by the app.
  void Logout(const httplib::Request& req, httplib::Response& res) {
    if (req.get_param_value("scope") != "local") {
      SendJson(res, 400, AuthError(400, "validation_failed", "the development backend signs out with scope=local"));
      return;
    }
    std::optional<std::string> sessionId = BearerSession(req, res);
    if (!sessionId) return;
    store->EndSessionNow(*sessionId);
    res.status = 204;
  }

  void Heartbeat(const httplib::Request& req, httplib::Response& res) {
    auto body = ParseShallowJson(req.body);
    if (!body.is_object()) {
      SendJson(res, 400,
               {{"error", "the heartbeat must be a JSON object nested at most " + std::to_string(kMaxJsonDepth) +
                              " levels deep"}});
      return;
    }
    store->RecordHeartbeat(req.remote_addr, body.dump(), Now());
    SendJson(res, 200, {{"ok", true}});
  }

  void RecordFetch(const httplib::Request& req, const httplib::Response& res) {
    store->RecordFetch({Now(), req.path, res.status, req.remote_addr, req.get_header_value("User-Agent")});
  }

  void Manifest(const httplib::Request& req, httplib::Response& res) {
    std::ifstream in(options.manifestPath, std::ios::binary);
    if (in) {
      std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      res.status = 200;
      res.set_content(text, "application/json");
    } else {
      SendJson(res, 404, {{"error", "no manifest at " + options.manifestPath.string()}});
    }
    RecordFetch(req, res);
  }

  std::filesystem::path PublishedSignaturePath() const { return options.manifestPath.string() + ".sig"; }

  // A signature file beside the manifest is served as published, so that a release's files can be tried as they are;
  // without one, the manifest is signed as it stands now.
  void ManifestSignature(const httplib::Request& req, httplib::Response& res) {
    std::optional<std::string> published = ReadFile(PublishedSignaturePath());
    std::optional<std::string> manifest = ReadFile(options.manifestPath);
    if (published || (manifest && options.signManifest)) {
      res.status = 200;
      res.set_content(published ? *published : manifestKey->Sign(*manifest) + "\n", "text/plain");
    } else {
      SendJson(res, 404, {{"error", "no signature: the backend was started not to sign the manifest"}});
    }
    RecordFetch(req, res);
  }

  std::string SignatureState() const {
    std::optional<std::string> published = ReadFile(PublishedSignaturePath());
    if (!published) {
      return options.signManifest ? "signed with the development key at every request"
                                  : "not signed: an app checking signatures ignores the manifest";
    }
    std::optional<std::string> manifest = ReadFile(options.manifestPath);
    bool good = manifest && manifestKey->Verifies(*manifest, *published);
    return "served from " + PublishedSignaturePath().string() +
           (good ? ", which matches the manifest" : ", which does not match the manifest: the app ignores it");
  }

  void Download(const httplib::Request& req, httplib::Response& res) {
    res.status = 200;
    res.set_header("Content-Disposition", "attachment; filename=\"orvistelle-fcp-linux-latest.deb\"");
    res.set_content(download, "application/vnd.debian.binary-package");
    RecordFetch(req, res);
  }

  void SitePage(const httplib::Request& req, httplib::Response& res) {
    const std::string lang = req.matches[1];
    const std::string page = req.matches[2];
    if (page.empty() || page == "/") return SendHtml(res, 200, SiteHomePage(lang));
    if (page == "/sign-in") return SendHtml(res, 200, SignInPage(lang, req.get_param_value("flowId"), "", ""));
    if (page == "/sign-up") return SendHtml(res, 200, SignUpPage(lang));
    if (page == "/terms") return SendHtml(res, 200, TermsPage(lang));
    if (page == "/privacy") return SendHtml(res, 200, PrivacyPage(lang));
    SendHtml(res, 404, NotFoundPage(req.path));
  }

  void DocsPage(const httplib::Request& req, httplib::Response& res) {
    const std::string lang = req.matches[1];
    const std::string page = req.matches[2];
    if (page.empty() || page == "/") return SendHtml(res, 200, DocsHomePage(lang));
    if (page == "/fcp/install") return SendHtml(res, 200, DocsInstallPage(lang));
    SendHtml(res, 404, NotFoundPage(req.path));
  }

  // The form signs the user in and leaves the new session in the relay row of the flow, where the app polls.
  void SignInSubmit(const httplib::Request& req, httplib::Response& res) {
    const std::string lang = req.matches[1];
    const std::string flowId = req.get_param_value("flowId");
    const std::string email = Lowercase(req.get_param_value("email"));
    const std::string password = req.get_param_value("password");
    auto refuse = [&](int status, const std::string& why) {
      SendHtml(res, status, SignInPage(lang, flowId, email, why));
    };
    if (!IsFlowId(flowId)) return refuse(400, "This sign-in has no valid flow id. Start it again from the app.");
    if (email.find('@') == std::string::npos || password.empty()) {
      return refuse(400, "Enter an e-mail address and a password.");
    }
    auto user = store->SignIn(email, password, Now());
    if (!user) return refuse(401, "Wrong password: this development user was created with another one.");
    store->PutRelay(flowId, SessionJson(store->StartSession(*user, Now())).dump(), Now());
    SendHtml(res, 200, SignedInPage(lang, email));
  }

  // Any page the developer's browser shows could post here; only the /dev page knows the token.
  void Revoke(const httplib::Request& req, httplib::Response& res) {
    if (!SameSecret(req.get_param_value("csrf"), csrfToken)) {
      SendJson(res, 403, {{"error", "the csrf value of the /dev page is missing or wrong"}});
      return;
    }
    const std::string email = Lowercase(req.get_param_value("email"));
    auto revoked = store->RevokeSessions(email);
    if (req.get_header_value("Content-Type").rfind("application/x-www-form-urlencoded", 0) == 0) {
      res.set_redirect("/dev", 303);
    } else if (!revoked) {
      SendJson(res, 404, {{"error", "no user with the e-mail " + email}});
    } else {
      SendJson(res, 200, {{"email", email}, {"revoked_sessions", *revoked}});
    }
  }

  void Dev(httplib::Response& res) {
    DevPageData data{options.manifestPath.string(),         options.dataDir.string(),
                     options.accessTokenLifetimeSeconds,    csrfToken,
                     manifestKey->PublicKeyBase64(),        SignatureState(),
                     store->RecentHeartbeats(kDevPageRows), store->RecentFetches(kDevPageRows),
                     store->RecentSessions(kDevPageRows),   store->RecentRelays(kDevPageRows, Now())};
    SendHtml(res, 200, DevPage(data));
  }

  void Routes() {
    // A browser keeps several idle connections open, and a peer may stop halfway through a request; each holds a
    // worker until it times out. With more workers than such connections and a second's patience for each, the
    // app's requests do not queue behind them, and Stop, which waits for every worker, returns soon.
    server.new_task_queue = [] { return new httplib::ThreadPool(kWorkers); };
    server.set_keep_alive_timeout(1);
    server.set_read_timeout(std::chrono::seconds(1));
    server.set_payload_max_length(kMaxBodyBytes);
    server.set_pre_routing_handler([](const httplib::Request& req, httplib::Response& res) {
      // With two Host headers, which one counts depends on who reads them: a way to slip past the check below.
      if (req.get_header_value_count("Host") > 1) {
        SendJson(res, 400, {{"error", "more than one Host header"}});
        return httplib::Server::HandlerResponse::Handled;
      }
      if (IsLoopbackHost(req.get_header_value("Host"))) return httplib::Server::HandlerResponse::Unhandled;
      SendJson(res, 421, {{"error", "this server answers only requests addressed to 127.0.0.1 or localhost"}});
      return httplib::Server::HandlerResponse::Handled;
    });
    using Req = const httplib::Request&;
    using Res = httplib::Response&;
    server.Post("/auth/v1/token", [this](Req req, Res res) { RefreshTokenGrant(req, res); });
    server.Get("/auth/v1/user", [this](Req req, Res res) { CurrentUser(req, res); });
    server.Post("/auth/v1/logout", [this](Req req, Res res) { Logout(req, res); });
    server.Get("/rest/v1/auth_relay", [this](Req req, Res res) { AuthRelay(req, res); });
    server.Post("/console/v1/plugin/heartbeat", [this](Req req, Res res) { Heartbeat(req, res); });
    server.Get("/orvistelle/vask/latest.json", [this](Req req, Res res) { Manifest(req, res); });
    server.Get("/orvistelle/vask/latest.json.sig", [this](Req req, Res res) { ManifestSignature(req, res); });
    server.Get("/orvistelle/vask/fcp/orvistelle-fcp-linux-latest.deb",
               [this](Req req, Res res) { Download(req, res); });
    server.Get(std::string("/site") + kLanguagePrefix + "(/.*)?", [this](Req req, Res res) { SitePage(req, res); });
    server.Post(std::string("/site") + kLanguagePrefix + "/sign-in",
                [this](Req req, Res res) { SignInSubmit(req, res); });
    server.Get(std::string("/docs") + kLanguagePrefix + "(/.*)?", [this](Req req, Res res) { DocsPage(req, res); });
    server.Get("/dev", [this](Req, Res res) { Dev(res); });
    server.Post("/dev/revoke", [this](Req req, Res res) { Revoke(req, res); });
    server.Get("/", [](Req, Res res) { res.set_redirect("/dev"); });
  }

  Options options;
  std::unique_ptr<Store> store;
  std::unique_ptr<ManifestKey> manifestKey;
  const std::string download = StandInPackage();
  const std::string csrfToken = NewCsrfToken();
  httplib::Server server;
  std::thread thread;
  int listeningSocket = -1;
  int port = 0;
};

DevBackend::DevBackend(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

DevBackend::~DevBackend() { Stop(); }

bool DevBackend::Start(std::string* error) {
  impl_->store = Store::Open(impl_->options.dataDir, error);
  if (!impl_->store) return false;
  impl_->manifestKey = ManifestKey::LoadOrCreate(impl_->options.dataDir, error);
  if (!impl_->manifestKey) return false;
  impl_->Routes();
  auto& server = impl_->server;
  const int wanted = impl_->options.port;
  server.set_socket_options([this](int socket) {
    httplib::default_socket_options(socket);
    impl_->listeningSocket = socket;
  });
  const int port = wanted == 0 ? server.bind_to_any_port(kHost) : (server.bind_to_port(kHost, wanted) ? wanted : -1);
  if (port <= 0) {
    *error = "cannot listen on " + std::string(kHost) + ":" + std::to_string(wanted);
    return false;
  }
  // The library listens with a backlog of five, so a burst of connections (a browser's, a load test's) waits a
  // second or more for the SYN to be sent again; listening again only lengthens the queue.
  (void)::listen(impl_->listeningSocket, SOMAXCONN);
  impl_->port = port;
  impl_->thread = std::thread([&server] { server.listen_after_bind(); });
  // stop() is ignored until the server runs, so Start returns only once it does.
  while (!server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return true;
}

void DevBackend::Stop() {
  if (!impl_->thread.joinable()) return;
  impl_->server.stop();
  impl_->thread.join();
}

int DevBackend::Port() const { return impl_->port; }

std::string DevBackend::BaseURL() const { return impl_->BaseURL(); }

std::string DevBackend::FormToken() const { return impl_->csrfToken; }

std::string DevBackend::UpdatePublicKey() const { return impl_->manifestKey->PublicKeyBase64(); }

}  // namespace orvistelle::devbackend
