// Opens the client's about box.
#pragma once

#include "Window.h"

namespace Kestrix {
namespace Web {

class AboutWindow : public Window {
public:
    AboutWindow();
};

}  // namespace Web
}  // namespace Kestrix
