#include "IDialogImpl.h"

namespace Kestrix {
namespace Web {

IDialogImpl::IDialogImpl() : _state(kStateNotShown), _timeout(0), _modal(false) {}

IDialogImpl::~IDialogImpl() = default;

}  // namespace Web
}  // namespace Kestrix
