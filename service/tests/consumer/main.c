/* Drives the installed shared library through the calls that touch neither the network nor the user's files, and
   prints what it sees. */
#include <orvistelle/FcpService.h>
#include <stdio.h>

static const char* Shown(const char* text) { return text != NULL ? text : "(NULL)"; }

int main(void) {
  printf("version=%s headers=%s\n", Shown(FcpServiceVersion()), ORVISTELLE_VERSION_STRING);
  printf("status=%s error=%d busy=%d\n", Shown(FcpServiceStatus()), FcpServiceStatusIsError(), FcpServiceBusy());
  printf("email=[%s]\n", Shown(FcpServiceEmail()));
  printf("forced=%d soft=%d latest=[%s] notes=[%s]\n", FcpServiceUpdateForced(), FcpServiceUpdateSoftAvailable(),
         Shown(FcpServiceUpdateLatestVersion()), Shown(FcpServiceUpdateNotes()));
  return 0;
}
