// The yardstick for start-up time and memory: the smallest Qt window of the app's size, one label and one button.
// Built a second time with libcurl linked and initialised: the floor for a program that carries an HTTP stack.
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>

#ifdef ORVISTELLE_BENCH_WITH_CURL
#include <curl/curl.h>
#endif

int main(int argc, char** argv) {
#ifdef ORVISTELLE_BENCH_WITH_CURL
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return 1;
#endif
  QApplication app(argc, argv);
  QWidget window;
  window.setWindowTitle("Orvistelle Bench Reference");
  window.setFixedSize(360, 540);
  auto* layout = new QVBoxLayout(&window);
  layout->addWidget(new QLabel("Reference window"));
  layout->addWidget(new QPushButton("Button"));
  window.show();
  return app.exec();
}
