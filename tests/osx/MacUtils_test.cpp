// The macOS layer from plain C++: GNUstep's Objective-C++ frames do not
// catch C++ exceptions the way a Mac's do, so throws are caught here.
#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "DialogImplFactory.h"
#include "LogCapture.h"
#include "PlatformUtils.h"

namespace {

using Kestrix::Web::DialogImplFactory;
using Kestrix::Web::IDialogImpl;

// A bad file-type filter stops each Mac panel before anything shows.
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

// getSystemVersion on the Gestalt answers of older and newer systems, and
// of one that does not answer (Gestalt stands in here).
const OSType kSysv = 0x73797376, kSys1 = 0x73797331, kSys2 = 0x73797332, kSys3 = 0x73797333;

TEST(MacUtils, SystemVersionFromGestalt) {
    const struct {
        const char* name;
        std::map<OSType, std::pair<OSErr, SInt32>> answers;
        unsigned short major, minor;
        int error;  // the code of the error line, 0 for none
    } cases[] = {
        {"binary-coded 10.3.9", {{kSysv, {0, 0x1039}}}, 10, 3, 0},
        // From 0x1040 on the split selectors are asked, whatever 'sysv' says.
        {"0x1049, no split", {{kSysv, {0, 0x1049}}}, 10, 0, -5551},
        {"10.4.10", {{kSysv, {0, 0x1040}}, {kSys1, {0, 10}}, {kSys2, {0, 4}}, {kSys3, {0, 10}}}, 10, 4, 0},
        {"10.15", {{kSysv, {0, 0x10F0}}, {kSys1, {0, 10}}, {kSys2, {0, 15}}, {kSys3, {0, 7}}}, 10, 15, 0},
        {"no Gestalt", {}, 10, 0, -5551},
        {"minor unknown", {{kSysv, {0, 0x1090}}, {kSys1, {0, 10}}, {kSys2, {-5550, 0}}}, 10, 0, -5550},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CorvaneTest::LogCapture log;
        corvaneGestaltAnswers = c.answers;
        unsigned short major = 0, minor = 0;
        Kestrix::Web::PlatformUtils::getSystemVersion(&major, &minor);
        EXPECT_EQ(c.major, major);
        EXPECT_EQ(c.minor, minor);
        if (c.error)
            EXPECT_TRUE(log.has("ERR Unable to obtain system version: " + std::to_string(c.error)));
        else
            EXPECT_EQ(0u, log.countPrefix("ERR "));
    }
    Kestrix::Web::PlatformUtils::getSystemVersion(nullptr, nullptr);  // either may be null
}

}  // namespace
