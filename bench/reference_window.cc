// The yardstick for start-up time and memory: the smallest Qt window of the app's size, one label and one button.
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>

int main(int argc, char** argv) {
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
