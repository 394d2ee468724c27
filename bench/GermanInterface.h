// Puts the catalogue lookup in German for the whole process, the way a host whose user prefers German would.
#pragma once

#include <string>
#include <vector>

#include "orvistelle/FcpI18n.h"
#include "platform/Platform.h"

namespace orvistelle::bench {

class GermanInterface final : public platform::Languages {
 public:
  GermanInterface() { FcpI18nApplyHostLocale(); }
  std::vector<std::string> Preferred() override { return {"de-DE"}; }

 private:
  // Constructed before the body runs, so the language is chosen from this object's answer.
  platform::ScopedSeam<platform::Languages> seam_{this};
};

}  // namespace orvistelle::bench
