#include "update/DismissalFile.h"

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "platform/StateFile.h"
#include "platform/SupportFolder.h"

namespace orvistelle::update {
namespace fs = std::filesystem;
using nlohmann::json;

std::string DismissPath() { return (fs::path(platform::SupportFolder()) / "fcp-update-dismiss.json").string(); }

std::optional<Dismissal> LoadDismissal() {
  std::optional<std::string> text = platform::ReadStateFile(DismissPath());
  if (!text) return std::nullopt;
  json record = json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (!record.is_object()) return std::nullopt;
  Dismissal dismissal;
  auto version = record.find("version");
  if (version != record.end() && version->is_string()) dismissal.version = version->get<std::string>();
  auto until = record.find("until");
  if (until != record.end() && until->is_number()) dismissal.until = until->get<double>();
  return dismissal;
}

void SaveDismissal(const Dismissal& dismissal) {
  std::error_code ignored;
  fs::create_directories(platform::SupportFolder(), ignored);
  json record = {{"version", dismissal.version}, {"until", static_cast<int64_t>(dismissal.until)}};
  platform::WriteStateFile(DismissPath(), record.dump(-1, ' ', false, json::error_handler_t::replace));
}

}  // namespace orvistelle::update
