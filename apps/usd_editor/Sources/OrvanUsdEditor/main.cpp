#include "App/OrvanUsdEditorApp.h"

// Everything, from ignoring broken pipes to the event loop, happens in the application's entry.
int main(int argc, char** argv) {
  return orvan::ui::runOrvanUsdEditorApp(argc, argv);
}
