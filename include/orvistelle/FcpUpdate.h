// The update check: the version manifest on the download server, whether an update is optional or required,
// and the dismissal of an optional one for a day. Every function may be called from any thread and returns
// without waiting on the network. Before the first manifest has loaded nothing is forced or offered, and the
// strings are "".
#pragma once

#include <string>

// Starts a background check unless one ran in the last six hours or one is running. The first call of the process
// also loads the dismissal saved by an earlier run.
void FcpUpdateMaintain();
// The installed version is below the manifest's "force_below".
bool FcpUpdateForced();
// A newer version exists, is not required, and has not been dismissed within the last 24 hours.
bool FcpUpdateSoftAvailable();
std::string FcpUpdateLatestVersion();
std::string FcpUpdateNotes();
// The direct download, else the download page, else the fixed download on the download server.
std::string FcpUpdateDownloadURL();
// Hides the currently offered version for 24 hours, across restarts.
void FcpUpdateDismissSoft();
// Opens the download in the default browser, unless its URL is malformed.
void FcpUpdateOpenDownload();
