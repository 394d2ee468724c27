// Images the bundle carries, kept as the pixels the window paints so that nothing is decoded to show them.
#pragma once

#include <QImage>
#include <QString>

#include <cstdint>

namespace orvistelle::app {

// The bundle's image files: this header, then width × height premultiplied ARGB pixels as 32-bit words in the byte
// order of the machine that built them, row after row. Qt's own readers, even for a format it knows, first list every
// image plug-in installed to ask whether one of them takes the file; these files need no reader at all.
struct PixelsHeader {
  static constexpr std::uint32_t kMagic = 0x5056524F;  // "ORVP" in a little-endian file
  std::uint32_t magic;
  std::uint32_t width;
  std::uint32_t height;
};

// The image in such a file, or a null image for a missing, short, oversized or malformed one.
QImage ReadPixels(const QString& path);

}  // namespace orvistelle::app
