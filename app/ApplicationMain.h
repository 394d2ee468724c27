#pragma once

#include "app/AppDelegate.h"

namespace orvistelle::app {

// The product's localisation and service functions, as the window calls them; the maintenance asked for at launch
// starts right after the window's first frame.
ServiceCalls ProductServices();

// Creates the application, its window and delegate, finishes launching once the loop runs, and runs the loop until
// the window closes. Returns the loop's exit code; 1 without a display; 0 at once when this user's running copy
// raised its window instead.
int ApplicationMain(int argc, char** argv);

}  // namespace orvistelle::app
