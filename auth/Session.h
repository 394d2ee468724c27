// The account session: the tokens, the e-mail and the access token's expiry, in memory and in "fcp-session.json",
// plus which browser sign-in attempt is current.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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
// Ignores an e-mail that is not showable.
void SetEmail(const std::string& email);

std::string SessionPath();
// Takes the session from the file, but only a file holding both tokens changes anything.
void LoadSession();
// Writes the session file; a failure shows as the status line while the session stays in memory.
void SaveSession();

struct AccessClaims {
  std::string email;  // "email", else "user_metadata"."email"; empty when neither is a non-empty string
  double expiry = 0;  // "exp" as a number or numeric string; 0 otherwise
};
// Reads the claims of a JWT without verifying it: they only serve display and scheduling.
AccessClaims ParseAccessClaims(std::string_view token);

// Installs a newly issued access token (never empty), keeping the old refresh token when none is given and the old
// e-mail when the token names none. The expiry comes from the token's "exp", else from now + expiresIn when that
// is positive, else stays. Saves the session.
void ApplyAccessToken(const std::string& access, const std::string& refresh, std::optional<double> expiresIn);

// Forgets the session, deletes its file and ends any browser sign-in in progress. Leaves the status alone.
void ClearSessionState();

// Starts a new browser sign-in attempt, superseding any other; returns the attempt's generation.
uint32_t NextLoginGeneration();
uint32_t CurrentLoginGeneration();
void SetBusy(bool busy);

// Memory back to its state at process start (the file stays).
void ResetSessionMemory();

}  // namespace orvistelle::auth
