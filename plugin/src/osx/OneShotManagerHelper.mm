#import "OneShotManagerHelper.h"

#include "OneShotManager.h"
#include "cv_log.h"

@implementation OneShotManagerHelper

- (void)setManager:(Kestrix::Web::OneShotManager*)manager {
    _manager = manager;
}

- (void)shoot:(id)unused {
    (void)unused;
    if (_manager) {
        _manager->asyncCallback();
    } else {
        cv_dbg("OneShotManagerHelper::shoot() - aborting callback");
    }
    // Balances the retain taken when this turn was asked for.
    [self release];
}

@end
