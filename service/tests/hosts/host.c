/* A plug-in host as the harness runs it: linked to liborvistelle-service.so, living in a fake plug-in bundle, and
   driven by its arguments. It prints what it saw as "key=value" lines on stdout.
     report            starts the services, lets them settle (manifest in, a held session's e-mail known) and reports
     dismiss           as report, putting the offered update off before reporting
     run <ms>          starts the services, lets them work for that long and reports; the harness may kill it meanwhile
     exit-race <µs>    threads keep reading state while main returns that long after starting the services */
#define _GNU_SOURCE
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "orvistelle/FcpService.h"

static void SleepMicros(long micros) {
  struct timespec pause = {micros / 1000000, (micros % 1000000) * 1000L};
  nanosleep(&pause, NULL);
}

static void* ReadStateForever(void* unused) {
  for (;;) {
    FcpServiceHasSession();
    FcpServiceStatus();
    FcpServiceEmail();
    FcpServiceUpdateForced();
    FcpServiceUpdateSoftAvailable();
    FcpServiceUpdateLatestVersion();
  }
  return unused;
}

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "";
  long number = argc > 2 ? strtol(argv[2], NULL, 10) : 0;
  for (int i = 0; strcmp(mode, "exit-race") == 0 && i < 4; ++i) {
    pthread_t reader;
    if (pthread_create(&reader, NULL, ReadStateForever, NULL) == 0) pthread_detach(reader);
  }
  FcpServiceMaintain();
  if (strcmp(mode, "exit-race") == 0) {
    SleepMicros(number);
    return 0;
  }
  if (strcmp(mode, "run") == 0) {
    SleepMicros(number * 1000);
  } else if (strcmp(mode, "report") == 0 || strcmp(mode, "dismiss") == 0) {
    for (long waited = 0; waited < 5000; waited += 5) {
      int emailDue = FcpServiceHasSession() && FcpServiceEmail()[0] == '\0';
      if (FcpServiceUpdateLatestVersion()[0] != '\0' && !emailDue) break;
      SleepMicros(5000);
    }
    if (strcmp(mode, "dismiss") == 0) FcpServiceUpdateDismissSoft();
  } else {
    fprintf(stderr, "usage: %s report|dismiss|run <ms>|exit-race <µs>\n", argv[0]);
    return 2;
  }
  printf("version=%s\nheaders=%s\n", FcpServiceVersion(), ORVISTELLE_VERSION_STRING);
  printf("forced=%d\nsoft=%d\nlatest=%s\nstatus=%s\nerror=%d\nemail=%s\nsession=%d\n", FcpServiceUpdateForced(),
         FcpServiceUpdateSoftAvailable(), FcpServiceUpdateLatestVersion(), FcpServiceStatus(),
         FcpServiceStatusIsError(), FcpServiceEmail(), FcpServiceHasSession());
  return 0;
}
