#include "app/Images.h"

#include <QImageReader>

namespace orvistelle::app {

QImage ReadPng(const QString& path) {
  QImageReader reader(path, "PNG");
  reader.setAutoDetectImageFormat(false);
  return reader.read();
}

}  // namespace orvistelle::app
