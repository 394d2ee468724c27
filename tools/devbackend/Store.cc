#include "tools/devbackend/Store.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sqlite3.h>

#include <array>
#include <cstdio>
#include <system_error>

namespace orvistelle::devbackend {
namespace {

constexpr const char* kSchema = R"sql(
PRAGMA journal_mode = WAL;
CREATE TABLE IF NOT EXISTS users(
  id TEXT PRIMARY KEY, email TEXT NOT NULL UNIQUE, password_salt TEXT NOT NULL, password_hash TEXT NOT NULL,
  created_at REAL NOT NULL);
CREATE TABLE IF NOT EXISTS sessions(
  id TEXT PRIMARY KEY, user_id TEXT NOT NULL, created_at REAL NOT NULL, refreshed_at REAL NOT NULL DEFAULT 0,
  refresh_count INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS refresh_tokens(
  token TEXT PRIMARY KEY, session_id TEXT NOT NULL, spent INTEGER NOT NULL DEFAULT 0, created_at REAL NOT NULL);
CREATE TABLE IF NOT EXISTS auth_relay(id TEXT PRIMARY KEY, session_payload TEXT NOT NULL, created_at REAL NOT NULL);
CREATE TABLE IF NOT EXISTS heartbeats(
  seq INTEGER PRIMARY KEY, received_at REAL NOT NULL, remote TEXT NOT NULL, body TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS fetches(
  seq INTEGER PRIMARY KEY, at REAL NOT NULL, path TEXT NOT NULL, status INTEGER NOT NULL, remote TEXT NOT NULL,
  user_agent TEXT NOT NULL);
)sql";

// One prepared statement; parameters are bound in order, columns read by index.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr); }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& Bind(const std::string& text) {
    sqlite3_bind_text(statement_, ++bound_, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Statement& Bind(double value) {
    sqlite3_bind_double(statement_, ++bound_, value);
    return *this;
  }
  Statement& Bind(int64_t value) {
    sqlite3_bind_int64(statement_, ++bound_, value);
    return *this;
  }
  // True while a row is available.
  bool Step() { return sqlite3_step(statement_) == SQLITE_ROW; }
  std::string Text(int column) {
    auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return text == nullptr ? std::string() : std::string(text, sqlite3_column_bytes(statement_, column));
  }
  double Real(int column) { return sqlite3_column_double(statement_, column); }
  int64_t Int(int column) { return sqlite3_column_int64(statement_, column); }

 private:
  sqlite3_stmt* statement_ = nullptr;
  int bound_ = 0;
};

std::string Hex(const unsigned char* bytes, size_t size) {
  std::string out;
  char pair[3];
  for (size_t i = 0; i < size; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
    out += pair;
  }
  return out;
}

std::string RandomHex(size_t bytes) {
  std::array<unsigned char, 32> buffer{};
  RAND_bytes(buffer.data(), static_cast<int>(bytes));
  return Hex(buffer.data(), bytes);
}

std::string NewUuid() {
  std::array<unsigned char, 16> b{};
  RAND_bytes(b.data(), static_cast<int>(b.size()));
  b[6] = (b[6] & 0x0F) | 0x40;
  b[8] = (b[8] & 0x3F) | 0x80;
  std::string hex = Hex(b.data(), b.size());
  return hex.substr(0, 8) + "-" + hex.substr(8, 4) + "-" + hex.substr(12, 4) + "-" + hex.substr(16, 4) + "-" +
         hex.substr(20);
}

std::string PasswordHash(const std::string& password, const std::string& salt) {
  std::array<unsigned char, 32> key{};
  PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()),
                    reinterpret_cast<const unsigned char*>(salt.data()), static_cast<int>(salt.size()), 100000,
                    EVP_sha256(), static_cast<int>(key.size()), key.data());
  return Hex(key.data(), key.size());
}

}  // namespace

std::unique_ptr<Store> Store::Open(const std::filesystem::path& dataDir, std::string* error) {
  std::error_code ec;
  std::filesystem::create_directories(dataDir, ec);
  sqlite3* db = nullptr;
  std::string file = (dataDir / "devbackend.sqlite3").string();
  if (sqlite3_open(file.c_str(), &db) != SQLITE_OK ||
      sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
    *error = file + ": " + sqlite3_errmsg(db);
    sqlite3_close(db);
    return nullptr;
  }
  // Databases made before tokens recorded when they were spent gain the column; the error for one that has it is
  // expected.
  sqlite3_exec(db, "ALTER TABLE refresh_tokens ADD COLUMN spent_at REAL NOT NULL DEFAULT 0", nullptr, nullptr, nullptr);
  return std::unique_ptr<Store>(new Store(db));
}

Store::Store(sqlite3* db) : db_(db) {}

Store::~Store() { sqlite3_close(db_); }

std::optional<User> Store::FindUserByEmail(const std::string& email) {
  Statement find(db_, "SELECT id, email, created_at FROM users WHERE email = ?");
  if (!find.Bind(email).Step()) return std::nullopt;
  return User{find.Text(0), find.Text(1), find.Real(2)};
}

std::optional<User> Store::SignIn(const std::string& email, const std::string& password, double now) {
  std::lock_guard lock(mutex_);
  Statement find(db_, "SELECT id, email, created_at, password_salt, password_hash FROM users WHERE email = ?");
  if (find.Bind(email).Step()) {
    if (PasswordHash(password, find.Text(3)) != find.Text(4)) return std::nullopt;
    return User{find.Text(0), find.Text(1), find.Real(2)};
  }
  User user{NewUuid(), email, now};
  std::string salt = RandomHex(16);
  Statement insert(db_, "INSERT INTO users(id, email, password_salt, password_hash, created_at) VALUES(?,?,?,?,?)");
  insert.Bind(user.id).Bind(email).Bind(salt).Bind(PasswordHash(password, salt)).Bind(now).Step();
  return user;
}

std::string Store::IssueRefreshToken(const std::string& sessionId, double now) {
  std::string token = RandomHex(24);
  Statement insert(db_, "INSERT INTO refresh_tokens(token, session_id, created_at) VALUES(?,?,?)");
  insert.Bind(token).Bind(sessionId).Bind(now).Step();
  return token;
}

Grant Store::StartSession(const User& user, double now) {
  std::lock_guard lock(mutex_);
  std::string sessionId = NewUuid();
  Statement insert(db_, "INSERT INTO sessions(id, user_id, created_at) VALUES(?,?,?)");
  insert.Bind(sessionId).Bind(user.id).Bind(now).Step();
  return Grant{user, sessionId, IssueRefreshToken(sessionId, now)};
}

void Store::EndSession(const std::string& sessionId) {
  Statement tokens(db_, "DELETE FROM refresh_tokens WHERE session_id = ?");
  tokens.Bind(sessionId).Step();
  Statement session(db_, "DELETE FROM sessions WHERE id = ?");
  session.Bind(sessionId).Step();
}

std::optional<std::string> Store::ActiveRefreshToken(const std::string& sessionId) {
  Statement find(db_, "SELECT token FROM refresh_tokens WHERE session_id = ? AND spent = 0 ORDER BY created_at DESC");
  if (!find.Bind(sessionId).Step()) return std::nullopt;
  return find.Text(0);
}

std::variant<Grant, RotateError> Store::Rotate(const std::string& refreshToken, double now, double reuseInterval) {
  std::lock_guard lock(mutex_);
  Statement find(db_,
                 "SELECT t.session_id, t.spent, t.spent_at, u.id, u.email, u.created_at FROM refresh_tokens t "
                 "JOIN sessions s ON s.id = t.session_id JOIN users u ON u.id = s.user_id WHERE t.token = ?");
  if (!find.Bind(refreshToken).Step()) return RotateError::kNotFound;
  std::string sessionId = find.Text(0);
  User user{find.Text(3), find.Text(4), find.Real(5)};
  if (find.Int(1) != 0) {
    // Two clients of one device racing each other get the same successor; a token presented later is taken as
    // stolen, and the whole session goes.
    std::optional<std::string> active = ActiveRefreshToken(sessionId);
    if (now - find.Real(2) < reuseInterval && active) return Grant{user, sessionId, *active};
    EndSession(sessionId);
    return RotateError::kAlreadyUsed;
  }
  Statement spend(db_, "UPDATE refresh_tokens SET spent = 1, spent_at = ? WHERE token = ?");
  spend.Bind(now).Bind(refreshToken).Step();
  Statement touch(db_, "UPDATE sessions SET refreshed_at = ?, refresh_count = refresh_count + 1 WHERE id = ?");
  touch.Bind(now).Bind(sessionId).Step();
  return Grant{user, sessionId, IssueRefreshToken(sessionId, now)};
}

std::optional<User> Store::UserOfSession(const std::string& sessionId) {
  std::lock_guard lock(mutex_);
  Statement find(db_,
                 "SELECT u.id, u.email, u.created_at FROM sessions s JOIN users u ON u.id = s.user_id WHERE s.id = ?");
  if (!find.Bind(sessionId).Step()) return std::nullopt;
  return User{find.Text(0), find.Text(1), find.Real(2)};
}

void Store::EndSessionNow(const std::string& sessionId) {
  std::lock_guard lock(mutex_);
  EndSession(sessionId);
}

std::optional<int> Store::RevokeSessions(const std::string& email) {
  std::lock_guard lock(mutex_);
  auto user = FindUserByEmail(email);
  if (!user) return std::nullopt;
  std::vector<std::string> sessionIds;
  Statement sessions(db_, "SELECT id FROM sessions WHERE user_id = ?");
  sessions.Bind(user->id);
  while (sessions.Step()) sessionIds.push_back(sessions.Text(0));
  for (const auto& id : sessionIds) EndSession(id);
  return static_cast<int>(sessionIds.size());
}

void Store::DeleteExpiredRelays(double now) {
  Statement purge(db_, "DELETE FROM auth_relay WHERE created_at <= ?");
  purge.Bind(now - kRelayLifetimeSeconds).Step();
}

void Store::PutRelay(const std::string& flowId, const std::string& sessionPayload, double now) {
  std::lock_guard lock(mutex_);
  DeleteExpiredRelays(now);
  Statement put(db_, "INSERT OR REPLACE INTO auth_relay(id, session_payload, created_at) VALUES(?,?,?)");
  put.Bind(flowId).Bind(sessionPayload).Bind(now).Step();
}

std::optional<RelayRow> Store::TakeRelay(const std::string& flowId, double now) {
  std::lock_guard lock(mutex_);
  DeleteExpiredRelays(now);
  Statement find(db_, "DELETE FROM auth_relay WHERE id = ? RETURNING id, session_payload, created_at");
  if (!find.Bind(flowId).Step()) return std::nullopt;
  return RelayRow{find.Text(0), find.Text(1), find.Real(2)};
}

void Store::RecordHeartbeat(const std::string& remote, const std::string& body, double now) {
  std::lock_guard lock(mutex_);
  Statement insert(db_, "INSERT INTO heartbeats(received_at, remote, body) VALUES(?,?,?)");
  insert.Bind(now).Bind(remote).Bind(body).Step();
}

void Store::RecordFetch(const FetchRow& fetch) {
  std::lock_guard lock(mutex_);
  Statement insert(db_, "INSERT INTO fetches(at, path, status, remote, user_agent) VALUES(?,?,?,?,?)");
  insert.Bind(fetch.at).Bind(fetch.path).Bind(int64_t{fetch.status}).Bind(fetch.remote).Bind(fetch.userAgent).Step();
}

std::vector<HeartbeatRow> Store::RecentHeartbeats(int limit) {
  std::lock_guard lock(mutex_);
  std::vector<HeartbeatRow> rows;
  Statement select(db_, "SELECT received_at, remote, body FROM heartbeats ORDER BY seq DESC LIMIT ?");
  select.Bind(int64_t{limit});
  while (select.Step()) rows.push_back({select.Real(0), select.Text(1), select.Text(2)});
  return rows;
}

std::vector<FetchRow> Store::RecentFetches(int limit) {
  std::lock_guard lock(mutex_);
  std::vector<FetchRow> rows;
  Statement select(db_, "SELECT at, path, status, remote, user_agent FROM fetches ORDER BY seq DESC LIMIT ?");
  select.Bind(int64_t{limit});
  while (select.Step()) {
    rows.push_back({select.Real(0), select.Text(1), static_cast<int>(select.Int(2)), select.Text(3), select.Text(4)});
  }
  return rows;
}

std::vector<SessionRow> Store::RecentSessions(int limit) {
  std::lock_guard lock(mutex_);
  std::vector<SessionRow> rows;
  Statement select(db_,
                   "SELECT s.id, u.email, s.created_at, s.refreshed_at, s.refresh_count FROM sessions s "
                   "JOIN users u ON u.id = s.user_id ORDER BY s.created_at DESC LIMIT ?");
  select.Bind(int64_t{limit});
  while (select.Step()) {
    rows.push_back({select.Text(0), select.Text(1), select.Real(2), select.Real(3), select.Int(4)});
  }
  return rows;
}

std::vector<RelayRow> Store::RecentRelays(int limit, double now) {
  std::lock_guard lock(mutex_);
  DeleteExpiredRelays(now);
  std::vector<RelayRow> rows;
  Statement select(db_, "SELECT id, session_payload, created_at FROM auth_relay ORDER BY created_at DESC LIMIT ?");
  select.Bind(int64_t{limit});
  while (select.Step()) rows.push_back({select.Text(0), select.Text(1), select.Real(2)});
  return rows;
}

}  // namespace orvistelle::devbackend
