// The main-thread trigger of a OneShotManager: a Foundation object, so that
// the manager can ask for a main-thread turn with
// performSelectorOnMainThread:. Each turn asked for holds a retain on the
// helper, not on the manager; a turn that comes after the manager has gone
// finds `_manager` cleared and only logs.
#pragma once

#import <Foundation/Foundation.h>

namespace Kestrix {
namespace Web {
class OneShotManager;
}  // namespace Web
}  // namespace Kestrix

@interface OneShotManagerHelper : NSObject {
    Kestrix::Web::OneShotManager* _manager;
}
- (void)setManager:(Kestrix::Web::OneShotManager*)manager;
- (void)shoot:(id)unused;
@end
