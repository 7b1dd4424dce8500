// The Mac build's dealings with the browser that are plain C on NPAPI's
// structures, checked here against the fake browser: the negotiation of the
// CoreGraphics and Cocoa models, and what the view makes of each Cocoa
// event.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "EntryPoints.h"
#include "PluginTestFixture.h"
#include "osx/CocoaEventAction.h"

namespace CorvaneTest {
namespace {

using Kestrix::Web::CocoaEventAction;
using Kestrix::Web::cocoaEventAction;

class CocoaModelTest : public PluginTest {};

TEST_F(CocoaModelTest, NegotiatesCoreGraphicsThenCocoaAndReportsARefusal) {
    struct Case {
        const char* name;
        void (*arrange)(FakeBrowser&);
        NPError expected;
        const char* line;  // the error logged, or null
        std::vector<std::string> calls;
    };
    const std::vector<std::string> all = {"getvalue(2001)", "setvalue(1000,1)", "getvalue(3001)",
                                          "setvalue(1001,1)"};
    const Case cases[] = {
        {"both offered", [](FakeBrowser&) {}, NPERR_NO_ERROR, nullptr, all},
        {"CoreGraphics unknown",
         [](FakeBrowser& b) { b.answerGetValue(NPNVsupportsCoreGraphicsBool, NPERR_GENERIC_ERROR); },
         NPERR_GENERIC_ERROR,
         "ERR CoreGraphics drawing model not supported (1)",
         {all[0]}},
        // A plain "no" is logged but answered as success.
        {"CoreGraphics refused",
         [](FakeBrowser& b) { b.answerGetValueBool(NPNVsupportsCoreGraphicsBool, false); },
         NPERR_NO_ERROR,
         "ERR CoreGraphics drawing model not supported (0)",
         {all[0]}},
        {"drawing model not taken",
         [](FakeBrowser& b) { b.failSetValue(NPPVpluginDrawingModel, NPERR_INVALID_PARAM); },
         NPERR_INVALID_PARAM,
         "ERR Error setting CoreGraphics drawing model (9)",
         {all[0], all[1]}},
        {"Cocoa unknown",
         [](FakeBrowser& b) { b.answerGetValue(NPNVsupportsCocoaBool, NPERR_INVALID_PARAM); },
         NPERR_INVALID_PARAM,
         "ERR Cocoa event model not supported (9)",
         {all[0], all[1], all[2]}},
        {"Cocoa refused",
         [](FakeBrowser& b) { b.answerGetValueBool(NPNVsupportsCocoaBool, false); },
         NPERR_NO_ERROR,
         "ERR Cocoa event model not supported (0)",
         {all[0], all[1], all[2]}},
        {"event model not taken",
         [](FakeBrowser& b) { b.failSetValue(NPPVpluginEventModel, NPERR_GENERIC_ERROR); },
         NPERR_GENERIC_ERROR, "ERR Error setting Cocoa event model (1)", all},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FakeBrowser& host = openBrowser();
        NPP npp = newInstance({{"kestrix-launch-wait-timeout-ms", "0"}});
        host.answerGetValueBool(NPNVsupportsCoreGraphicsBool, true);
        host.answerGetValueBool(NPNVsupportsCocoaBool, true);
        // A Mac browser takes both models (the Linux host refuses them).
        host.failSetValue(NPPVpluginDrawingModel, NPERR_NO_ERROR);
        host.failSetValue(NPPVpluginEventModel, NPERR_NO_ERROR);
        c.arrange(host);
        host.clearLog();
        _log.clear();
        EXPECT_EQ(c.expected, CW_CocoaEventsSupportedCheck(npp));
        EXPECT_EQ(c.calls, host.log());
        if (c.line)
            EXPECT_TRUE(_log.has(c.line));
        else
            EXPECT_EQ(0u, _log.countPrefix("ERR "));
        EXPECT_EQ(NPERR_NO_ERROR, host.destroyInstance(npp));
        closeBrowser();
    }
}

TEST(CocoaEventAction, EachCocoaEventTypeHasItsAction) {
    using A = CocoaEventAction;
    const struct {
        NPCocoaEventType type;
        NPBool hasFocus;
        A::Kind_e kind;
        bool focus;
    } cases[] = {
        {NPCocoaEventDrawRect, 0, A::kPaint, false},
        {NPCocoaEventMouseDown, 0, A::kHighlight, false},
        {NPCocoaEventMouseUp, 0, A::kHighlight, false},
        {NPCocoaEventMouseMoved, 0, A::kNotHandled, false},
        {NPCocoaEventMouseEntered, 0, A::kHighlight, false},
        {NPCocoaEventMouseExited, 0, A::kHighlight, false},  // the frame goes on when the mouse leaves, too
        {NPCocoaEventMouseDragged, 0, A::kHighlight, false},
        {NPCocoaEventKeyDown, 0, A::kConsume, false},
        {NPCocoaEventKeyUp, 0, A::kConsume, false},
        {NPCocoaEventFlagsChanged, 0, A::kConsume, false},
        {NPCocoaEventFocusChanged, 1, A::kFocus, true},
        {NPCocoaEventFocusChanged, 0, A::kFocus, false},
        {NPCocoaEventWindowFocusChanged, 1, A::kNotHandled, false},
        {NPCocoaEventScrollWheel, 0, A::kHighlight, false},
        {NPCocoaEventTextInput, 0, A::kNotHandled, false},
        {static_cast<NPCocoaEventType>(0), 0, A::kNotHandled, false},  // no such type
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.type));
        NPCocoaEvent event = {};
        event.type = c.type;
        event.data.focus.hasFocus = c.hasFocus;
        const A action = cocoaEventAction(event);
        EXPECT_EQ(c.kind, action.kind);
        EXPECT_EQ(c.focus, action.hasFocus);
        EXPECT_EQ(c.kind == A::kNotHandled ? 0 : 1, action.handled());
    }
}

}  // namespace
}  // namespace CorvaneTest
