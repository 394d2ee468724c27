/* A plug-in host as the harness runs it: linked to liborvistelle-service.so, living in a fake plug-in bundle, and
   driven by its first argument. Every mode prints what it saw as "key=value" lines on stdout. */
#define _GNU_SOURCE
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "orvistelle/FcpService.h"

static void SleepMs(long ms) {
  struct timespec pause = {ms / 1000, (ms % 1000) * 1000000L};
  nanosleep(&pause, NULL);
}

static long Argument(int argc, char** argv, int index, long fallback) {
  return argc > index ? strtol(argv[index], NULL, 10) : fallback;
}

static void Report(void) {
  printf("version=%s\nheaders=%s\n", FcpServiceVersion(), ORVISTELLE_VERSION_STRING);
  printf("forced=%d\nsoft=%d\nlatest=%s\nstatus=%s\nerror=%d\nemail=%s\nsession=%d\n", FcpServiceUpdateForced(),
         FcpServiceUpdateSoftAvailable(), FcpServiceUpdateLatestVersion(), FcpServiceStatus(),
         FcpServiceStatusIsError(), FcpServiceEmail(), FcpServiceHasSession());
  fflush(stdout);
}

/* Waits until the services have settled (the first manifest is in, a held session's e-mail is known) or the limit
   has passed. */
static void Settle(long limit) {
  for (long waited = 0; waited < limit; waited += 5) {
    bool emailDue = FcpServiceHasSession() && FcpServiceEmail()[0] == '\0';
    if (FcpServiceUpdateLatestVersion()[0] != '\0' && !emailDue) return;
    SleepMs(5);
  }
}

/* report [limit ms]: starts the services, lets them settle and reports. */
static int ReportMode(int argc, char** argv) {
  FcpServiceMaintain();
  Settle(Argument(argc, argv, 2, 5000));
  Report();
  return 0;
}

/* dismiss [limit ms]: as report, putting the offered update off before reporting. */
static int DismissMode(int argc, char** argv) {
  FcpServiceMaintain();
  Settle(Argument(argc, argv, 2, 5000));
  FcpServiceUpdateDismissSoft();
  Report();
  return 0;
}

/* run <ms>: starts the services, lets them work for that long and reports; the harness may kill it meanwhile. */
static int RunMode(int argc, char** argv) {
  FcpServiceMaintain();
  SleepMs(Argument(argc, argv, 2, 1000));
  Report();
  return 0;
}

static void* ReadStateForever(void* unused) {
  (void)unused;
  for (;;) {
    FcpServiceHasSession();
    FcpServiceStatus();
    FcpServiceEmail();
    FcpServiceUpdateForced();
    FcpServiceUpdateSoftAvailable();
    FcpServiceUpdateLatestVersion();
  }
  return NULL;
}

/* exit-race <µs>: threads of the host keep reading state while main returns that long after starting the services,
   as a host that quits at any moment does. */
static int ExitRaceMode(int argc, char** argv) {
  long micros = Argument(argc, argv, 2, 0);
  for (int i = 0; i < 4; ++i) {
    pthread_t reader;
    if (pthread_create(&reader, NULL, ReadStateForever, NULL) == 0) pthread_detach(reader);
  }
  FcpServiceMaintain();
  struct timespec pause = {micros / 1000000, (micros % 1000000) * 1000L};
  nanosleep(&pause, NULL);
  puts("exiting");
  fflush(stdout);
  return 0;
}

static const struct {
  const char* name;
  int (*run)(int argc, char** argv);
} kModes[] = {
    {"report", ReportMode},
    {"dismiss", DismissMode},
    {"run", RunMode},
    {"exit-race", ExitRaceMode},
};

int main(int argc, char** argv) {
  for (size_t i = 0; argc > 1 && i < sizeof kModes / sizeof kModes[0]; ++i) {
    if (strcmp(argv[1], kModes[i].name) == 0) return kModes[i].run(argc, argv);
  }
  fprintf(stderr, "usage: %s report|dismiss|run|exit-race [number]\n", argv[0]);
  return 2;
}
