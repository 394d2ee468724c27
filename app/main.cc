#include "app/ApplicationMain.h"

int main(int argc, char** argv) { return orvistelle::app::ApplicationMain(argc, argv); }
