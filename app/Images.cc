#include "app/Images.h"

#include <cstring>
#include <optional>
#include <string>

#include "platform/StateFile.h"

namespace orvistelle::app {
namespace {

// Twice the largest image the window shows, 192 × 52 points at twice the density, with room to spare.
constexpr std::uint32_t kLargestSide = 1024;

}  // namespace

QImage ReadPixels(const QString& path) {
  const std::size_t limit = sizeof(PixelsHeader) + std::size_t{4} * kLargestSide * kLargestSide;
  const std::optional<std::string> bytes = platform::ReadStateFile(path.toStdString(), limit);
  PixelsHeader header{};
  if (!bytes || bytes->size() < sizeof header) return {};
  std::memcpy(&header, bytes->data(), sizeof header);
  if (header.magic != PixelsHeader::kMagic || header.width == 0 || header.height == 0 || header.width > kLargestSide ||
      header.height > kLargestSide || bytes->size() != sizeof header + std::size_t{4} * header.width * header.height) {
    return {};
  }
  QImage image(static_cast<int>(header.width), static_cast<int>(header.height), QImage::Format_ARGB32_Premultiplied);
  std::memcpy(image.bits(), bytes->data() + sizeof header, bytes->size() - sizeof header);
  return image;
}

}  // namespace orvistelle::app
