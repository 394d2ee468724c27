// One anonymous report a UTC day, with a per-installation id, to the product API.
#pragma once

#include <string>

namespace orvistelle::auth {

std::string InstallIdPath();
std::string HeartbeatDayPath();

// "yyyy-MM-dd" of the UTC day holding the moment (seconds since 1970).
std::string UtcDay(double seconds);

// Starts one background report unless today's was accepted already or one is in flight. The day is recorded only
// once the server has accepted the report, so a failed one is tried again on the next call.
void ReportHeartbeatIfNeeded();

void ResetHeartbeatMemory();

}  // namespace orvistelle::auth
