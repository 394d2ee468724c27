#include "update/DismissalFile.h"

#include <cstdint>
#include <filesystem>

#include "platform/Json.h"
#include "platform/StateFile.h"
#include "platform/SupportFolder.h"

namespace orvistelle::update {
namespace fs = std::filesystem;

std::string DismissPath() { return (fs::path(platform::SupportFolder()) / "fcp-update-dismiss.json").string(); }

std::optional<Dismissal> LoadDismissal() {
  std::optional<platform::Json> record = platform::JsonObject(platform::ReadStateFile(DismissPath()));
  if (!record) return std::nullopt;
  return Dismissal{platform::StringMember(*record, "version").value_or(""),
                   platform::NumberMember(*record, "until").value_or(0)};
}

void SaveDismissal(const Dismissal& dismissal) {
  std::error_code ignored;
  fs::create_directories(platform::SupportFolder(), ignored);
  const platform::Json record = {{"version", dismissal.version}, {"until", static_cast<int64_t>(dismissal.until)}};
  platform::WriteStateFile(DismissPath(), platform::Dump(record));
}

}  // namespace orvistelle::update
