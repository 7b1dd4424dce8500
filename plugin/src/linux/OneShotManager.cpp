// The main-thread hand-off through GLib: the browser iterates GLib's default
// main context on its main thread, so an idle source added there from any
// thread runs on the main thread in one of its next turns.
#include "OneShotManager.h"

#include <glib.h>

#include "OneShotManagerHelper.h"

namespace Kestrix {
namespace Web {

namespace {

// G_PRIORITY_DEFAULT rather than the idle priority: the host's painting and
// input sources must not be able to hold page callbacks back indefinitely.
const gint kSourcePriority = G_PRIORITY_DEFAULT;

gboolean shootHelper(gpointer data) {
    static_cast<OneShotManagerHelper*>(data)->shoot();
    return G_SOURCE_REMOVE;
}

// Runs when the source goes, dispatched or not, so the reference the
// source holds is always given back.
void unrefHelper(gpointer data) {
    static_cast<OneShotManagerHelper*>(data)->unref();
}

struct PostedCall {
    OneShotManager::Function function;
    void* data;
};

gboolean runPostedCall(gpointer data) {
    auto* call = static_cast<PostedCall*>(data);
    call->function(call->data);
    return G_SOURCE_REMOVE;
}

void freePostedCall(gpointer data) {
    delete static_cast<PostedCall*>(data);
}

}  // namespace

const char* const OneShotManager::kSourceFile = "plugin/src/linux/OneShotManager";

OneShotManagerHelper* OneShotManager::createHelper(OneShotManager* manager) {
    auto* helper = new OneShotManagerHelper();
    helper->setManager(manager);
    return helper;
}

void OneShotManager::requestTurn(OneShotManagerHelper* helper) {
    helper->ref();
    g_idle_add_full(kSourcePriority, &shootHelper, helper, &unrefHelper);
}

void OneShotManager::releaseHelper(OneShotManagerHelper* helper) {
    helper->setManager(nullptr);
    helper->unref();
}

void OneShotManager::postToMainThread(Function function, void* data) {
    g_idle_add_full(kSourcePriority, &runPostedCall, new PostedCall{function, data}, &freePostedCall);
}

}  // namespace Web
}  // namespace Kestrix
