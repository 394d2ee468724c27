// The account session as the C interface shows it.
#include "orvistelle/FcpAuth.h"

#include "auth/Session.h"

using namespace orvistelle::auth;

bool FcpAuthHasSession() {
  if (HoldsSession(CurrentSession())) return true;
  LoadSession();
  return HoldsSession(CurrentSession());
}

bool FcpAuthSignedIn() { return FcpAuthHasSession(); }

bool FcpAuthBusy() { return IsBusy(); }

std::string FcpAuthEmail() { return CurrentSession().email; }
