// Build step: turns a PNG drawn from the SVG sources into the pixel file the window reads without decoding.
//   orvistelle_pixels_from_png INPUT.png OUTPUT
#include <QImage>

#include <cstdio>

#include "app/Images.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s INPUT.png OUTPUT\n", argv[0]);
    return 2;
  }
  const QImage image =
      QImage(QString::fromLocal8Bit(argv[1]), "PNG").convertToFormat(QImage::Format_ARGB32_Premultiplied);
  if (image.isNull()) {
    std::fprintf(stderr, "%s: cannot read %s as PNG\n", argv[0], argv[1]);
    return 1;
  }
  const orvistelle::app::PixelsHeader header{orvistelle::app::PixelsHeader::kMagic,
                                             static_cast<std::uint32_t>(image.width()),
                                             static_cast<std::uint32_t>(image.height())};
  std::FILE* out = std::fopen(argv[2], "wb");
  bool written = out && std::fwrite(&header, sizeof header, 1, out) == 1;
  for (int y = 0; written && y < image.height(); ++y) {
    written = std::fwrite(image.constScanLine(y), 4, static_cast<std::size_t>(image.width()), out) ==
              static_cast<std::size_t>(image.width());
  }
  if (out && std::fclose(out) != 0) written = false;
  if (!written) std::fprintf(stderr, "%s: cannot write %s\n", argv[0], argv[2]);
  return written ? 0 : 1;
}
