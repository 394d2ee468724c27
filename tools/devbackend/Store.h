// The development backend's state in one SQLite file, so that users and sessions survive a restart.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

struct sqlite3;

namespace orvistelle::devbackend {

struct User {
  std::string id;
  std::string email;
  double createdAt = 0;
};

// One signed-in device: the refresh token that continues it and the user it belongs to.
struct Grant {
  User user;
  std::string sessionId;
  std::string refreshToken;
};

enum class RotateError { kNotFound, kAlreadyUsed };

struct HeartbeatRow {
  double receivedAt = 0;
  std::string remote;
  std::string body;
};

struct FetchRow {
  double at = 0;
  std::string path;
  int status = 0;
  std::string remote;
  std::string userAgent;
};

struct SessionRow {
  std::string id;
  std::string email;
  double createdAt = 0;
  double refreshedAt = 0;
  int64_t refreshCount = 0;
};

inline constexpr double kRelayLifetimeSeconds = 600;

struct RelayRow {
  std::string id;
  std::string sessionPayload;  // JSON text
  double createdAt = 0;
};

class Store {
 public:
  // Creates the folder and the database when missing; nothing (with the reason in *error) when it cannot.
  static std::unique_ptr<Store> Open(const std::filesystem::path& dataDir, std::string* error);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Any e-mail signs in: an unknown one becomes a user with this password. Nothing when the password is wrong.
  std::optional<User> SignIn(const std::string& email, const std::string& password, double now);
  Grant StartSession(const User& user, double now);
  // Spends the refresh token and hands out its successor. A spent token presented again within `reuseInterval`
  // seconds of its spending gets the session's current successor; later, it ends its session, so that a stolen
  // token and its rightful owner cannot both go on.
  std::variant<Grant, RotateError> Rotate(const std::string& refreshToken, double now, double reuseInterval);
  std::optional<User> UserOfSession(const std::string& sessionId);
  // Ends the session and every refresh token of it; nothing happens for an unknown one.
  void EndSessionNow(const std::string& sessionId);
  // Ends every session of the user; nothing when no user has this e-mail.
  std::optional<int> RevokeSessions(const std::string& email);

  // A relay row carries a live session, so it is handed out once and lives kRelayLifetimeSeconds at most.
  void PutRelay(const std::string& flowId, const std::string& sessionPayload, double now);
  std::optional<RelayRow> TakeRelay(const std::string& flowId, double now);

  void RecordHeartbeat(const std::string& remote, const std::string& body, double now);
  void RecordFetch(const FetchRow& fetch);

  std::vector<HeartbeatRow> RecentHeartbeats(int limit);
  std::vector<FetchRow> RecentFetches(int limit);
  std::vector<SessionRow> RecentSessions(int limit);
  std::vector<RelayRow> RecentRelays(int limit, double now);

 private:
  explicit Store(sqlite3* db);
  std::optional<User> FindUserByEmail(const std::string& email);
  std::string IssueRefreshToken(const std::string& sessionId, double now);
  std::optional<std::string> ActiveRefreshToken(const std::string& sessionId);
  void EndSession(const std::string& sessionId);
  void DeleteExpiredRelays(double now);

  std::mutex mutex_;
  sqlite3* db_;
};

}  // namespace orvistelle::devbackend
