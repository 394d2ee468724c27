// The update check: the version manifest on the download server, whether an update is optional or required,
// and the dismissal of an optional one for a day. Every function may be called from any thread and returns
// without waiting on the network.
#pragma once

#include <string>

// Starts a background check unless one ran in the last six hours or one is running.
void FcpUpdateMaintain();
bool FcpUpdateForced();
bool FcpUpdateSoftAvailable();
std::string FcpUpdateLatestVersion();
std::string FcpUpdateNotes();
std::string FcpUpdateDownloadURL();
void FcpUpdateDismissSoft();
void FcpUpdateOpenDownload();
