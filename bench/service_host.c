/* A plug-in host in C that loads the service library as a host does, and reports what that costs it: the time the
   load takes, the memory it adds at once and 2 s after FcpServiceMaintain, the threads it adds, and how often a
   host's interface may ask for the session and the status line.

   usage: orvistelle_service_host LIBRARY
   prints: load_ms, load_rss_kb, maintain_rss_kb, threads_added, has_session_per_s, status_per_s, one per line. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static double NowMs(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec * 1e3 + (double)now.tv_nsec / 1e6;
}

/* A "Name:   value" line of /proc/self/status. */
static long StatusValue(const char* name) {
  FILE* status = fopen("/proc/self/status", "r");
  if (status == NULL) return -1;
  char line[256];
  long value = -1;
  const size_t length = strlen(name);
  while (fgets(line, sizeof line, status) != NULL) {
    if (strncmp(line, name, length) == 0 && line[length] == ':') value = atol(line + length + 1);
  }
  fclose(status);
  return value;
}

/* Calls per second over half a second, reading the clock once every 1024 calls. */
static double CallsPerSecond(void (*call)(void*), void* function) {
  const double start = NowMs();
  long calls = 0;
  double now = start;
  while (now - start < 500) {
    for (int i = 0; i < 1024; ++i) call(function);
    calls += 1024;
    now = NowMs();
  }
  return (double)calls * 1000 / (now - start);
}

static void CallHasSession(void* function) { (void)((bool (*)(void))function)(); }
static void CallStatus(void* function) { (void)((const char* (*)(void))function)(); }

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
    return 2;
  }
  const long rssBefore = StatusValue("VmRSS");
  const long threadsBefore = StatusValue("Threads");
  const double start = NowMs();
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  void (*maintain)(void) = library != NULL ? (void (*)(void))dlsym(library, "FcpServiceMaintain") : NULL;
  void* hasSession = library != NULL ? dlsym(library, "FcpServiceHasSession") : NULL;
  void* status = library != NULL ? dlsym(library, "FcpServiceStatus") : NULL;
  const double loaded = NowMs();
  if (maintain == NULL || hasSession == NULL || status == NULL) {
    fprintf(stderr, "service_host: cannot load %s: %s\n", argv[1], dlerror());
    return 1;
  }
  const long rssLoaded = StatusValue("VmRSS");
  maintain();
  const struct timespec settle = {2, 0};
  nanosleep(&settle, NULL);
  printf("load_ms %.3f\n", loaded - start);
  printf("load_rss_kb %ld\n", rssLoaded - rssBefore);
  printf("maintain_rss_kb %ld\n", StatusValue("VmRSS") - rssBefore);
  printf("threads_added %ld\n", StatusValue("Threads") - threadsBefore);
  printf("has_session_per_s %.0f\n", CallsPerSecond(CallHasSession, hasSession));
  printf("status_per_s %.0f\n", CallsPerSecond(CallStatus, status));
  return 0;
}
