/* A plug-in host that loads the service library, starts the services and unloads the library, twice, then lives
   on past several firings of the maintenance timer. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>
#include <unistd.h>

int main(void) {
  for (int pass = 0; pass < 2; ++pass) {
    void* library = dlopen(ORVISTELLE_SERVICE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void (*maintain)(void) = library != NULL ? (void (*)(void))dlsym(library, "FcpServiceMaintain") : NULL;
    if (maintain == NULL) return 1;
    maintain();
    dlclose(library);
  }
  usleep(300 * 1000);
  return 0;
}
