#include "service/ServicesReport.h"

#include "orvistelle/FcpAuth.h"
#include "update/Report.h"

namespace orvistelle::service {

ServicesReport ReportServicesNow() {
  const update::UpdateReport update = update::CheckNowAndReport();
  return {FcpAuthHasSession(), update::SignatureStateName(update.signature), update.latest,
          update.forced ? "required" : (update.soft ? "optional" : "none")};
}

}  // namespace orvistelle::service
