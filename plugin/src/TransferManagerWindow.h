// Opens the client's transfer manager.
#pragma once

#include "Window.h"

namespace Kestrix {
namespace Web {

class TransferManagerWindow : public Window {
public:
    TransferManagerWindow();
};

}  // namespace Web
}  // namespace Kestrix
