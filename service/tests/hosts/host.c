/* A plug-in host linked to liborvistelle-service.so; prints "key=value" lines. No mode: a fresh process's state.
   "report <ms>": starts the services, waits for the manifest and a held session's e-mail, then <ms> more; "dismiss
   <ms>" puts the update off too, "open <ms>" opens the download, "logout <ms>" signs out and waits. "signout <ms>":
   starts nothing, signs out that late, as a window in another process would. "exit|kill <µs>": returns (four threads
   reading state) or SIGKILLs itself that soon. */
#define _GNU_SOURCE
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "orvistelle/FcpService.h"

static void* ReadStateForever(void* unused) {
  for (;;) {
    FcpServiceHasSession();
    FcpServiceStatus();
    FcpServiceUpdateLatestVersion();
  }
  return unused;
}

static void Settle(void) {
  for (int tries = 0; tries < 1000; ++tries) {
    int emailDue = FcpServiceHasSession() && FcpServiceEmail()[0] == '\0';
    if (FcpServiceUpdateLatestVersion()[0] != '\0' && !emailDue) return;
    usleep(5000);
  }
}

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "";
  const long number = argc > 2 ? strtol(argv[2], NULL, 10) : 0;
  const int starts = argc > 1 && strcmp(mode, "signout") != 0;
  srand((unsigned)getpid());
  for (int i = 0; strcmp(mode, "exit") == 0 && i < 4; ++i) {
    pthread_t reader;
    if (pthread_create(&reader, NULL, ReadStateForever, NULL) == 0) pthread_detach(reader);
  }
  if (starts) FcpServiceMaintain();
  if (strcmp(mode, "exit") == 0 || strcmp(mode, "kill") == 0) {
    usleep(rand() % number);
    if (strcmp(mode, "kill") == 0) raise(SIGKILL);
    return 0;
  }
  if (starts) Settle();
  if (strcmp(mode, "dismiss") == 0) FcpServiceUpdateDismissSoft();
  if (strcmp(mode, "open") == 0) FcpServiceUpdateOpenDownload();
  if (strcmp(mode, "logout") == 0) FcpServiceLogout();
  usleep(number * 1000);
  if (!starts && argc > 1) FcpServiceLogout();
  printf("version=%s\nheaders=%s\nstatus=%s\nerror=%d\nbusy=%d\nemail=%s\n", FcpServiceVersion(),
         ORVISTELLE_VERSION_STRING, FcpServiceStatus(), FcpServiceStatusIsError(), FcpServiceBusy(), FcpServiceEmail());
  printf("forced=%d\nsoft=%d\nlatest=%s\nnotes=%s\n", FcpServiceUpdateForced(), FcpServiceUpdateSoftAvailable(),
         FcpServiceUpdateLatestVersion(), FcpServiceUpdateNotes());
  /* A fresh process leaves the session file alone: where the installed package is checked, it is the user's. */
  if (argc > 1) printf("session=%d\n", FcpServiceHasSession());
  return 0;
}
