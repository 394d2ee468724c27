// What the window shows for a set of probe results, and the set-up run that mends what is missing: registration
// now, the template copy and the verdict after a short pause. Free of widgets, so the whole flow runs headless.
#pragma once

#include <string>
#include <string_view>

#include "app/Probes.h"
#include "app/TemplateInstall.h"

namespace orvistelle::shell {

// A component row's verdict: in place, one set-up can mend, or one set-up cannot mend.
enum class RowStatus { Ready, NeedsAttention, Missing };

// How a hint line is coloured: the quiet grey, the warning amber or the error red.
enum class Tone { Quiet, Warning, Error };

struct RowState {
  RowStatus status;
  const char* textKey;
};

struct WindowState {
  RowState host;
  RowState service;
  RowState templ;
  const char* buttonTitleKey;
  bool buttonEnabled;
  double buttonAlpha;
  const char* hintKey;  // always in the quiet tone
};

WindowState DecideWindowState(const Probes& probes);

struct Hint {
  Tone tone;
  std::string text;
};

// Registers the running bundle with the application database, falling back to the system's tool. `status` (when
// given) receives 0 or the database's negative status. True when the bundle is listed now or the status is 0.
bool RegisterHostNow(int* status);

// Replaces the installed template with the bundled one. `error` (when given) says why it failed.
bool InstallTemplateNow(InstallError* error);

// The state carried from the first half of a run to the second.
struct PendingSetup {
  int registrationStatus = 0;
  bool registrationAttempted = false;
  bool registrationResult = true;
  bool templateWanted = false;
};

// The first half of a run, for probes that found the service present: registers (synchronously) unless the host is
// registered and only the template is missing, and decides whether the template is to be copied.
PendingSetup StartSetup(const Probes& probes);

struct SetupResult {
  bool registrationGood = true;
  int registrationStatus = 0;
  bool templateResult = true;
  InstallError templateError;
};

// The second half: copies the template when wanted and the registration went through.
SetupResult CompleteSetup(const PendingSetup& pending);

// Moves what an earlier version kept where a Mac keeps it, the state files and the installed template, to where this
// version looks for them (platform::MoveFromEarlierPlace). Run before anything reads them.
void MoveEarlierFiles();

// The support log's first line of a run: the program, the app's and the library's versions and the bundle's path.
void NoteLaunch(std::string_view program);

// The hint that ends a run, given its result and whether all three components are in place afterwards.
Hint SetupOutcomeHint(const SetupResult& result, bool allReadyNow);

}  // namespace orvistelle::shell
