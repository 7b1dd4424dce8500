#include "AboutWindow.h"

namespace Kestrix {
namespace Web {

AboutWindow::AboutWindow() : Window("about") {}

}  // namespace Web
}  // namespace Kestrix
