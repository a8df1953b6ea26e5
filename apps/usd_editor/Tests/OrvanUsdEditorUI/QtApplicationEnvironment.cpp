#include "QtApplicationEnvironment.h"

#include <cstdlib>

namespace orvan::ui::testing {

QApplication& testApplication() {
  static int argc = 1;
  static char name[] = "OrvanUsdEditorUITests";
  static char* argv[] = {name, nullptr};
  static QApplication* application = [] {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    return new QApplication(argc, argv);
  }();
  return *application;
}

}  // namespace orvan::ui::testing
