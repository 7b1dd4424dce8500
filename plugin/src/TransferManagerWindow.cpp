#include "TransferManagerWindow.h"

namespace Kestrix {
namespace Web {

TransferManagerWindow::TransferManagerWindow() : Window("transfer-manager") {}

}  // namespace Web
}  // namespace Kestrix
