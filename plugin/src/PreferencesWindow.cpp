#include "PreferencesWindow.h"

namespace Kestrix {
namespace Web {

PreferencesWindow::PreferencesWindow() : Window("preferences") {}

}  // namespace Web
}  // namespace Kestrix
