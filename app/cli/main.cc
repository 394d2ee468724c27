#include "app/cli/SupportCommand.h"

int main(int argc, char** argv) { return orvistelle::cli::SupportMain({argv + 1, argv + argc}); }
