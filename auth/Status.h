// The account status line: a catalogue key translated whenever it is read, or a literal text, plus an error flag.
#pragma once

#include <string>
#include <string_view>

namespace orvistelle::auth {

// Whether a text from outside (a server, a file) may be shown and kept: at most 320 bytes and free of control
// characters, so that no answer can make a status line or e-mail that breaks or floods a host's interface.
bool IsShowableText(std::string_view text);

// An empty key stands for "auth.notSignedIn".
void SetStatusKey(const std::string& key, bool isError);
// The text is shown as given, even when empty, and does not follow a change of language; a text that is not showable
// leaves the status as it was.
void SetStatusText(const std::string& text, bool isError);
// A literal text that does not report an error, unless the current status does: an error stays visible until an
// explicit action replaces it.
void SetStatusTextUnlessError(const std::string& text);

// "auth.notSignedIn", no error: the state at process start.
void ResetStatus();

}  // namespace orvistelle::auth
