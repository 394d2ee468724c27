// The one rule for an address that may be requested from the backend or handed to the browser.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvistelle::platform {

// An absolute http or https URL (the scheme in any case) with a non-empty host and no user-info ("user:pw@"), made
// only of the characters a URL may carry ("%" only as a whole escape; no spaces, control or non-ASCII characters).
// The port, when given, is decimal digits.
bool IsWebUrl(std::string_view url);

// The host of a URL that IsWebUrl accepts, in lower case, without the port ("[::1]" keeps its brackets); nothing for
// any other string.
std::optional<std::string> WebUrlHost(std::string_view url);

}  // namespace orvistelle::platform
