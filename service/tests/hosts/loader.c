/* A host that loads the service library at run time and unloads it again, as plug-in hosts do:
   loader <library> <wait ms>. Loads, starts the services and unloads twice, then waits past the timer's next firing. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static int LoadMaintainUnload(const char* library) {
  void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (handle == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 0;
  }
  void (*maintain)(void) = (void (*)(void))dlsym(handle, "FcpServiceMaintain");
  if (maintain != NULL) maintain();
  dlclose(handle);
  return maintain != NULL;
}

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: %s <library> <wait ms>\n", argv[0]);
    return 2;
  }
  if (!LoadMaintainUnload(argv[1]) || !LoadMaintainUnload(argv[1])) return 1;
  long ms = strtol(argv[2], NULL, 10);
  struct timespec pause = {ms / 1000, (ms % 1000) * 1000000L};
  nanosleep(&pause, NULL);
  puts("survived=1");
  return 0;
}
