// The soft-update dismissal as kept across restarts, in the per-user support folder.
#pragma once

#include <optional>
#include <string>

namespace orvistelle::update {

struct Dismissal {
  std::string version;  // the manifest's version as it stood when dismissed
  double until = 0;     // seconds since 1970; 0 means over
};

// In the support folder that the account module shares (platform::SupportFolder).
std::string DismissPath();

// Nothing when the file is missing, unreadable, not a regular file of at most 64 KiB, or holds no JSON object. A
// value of the wrong type reads as "" or 0.
std::optional<Dismissal> LoadDismissal();

// Creates the directory and replaces the file whole ("until" in whole seconds); failures are ignored, since the
// dismissal still holds in memory for this run.
void SaveDismissal(const Dismissal& dismissal);

}  // namespace orvistelle::update
