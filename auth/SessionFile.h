// "fcp-session.json": the session as it is kept between runs and shared with the other processes of this user.
#pragma once

#include <optional>
#include <string>
#include <system_error>

#include "auth/Session.h"

namespace orvistelle::auth {

std::string SessionPath();

// Nothing when the file holds no session (both tokens); `error` says why when it could not be read at all (ENOENT:
// no file). An e-mail that cannot be shown reads as unknown; a file without "expires_at" takes the expiry, and an
// e-mail it lacks, from the access token.
std::optional<Session> ReadSessionFile(std::error_code* error = nullptr);

// Whether anything at all is at the path, a file that cannot be read included.
bool SessionFileExists();

// Replaces the file with `session`, making the support folder first.
std::error_code WriteSessionFile(const Session& session);

}  // namespace orvistelle::auth
