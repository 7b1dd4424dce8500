// Opens the client's preferences.
#pragma once

#include "Window.h"

namespace Kestrix {
namespace Web {

class PreferencesWindow : public Window {
public:
    PreferencesWindow();
};

}  // namespace Web
}  // namespace Kestrix
