// The account status line: a catalogue key translated whenever it is read, or a literal text, plus an error flag.
#pragma once

#include <string>

namespace orvistelle::auth {

void SetStatusKey(const std::string& key, bool isError);
// The text is shown as given, even when empty, and does not follow a change of language.
void SetStatusText(const std::string& text, bool isError);
// A literal text that does not report an error, unless the current status does: an error stays visible until an
// explicit action replaces it.
void SetStatusTextUnlessError(const std::string& text);

// "auth.notSignedIn", no error: the state at process start.
void ResetStatus();

}  // namespace orvistelle::auth
