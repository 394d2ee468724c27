// The account session: the tokens, the e-mail and the access token's expiry, in memory and in "fcp-session.json",
// plus which browser sign-in attempt is current.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvistelle::auth {

struct Session {
  std::string access;    // a JWT; empty: none
  std::string refresh;   // empty: none
  std::string email;     // empty: unknown
  double expiresAt = 0;  // the access token's expiry in seconds since 1970; 0 or less: unknown
};

// A copy of the session as it stands; every field is read at the same moment.
Session CurrentSession();
bool HoldsSession(const Session& session);

// The session together with the generation it belongs to. A sign-out, an expiry or a new sign-in starts a new
// generation; an answer to a request sent in an older one is dropped, so that a late answer never brings back a
// session that was ended.
struct SessionSnapshot {
  Session session;
  uint32_t generation = 0;
};
SessionSnapshot SnapshotSession();

// Stores the e-mail and saves, only while `generation` is current; an e-mail that is not showable is ignored.
void SaveEmail(const std::string& email, uint32_t generation);

// Takes the session from the file, but only a file holding both tokens changes anything, and only while no
// sign-out has happened since the read began.
void LoadSession();
// Writes the session file; a failure shows as the status line while the session stays in memory.
void SaveSession();

// Newly issued tokens: the access token (never empty), the refresh token (empty keeps the old one), the lifetime
// used when the token carries no "exp", and an e-mail that the token's own claim overrides (empty keeps the old).
struct IssuedTokens {
  std::string access;
  std::string refresh;
  std::optional<double> expiresIn;
  std::string email;
};

// Whether a save may replace a session file that another process has changed since this one last read or wrote it:
// a new sign-in may; a refresh or an e-mail may not, as the other process's session is the newer one.
enum class FileRule { kReplace, kOnlyIfUnchanged };

// Installs issued tokens and saves, only while `generation` is current; false when they were dropped. The expiry
// comes from the token's "exp", else from now + expiresIn when that is positive, else stays.
bool ApplyAccessToken(const IssuedTokens& tokens, uint32_t generation, FileRule rule);

// Forgets the session, deletes its file and ends any browser sign-in in progress. Leaves the status alone.
void ClearSessionState();
// The same, only while `generation` is current; false when a newer generation has begun.
bool ClearSessionStateIfCurrent(uint32_t generation);

enum class SessionFileChange {
  kNone,      // the file holds the session this process last read or wrote, or cannot be read
  kAdopted,   // another process stored a newer session there, which is now held here too
  kSignedOut  // another process deleted the file: the session is forgotten here too
};
// Follows the file when another process has changed it since this process last read or wrote it. A file that is
// gone wins over tokens that this process received but could not save over it, as they were asked for before the
// sign-out that removed it.
SessionFileChange FollowSessionFile();

// Starts a new browser sign-in attempt, superseding any other; returns the attempt's generation.
uint32_t NextLoginGeneration();
uint32_t CurrentLoginGeneration();
void SetBusy(bool busy);
bool IsBusy();

// Memory back to its state at process start (the file stays).
void ResetSessionMemory();

}  // namespace orvistelle::auth
