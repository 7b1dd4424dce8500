// The Mac build's dealings with the browser that are plain C on NPAPI's
// structures: the negotiation of the CoreGraphics and Cocoa models and
// what the view makes of each Cocoa event. No Linux browser offers these
// models, so no page can reach them; a bare function table stands in for
// the Mac browser.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "BrowserFuncs.h"
#include "EntryPoints.h"
#include "osx/CocoaEventAction.h"

namespace {

using Kestrix::Web::CocoaEventAction;
using Kestrix::Web::cocoaEventAction;

// What the stand-in browser answers, and the calls it received.
struct MacBrowser {
    NPError coreGraphicsError, drawingModelError, cocoaError, eventModelError;
    NPBool coreGraphics, cocoa;
    std::vector<std::string> calls;
};
MacBrowser* g_browser = nullptr;

NPError getValue(NPP, NPNVariable variable, void* value) {
    g_browser->calls.push_back("get " + std::to_string(variable));
    const bool graphics = variable == NPNVsupportsCoreGraphicsBool;
    if (!graphics && variable != NPNVsupportsCocoaBool) return NPERR_INVALID_PARAM;
    *static_cast<NPBool*>(value) = graphics ? g_browser->coreGraphics : g_browser->cocoa;
    return graphics ? g_browser->coreGraphicsError : g_browser->cocoaError;
}

NPError setValue(NPP, NPPVariable variable, void* value) {
    g_browser->calls.push_back("set " + std::to_string(variable) + "=" +
                               std::to_string(reinterpret_cast<intptr_t>(value)));
    return variable == NPPVpluginDrawingModel ? g_browser->drawingModelError : g_browser->eventModelError;
}

TEST(CocoaModel, NegotiatesCoreGraphicsThenCocoaAndStopsAtARefusal) {
    const std::string cg = "get " + std::to_string(NPNVsupportsCoreGraphicsBool);
    const std::string model =
        "set " + std::to_string(NPPVpluginDrawingModel) + "=" + std::to_string(NPDrawingModelCoreGraphics);
    const std::string cocoa = "get " + std::to_string(NPNVsupportsCocoaBool);
    const std::string events =
        "set " + std::to_string(NPPVpluginEventModel) + "=" + std::to_string(NPEventModelCocoa);
    const NPError ok = NPERR_NO_ERROR, generic = NPERR_GENERIC_ERROR, invalid = NPERR_INVALID_PARAM;
    // A plain "no" from the browser is logged but answered as success.
    const struct {
        MacBrowser browser;  // errors: CoreGraphics, drawing model, Cocoa, event model; then the two answers
        NPError expected;
        std::vector<std::string> calls;
    } cases[] = {
        {{ok, ok, ok, ok, true, true, {}}, ok, {cg, model, cocoa, events}},
        {{generic, ok, ok, ok, true, true, {}}, generic, {cg}},
        {{ok, ok, ok, ok, false, true, {}}, ok, {cg}},
        {{ok, invalid, ok, ok, true, true, {}}, invalid, {cg, model}},
        {{ok, ok, invalid, ok, true, true, {}}, invalid, {cg, model, cocoa}},
        {{ok, ok, ok, ok, true, false, {}}, ok, {cg, model, cocoa}},
        {{ok, ok, ok, generic, true, true, {}}, generic, {cg, model, cocoa, events}},
    };
    NPNetscapeFuncs funcs = {};
    funcs.size = sizeof funcs;
    funcs.getvalue = getValue;
    funcs.setvalue = setValue;
    ASSERT_EQ(NPERR_NO_ERROR, CW_PopulateNetscapeFunctionTable(&funcs));
    int row = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(row++);
        MacBrowser browser = c.browser;
        g_browser = &browser;
        NPP_t instance = {};
        EXPECT_EQ(c.expected, CW_CocoaEventsSupportedCheck(&instance));
        EXPECT_EQ(c.calls, browser.calls);
    }
    CW_PopulateNetscapeFunctionTable(nullptr);
    g_browser = nullptr;
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
