#include "service/ServicesReport.h"

#include "auth/Settings.h"
#include "orvistelle/FcpAuth.h"
#include "update/Report.h"

namespace orvistelle::service {

BackendEndpoints CurrentBackendEndpoints() { return {auth::UserEndpoint(), update::ManifestURL()}; }

ServicesReport ReportServicesNow() {
  const update::UpdateReport update = update::CheckNowAndReport();
  return {FcpAuthHasSession(), update::SignatureStateName(update.signature), update.latest,
          update.forced ? "required" : (update.soft ? "optional" : "none")};
}

}  // namespace orvistelle::service
