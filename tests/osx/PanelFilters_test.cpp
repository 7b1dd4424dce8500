// A bad file-type filter stops each Mac panel before anything shows. Plain
// C++: GNUstep's Objective-C++ frames do not catch C++ exceptions the way
// a Mac's do, so the throw is caught here, through the neutral factory.
#include <gtest/gtest.h>

#include <stdexcept>

#include "DialogImplFactory.h"

namespace {

using Kestrix::Web::DialogImplFactory;
using Kestrix::Web::IDialogImpl;

TEST(MacPanels, BadFilterThrowsBeforeAnythingShows) {
    const char* const badFilters[] = {"{}", "[{\"filter_name\":\"x\",\"extensions\":[]}]",
                                      "[{\"extensions\":[\"a\"]}]"};
    for (const char* filter : badFilters) {
        SCOPED_TRACE(filter);
        auto open = DialogImplFactory::createOpenDialog(nullptr, "", false, false, filter, false, "safari");
        auto save = DialogImplFactory::createSaveDialog(nullptr, "", "a.txt", filter, "safari");
        for (IDialogImpl* dialog : {open.get(), save.get()}) {
            dialog->setTimeout(1);
            EXPECT_THROW(dialog->doShow(), std::runtime_error);
            EXPECT_EQ(IDialogImpl::kStateNotShown, dialog->state());
        }
    }
}

}  // namespace
