#include "IDialogImpl.h"

namespace Kestrix {
namespace Web {

IDialogImpl::IDialogImpl() : _state(kStateNotShown), _timeout(0) {}

IDialogImpl::~IDialogImpl() = default;

}  // namespace Web
}  // namespace Kestrix
