// Images the bundle carries, read without asking Qt to guess their format.
#pragma once

#include <QImage>
#include <QString>

namespace orvistelle::app {

// A PNG file, or a null image. PNG support is built into Qt itself; asked to detect the format, Qt would first load
// every image plug-in (and with the SVG one, its SVG library) to ask each whether it reads the file.
QImage ReadPng(const QString& path);

}  // namespace orvistelle::app
