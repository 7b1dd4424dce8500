// MacUtils::getSystemVersion on the Gestalt answers of older and newer
// systems, and of one that does not answer (Gestalt stands in here).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FrameworkStubs.h"
#include "LogCapture.h"
#include "PlatformUtils.h"

namespace {

const OSType kSysv = 0x73797376, kSys1 = 0x73797331, kSys2 = 0x73797332, kSys3 = 0x73797333;

TEST(MacUtils, SystemVersionFromGestalt) {
    const struct {
        const char* name;
        std::vector<CorvaneGestaltAnswer> answers;
        unsigned short major, minor;
        const char* logged;  // the error line, or null
    } cases[] = {
        {"binary-coded 10.3.9", {{kSysv, 0, 0x1039}}, 10, 3, nullptr},
        // From 0x1040 on the split selectors are asked, whatever 'sysv' says.
        {"0x1049 without split answers",
         {{kSysv, 0, 0x1049}},
         10,
         0,
         "ERR Unable to obtain system version: -5551"},
        {"split from 10.4.10",
         {{kSysv, 0, 0x1040}, {kSys1, 0, 10}, {kSys2, 0, 4}, {kSys3, 0, 10}},
         10,
         4,
         nullptr},
        {"split 10.15", {{kSysv, 0, 0x10F0}, {kSys1, 0, 10}, {kSys2, 0, 15}, {kSys3, 0, 7}}, 10, 15, nullptr},
        {"no Gestalt", {}, 10, 0, "ERR Unable to obtain system version: -5551"},
        {"minor unknown",
         {{kSysv, 0, 0x1090}, {kSys1, 0, 10}, {kSys2, -5550, 0}},
         10,
         0,
         "ERR Unable to obtain system version: -5550"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CorvaneTest::LogCapture log;
        corvaneSetGestaltAnswers(c.answers.data(), static_cast<int>(c.answers.size()));
        unsigned short major = 0, minor = 0;
        Kestrix::Web::PlatformUtils::getSystemVersion(&major, &minor);
        EXPECT_EQ(c.major, major);
        EXPECT_EQ(c.minor, minor);
        if (c.logged)
            EXPECT_TRUE(log.has(c.logged));
        else
            EXPECT_EQ(0u, log.countPrefix("ERR "));
    }
    Kestrix::Web::PlatformUtils::getSystemVersion(nullptr, nullptr);  // either may be null
}

}  // namespace
