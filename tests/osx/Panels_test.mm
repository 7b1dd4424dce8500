// The Mac panels in real GNUstep modal runs under Xvfb: the guard timer
// ends each run as aborted, and the window-list questions see the panel
// while it shows.
#import "MacOpenFileDialogImpl.h"
#import "MacSaveFileDialogImpl.h"
#import "MacUtils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>

#include "FileType.h"
#include "PlatformUtils.h"

namespace {

using namespace Kestrix::Web;

// Whether the window-list questions saw the panel when the guard fired.
struct Observation {
    int timeouts = 0;
    bool openAtTimeout = false;
};

template <typename Panel>
class Observed : public Panel, public Observation {
public:
    using Panel::Panel;
    void doOnTimeout() override {
        ++timeouts;
        openAtTimeout =
            PlatformUtils::isSaveDialogOpen(nullptr) && PlatformUtils::isSaveDialogOpen(this->systemDialog());
        Panel::doOnTimeout();
    }
};

}  // namespace

// Plays the user who dismisses the time-out alert. GNUstep runs a sheet as
// a modal session of its own (a Mac does not block there), so the test
// ends it once it is up and counts it. Given a tick count, it also plays
// the plug-in that closes whichever panel shows, at that tick.
@interface AlertDismisser : NSObject {
@public
    int alerts;
    NSWindow* lastDismissed;
    int ticks;
    int closeAtTick;
    int closes;
}
- (void)check:(NSTimer*)timer;
@end

@implementation AlertDismisser
- (void)check:(NSTimer*)timer {
    (void)timer;
    if (++ticks == closeAtTick && Kestrix::Web::PlatformUtils::isSaveDialogOpen(nullptr)) {
        ++closes;
        Kestrix::Web::PlatformUtils::closeSaveDialog(nullptr);
    }
    NSWindow* modal = [NSApp modalWindow];
    if (!modal || [modal isKindOfClass:[NSSavePanel class]]) {
        lastDismissed = nil;
    } else if (modal != lastDismissed) {
        // An abort takes a turn to end the session; count each alert once.
        ++alerts;
        lastDismissed = modal;
        Kestrix::Web::MacUtils::abortModal();
    }
}
@end

namespace {

// The guard ends the modal run as aborted, with its alert, for the guarded
// browsers; for the others only the plug-in closing the panel from outside
// (well past the second the guard would take) ends it.
TEST(MacPanels, GuardEndsTheModalRunForTheGuardedBrowsersOnly) {
    // The browser's main window, which the time-out sheet attaches to.
    NSWindow* browserWindow = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 400, 300)
                                                          styleMask:NSTitledWindowMask
                                                            backing:NSBackingStoreBuffered
                                                              defer:NO];
    [browserWindow makeKeyAndOrderFront:nil];
    [browserWindow makeMainWindow];
    // The user, every 0.2 s, in modal runs too.
    AlertDismisser* user = [[AlertDismisser alloc] init];
    NSTimer* timer = [NSTimer timerWithTimeInterval:0.2
                                             target:user
                                           selector:@selector(check:)
                                           userInfo:nil
                                            repeats:YES];
    for (NSString* mode : {NSDefaultRunLoopMode, NSModalPanelRunLoopMode})
        [[NSRunLoop currentRunLoop] addTimer:timer forMode:mode];
    using Open = Observed<MacOpenFileDialogImpl>;
    using Save = Observed<MacSaveFileDialogImpl>;
    const struct {
        const char* name;
        std::function<std::unique_ptr<IDialogImpl>()> make;
        int guarded;
    } cases[] = {
        {"open files, safari",
         [] {
             return std::make_unique<Open>(
                 "Pick", false, true, "[{\"filter_name\":\"T\",\"extensions\":[\"txt\"]}]", false, "safari");
         },
         1},
        {"folder, firefox", [] { return std::make_unique<Open>("", true, false, "", true, "firefox"); }, 1},
        {"save, safari", [] { return std::make_unique<Save>("Save", "report.pdf", "", "safari"); }, 1},
        {"open, chrome", [] { return std::make_unique<Open>("", false, false, "", false, "chrome"); }, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        user->ticks = user->alerts = user->closes = 0;
        user->closeAtTick = c.guarded ? 0 : 12;
        std::unique_ptr<IDialogImpl> dialog = c.make();
        dialog->setTimeout(1);
        EXPECT_TRUE(dialog->doShow().empty());
        EXPECT_EQ(IDialogImpl::kStateAborted, dialog->state());
        const auto* observed = dynamic_cast<const Observation*>(dialog.get());
        EXPECT_EQ(c.guarded, observed->timeouts);
        EXPECT_EQ(c.guarded, observed->openAtTimeout);
        EXPECT_EQ(c.guarded, user->alerts);
        EXPECT_EQ(1 - c.guarded, user->closes);
        // Closing from outside ends the run only; the panel itself is left.
        if (!c.guarded) [static_cast<NSSavePanel*>(dialog->systemDialog()) close];
        EXPECT_FALSE(PlatformUtils::isSaveDialogOpen(nullptr)) << "the panel went with its run";
    }
    [timer invalidate];
    [user release];
    [browserWindow close];
}

TEST(MacUtils, AllowedTypesTakeEachExtensionOnceWithItsUpperCaseTwin) {
    const struct {
        std::vector<FileType> types;
        std::vector<std::string> expected;
    } cases[] = {
        {{FileType("Images", {"jpg", "JPG", "png"})}, {"jpg", "JPG", "png", "PNG"}},
        {{FileType("All", {"*"}), FileType("Text", {"txt"})}, {"txt", "TXT"}},
        {{FileType("All", {"*"})}, {}},
    };
    for (const auto& c : cases) EXPECT_EQ(c.expected, PlatformUtils::createFileTypes(c.types));
}

TEST(MacUtils, UserFoldersComeFromTheSystemLookUpUnderHome) {
    const std::string home = getenv("HOME");
    const struct {
        int (*lookUp)(std::string&);
        const char* ending;
    } cases[] = {
        {&PlatformUtils::userAppDataFolder, ""},
        {&PlatformUtils::userLogsFolder, "/Logs"},
        {&PlatformUtils::userPluginFolder, "/Internet Plug-Ins"},
    };
    for (const auto& c : cases) {
        std::string folder;
        ASSERT_EQ(0, c.lookUp(folder));
        SCOPED_TRACE(folder);
        EXPECT_EQ(0u, folder.rfind(home + "/", 0));
        EXPECT_EQ(folder.size() - strlen(c.ending), folder.rfind(c.ending));
    }
}

}  // namespace
