// The plug-in's rules for what a page may send: the approved file list, the
// chosen download folder, the body validator and the request line; and the
// browser family read from the user agent.
#include <gtest/gtest.h>

#include <stdexcept>

#include "PlugIn.h"
#include "TempDir.h"

using Kestrix::Web::PlugIn;

namespace {

std::string error(const std::string& message) {
    return "{\"error\":{\"code\":-1,\"user_message\":\"" + message + "\"}}";
}

std::string sendBody(const std::string& sourceRoot, const std::string& pathsJson) {
    std::string root = sourceRoot.empty() ? "" : "\"source_root\":\"" + sourceRoot + "\",";
    return "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\"," + root +
           "\"paths\":" + pathsJson + "}}]}";
}

std::string receiveBody(const std::string& destinationRoot, const std::string& absolute = "true") {
    return "{\"transfer_specs\":[{\"corvane_kestrix_settings\":{\"use_absolute_destination_path\":" +
           absolute + "},\"transfer_spec\":{\"direction\":\"receive\",\"destination_root\":\"" +
           destinationRoot + "\"}}]}";
}

TEST(ApprovedFiles, ExactPathsOnlyWithBackslashesAndOneTrailingSlashNormalised) {
    PlugIn::addToApprovedFileList({"/Users/a/Pictures/", "C:/dir/f.txt", "/x/two//"});
    EXPECT_TRUE(PlugIn::isFileAllowed("/Users/a/Pictures"));
    EXPECT_TRUE(PlugIn::isFileAllowed("/Users/a/Pictures/"));
    EXPECT_FALSE(PlugIn::isFileAllowed("/Users/a/Pictures/x.jpg"));
    EXPECT_FALSE(PlugIn::isFileAllowed("/Users/a"));
    EXPECT_FALSE(PlugIn::isFileAllowed("/users/a/pictures"));
    EXPECT_TRUE(PlugIn::isFileAllowed("C:\\dir\\f.txt"));
    // Only one trailing slash is taken off, on both sides.
    EXPECT_TRUE(PlugIn::isFileAllowed("/x/two//"));
    EXPECT_FALSE(PlugIn::isFileAllowed("/x/two/"));
    EXPECT_FALSE(PlugIn::isFileAllowed("/x/two"));
    EXPECT_EQ(1u, PlugIn::approvedFiles().count("/x/two/"));
    EXPECT_EQ(1u, PlugIn::approvedFiles().count("/Users/a/Pictures"));
}

TEST(ApprovedFiles, EmptyPathThrowsOutOfRange) {
    EXPECT_THROW(PlugIn::isFileAllowed(""), std::out_of_range);
    EXPECT_THROW(PlugIn::addToApprovedFileList({"/ok", ""}), std::out_of_range);
    EXPECT_NO_THROW(PlugIn::addToApprovedFileList({}));
}

TEST(DestinationRoot, OnlyTheFirstByteAndTheByteAfterTheChosenFolderAreTested) {
    PlugIn plugin;
    EXPECT_FALSE(plugin.allowDestRoot("/anything"));  // nothing chosen yet
    plugin.setLastSelectedPath("\\Users\\a\\Downloads");
    EXPECT_EQ("/Users/a/Downloads", plugin.lastSelectedPath());
    EXPECT_TRUE(plugin.allowDestRoot("/Users/a/Downloads"));
    EXPECT_TRUE(plugin.allowDestRoot("/Users/a/Downloads/sub"));
    EXPECT_TRUE(plugin.allowDestRoot("\\Users\\a\\Downloads\\sub"));
    EXPECT_FALSE(plugin.allowDestRoot("/Users/a/DownloadsX"));
    EXPECT_FALSE(plugin.allowDestRoot("/Users/a"));  // shorter
    // Deliberately weak: the first byte need only occur somewhere in the
    // chosen folder, the rest of the prefix is not compared.
    EXPECT_TRUE(plugin.allowDestRoot("/tmp/zzzzzzzzzzzzz/y"));
    EXPECT_TRUE(plugin.allowDestRoot("wwwwwwwwwwwwwwwwww"));  // 'w' is in "Downloads"
    EXPECT_FALSE(plugin.allowDestRoot("Zzzzzzzzzzzzzzzzzz"));
    EXPECT_FALSE(plugin.allowDestRoot("/tmp/zzzzzzzzzzzzzzy"));  // byte L is not '/'
}

TEST(DestinationRoot, TrailingSlashOfTheChosenFolderIsKept) {
    PlugIn plugin;
    plugin.setLastSelectedPath("/dl/");
    EXPECT_TRUE(plugin.allowDestRoot("/dl/"));
    EXPECT_FALSE(plugin.allowDestRoot("/dl/x"));  // byte 4 is 'x'
    EXPECT_TRUE(plugin.allowDestRoot("/dl//x"));
}

TEST(JsonValidation, ParseErrorsCarryTheParsersText) {
    PlugIn plugin;
    std::string result = plugin.isJsonValid("{\"a\":");
    EXPECT_EQ(0u, result.find("{\"error\":{\"code\":-1,\"user_message\":\"Error parsing JSON: ")) << result;
    EXPECT_GT(result.size(), error("Error parsing JSON: ").size());
}

TEST(JsonValidation, BodiesWithoutTransferSpecsAreValid) {
    PlugIn plugin;
    EXPECT_EQ("", plugin.isJsonValid("{}"));
    EXPECT_EQ("", plugin.isJsonValid("{\"transfer_specs\":[]}"));
    EXPECT_EQ("", plugin.isJsonValid("{\"transfer_specs\":{}}"));
    EXPECT_EQ("", plugin.isJsonValid("[1,2]"));
}

TEST(JsonValidation, AppIdIsBoundToThePageHostOnlyWithACaret) {
    PlugIn plugin;
    plugin.setPageHostname("portal");
    EXPECT_EQ("", plugin.isJsonValid("{\"corvane_kestrix_settings\":{\"app_id\":\"^portal\"}}"));
    EXPECT_EQ("", plugin.isJsonValid("{\"corvane_kestrix_settings\":{\"app_id\":\"anything\"}}"));
    EXPECT_EQ(error("Invalid application ID hostname: portal"),
              plugin.isJsonValid("{\"corvane_kestrix_settings\":{\"app_id\":\"^evil\"}}"));
    // A number reads as its text, which has no caret.
    EXPECT_EQ("", plugin.isJsonValid("{\"corvane_kestrix_settings\":{\"app_id\":5}}"));
}

TEST(JsonValidation, SourcesAreJoinedToTheSourceRoot) {
    PlugIn plugin;
    PlugIn::addToApprovedFileList({"/Users/a/x.txt", "/x.txt"});
    EXPECT_EQ("", plugin.isJsonValid(sendBody("/Users/a", "[{\"source\":\"/x.txt\"}]")));
    EXPECT_EQ("", plugin.isJsonValid(sendBody("\\\\Users\\\\a\\\\", "[{\"source\":\"x.txt\"}]")));
    EXPECT_EQ("", plugin.isJsonValid(sendBody("", "[{\"source\":\"x.txt\"}]")));
    EXPECT_EQ(error("The website attempted to upload an unauthorized file or folder: /Users/a/y.txt"),
              plugin.isJsonValid(sendBody("/Users/a", "[{\"source\":\"y.txt\"}]")));
}

TEST(JsonValidation, PathsMustBeAnArrayOfObjectsWithStringSources) {
    PlugIn plugin;
    const std::string invalid = error("Invalid argument: paths");
    EXPECT_EQ(invalid, plugin.isJsonValid(sendBody("", "{\"source\":\"/x\"}")));
    EXPECT_EQ(invalid,
              plugin.isJsonValid("{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\"}}]}"));
    EXPECT_EQ("", plugin.isJsonValid(sendBody("", "[]")));
    EXPECT_EQ(invalid, plugin.isJsonValid(sendBody("", "[\"/etc/passwd\"]")));
    EXPECT_EQ(invalid, plugin.isJsonValid(sendBody("", "[{\"source\":null}]")));
    EXPECT_EQ(invalid, plugin.isJsonValid(sendBody("", "[{\"source\":7}]")));
    EXPECT_EQ("", plugin.isJsonValid(sendBody("", "[{\"destination\":\"/anywhere\"}]")));
}

TEST(JsonValidation, ReceiveIsCheckedOnlyWithAnAbsoluteDestination) {
    PlugIn plugin;
    std::string refused = plugin.isJsonValid(receiveBody("/Users/a/Downloads"));
    EXPECT_EQ(error("The website attempted to transfer to an unauthorized directory: /Users/a/Downloads"),
              refused);
    // Backslashes of the refused folder are doubled in the message, nothing else is escaped.
    EXPECT_EQ(error("The website attempted to transfer to an unauthorized directory: C:\\\\x\"y"),
              plugin.isJsonValid(receiveBody("C:\\\\x\\\"y")));
    EXPECT_EQ("", plugin.isJsonValid(receiveBody("/etc", "false")));
    EXPECT_EQ("", plugin.isJsonValid(receiveBody("/etc", "\"true\"")));
    plugin.setLastSelectedPath("/Users/a/Downloads");
    EXPECT_EQ("", plugin.isJsonValid(receiveBody("/Users/a/Downloads/sub")));
    // Validation does not consume the chosen folder; only a download does.
    EXPECT_EQ("/Users/a/Downloads", plugin.lastSelectedPath());
}

TEST(JsonValidation, RefusalsComeInTheOrderOfTheRules) {
    PlugIn plugin;
    plugin.setPageHostname("portal");
    PlugIn::addToApprovedFileList({"/home/u/a.txt"});
    const std::string badHost = error("Invalid application ID hostname: portal");
    struct Case {
        const char* name;
        std::string body;
        std::string result;
    } cases[] = {
        // The host binding comes before the duplicate-key refusal.
        {"foreign app id, duplicated transfer_specs",
         "{\"corvane_kestrix_settings\":{\"app_id\":\"^evil\"},\"transfer_specs\":[],\"transfer_specs\":[]}",
         badHost},
        {"foreign app id first of two",
         "{\"corvane_kestrix_settings\":{\"app_id\":\"^evil\",\"app_id\":\"x\"}}", badHost},
        // A NUL in a value that a rule reads: the rule would see less than
        // the local client gets.
        {"NUL in app_id", "{\"corvane_kestrix_settings\":{\"app_id\":\"^portal\\u0000.evil\"}}",
         error("Invalid argument: app_id")},
        {"NUL in direction",
         "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\\u0000\",\"paths\":[{\"source\":\"/"
         "home/u/a.txt\"}]}}]}",
         error("Invalid argument: direction")},
        {"NUL in source", sendBody("/home/u", "[{\"source\":\"a.txt\\u0000/../../../etc/passwd\"}]"),
         error("Invalid argument: source")},
        {"NUL in source_root", sendBody("/home/u\\u0000/../../etc", "[{\"source\":\"a.txt\"}]"),
         error("Invalid argument: source_root")},
        {"NUL in destination_root", receiveBody("/home/u/dl\\u0000/../../etc"),
         error("Invalid argument: destination_root")},
        // NULs in what no rule reads pass as before.
        {"NUL in a destination name",
         sendBody("/home/u", "[{\"source\":\"a.txt\",\"destination\":\"b\\u0000c\"}]"), ""},
    };
    plugin.setLastSelectedPath("/home/u/dl");
    for (const Case& c : cases) EXPECT_EQ(c.result, plugin.isJsonValid(c.body)) << c.name;
}

TEST(RequestLine, MethodsAreTokensAndPathsHoldNoSpaceOrControlByte) {
    struct Case {
        std::string text;
        bool method, path;
    } cases[] = {
        {"GET", true, true},
        {"patch", true, true},
        {"M-SEARCH", true, true},
        {"!#$%&'*+-.^_`|~09az", true, true},
        {"AZ", true, true},
        {"", false, true},
        {"GET /x HTTP/1.1\r\nX-A: b\r\n\r\nPOST", false, false},
        {"GET ", false, false},
        {"G\tET", false, false},
        {std::string("GET\0", 4), false, false},
        {"G\x7F", false, false},
        {"G\xC3\xA9T", false, true},  // UTF-8 in a path is fine, not in a method
        {"/v4/kestrix/version", false, true},
        {"/n%C3%A4me?q=a%20b&r=/x", false, true},
        {"(x)", false, true},
        {"/a\rb", false, false},
        {"/a\nb", false, false},
        {std::string("/v4/kestrix/version\0/transfers/", 31), false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.method, PlugIn::isRequestMethodValid(c.text)) << c.text;
        EXPECT_EQ(c.path, PlugIn::isRequestPathValid(c.text)) << c.text;
    }
}

// The first of "firefox", "chrome", "safari" found in the lower-cased user
// agent names the family, in that order; otherwise the whole lower-cased text.
TEST(HostBrowser, FamilyFromTheUserAgent) {
    const struct {
        const char *userAgent, *family;
    } rows[] = {
        {"Mozilla/5.0 (X11) AppleWebKit/537.36 Chrome/90.0 Safari/537.36", "chrome"},
        {"Mozilla/5.0 (X11; rv:109.0) Gecko/20100101 Firefox/115.0 Chrome Safari", "firefox"},
        {"Mozilla/5.0 (X11) AppleWebKit/602.1 (KHTML, like Gecko) Version/10.0 Safari/602.1", "safari"},
        {"Some Odd Browser/1.0", "some odd browser/1.0"},
    };
    PlugIn plugin;
    for (const auto& row : rows) {
        plugin.setHostBrowser(row.userAgent);
        EXPECT_EQ(row.family, plugin.hostBrowser()) << row.userAgent;
    }
}

}  // namespace
