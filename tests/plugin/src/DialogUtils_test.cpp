#include "DialogUtils.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using Kestrix::Web::DialogUtils;
using Kestrix::Web::FileType;

namespace {

using Strings = std::vector<std::string>;

// The message of the error parseFileTypesJson throws, or "" when it parses.
std::string parseError(const std::string& json) {
    try {
        DialogUtils::parseFileTypesJson(json);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

}  // namespace

TEST(ParseFileTypes, NoTextAndAnEmptyArrayMeanNoFilter) {
    EXPECT_TRUE(DialogUtils::parseFileTypesJson("").empty());
    EXPECT_TRUE(DialogUtils::parseFileTypesJson("[]").empty());
    EXPECT_TRUE(DialogUtils::parseFileTypesJson(" [ ] ").empty());
}

TEST(ParseFileTypes, EntriesKeepTheirOrderNamesAndExtensions) {
    const std::vector<FileType> types = DialogUtils::parseFileTypesJson(
        R"([{"filter_name":"Images","extensions":["jpg","png"]},{"filter_name":"All","extensions":["*"]}])");
    ASSERT_EQ(2u, types.size());
    EXPECT_EQ("Images", types[0].name);
    EXPECT_EQ((Strings{"jpg", "png"}), types[0].extensions);
    EXPECT_EQ("All", types[1].name);
    EXPECT_EQ((Strings{"*"}), types[1].extensions);
}

TEST(ParseFileTypes, ExtraKeysAndAnEmptyNameAreAccepted) {
    const std::vector<FileType> types =
        DialogUtils::parseFileTypesJson(R"([{"extensions":["PDF"],"filter_name":"","note":1}])");
    ASSERT_EQ(1u, types.size());
    EXPECT_EQ("", types[0].name);
    EXPECT_EQ((Strings{"PDF"}), types[0].extensions);
}

TEST(ParseFileTypes, EveryMalformedFilterThrowsTheSameMessage) {
    const char* bad[] = {
        "{}",                                         // not an array
        R"({"filter_name":"a","extensions":["x"]})",  // an entry, not a list of them
        "[",                                          // not JSON
        "not json",
        "\"[]\"",
        "[1]",  // entry not an object
        "[[]]",
        R"([{"extensions":["x"]}])",                      // no filter_name
        R"([{"filter_name":3,"extensions":["x"]}])",      // filter_name not a string
        R"([{"filter_name":"a"}])",                       // no extensions
        R"([{"filter_name":"a","extensions":[]}])",       // empty extensions
        R"([{"filter_name":"a","extensions":"x"}])",      // extensions not an array
        R"([{"filter_name":"a","extensions":["x",7]}])",  // a number among them
        R"([{"filter_name":"a","extensions":["x",null]}])",
        R"([{"filter_name":"a","extensions":["x"]},{"filter_name":"b","extensions":[]}])",  // a later entry
    };
    for (const char* json : bad) EXPECT_EQ("Error parsing fileTypes JSON", parseError(json)) << json;
}

TEST(FindExtension, FirstEntryHoldingTheExactExtension) {
    const std::vector<FileType> types = {
        FileType("Text", {"txt", "md"}),
        FileType("All", {"*"}),
        FileType("Docs", {"pdf", "md", "*"}),
    };
    EXPECT_EQ(0, DialogUtils::findExtension(types, "md"));
    EXPECT_EQ(1, DialogUtils::findExtension(types, "*"));
    EXPECT_EQ(2, DialogUtils::findExtension(types, "pdf"));
    EXPECT_EQ(-1, DialogUtils::findExtension(types, "PDF")) << "case counts";
    EXPECT_EQ(-1, DialogUtils::findExtension(types, ".pdf"));
    EXPECT_EQ(-1, DialogUtils::findExtension(types, ""));
    EXPECT_EQ(-1, DialogUtils::findExtension({}, "*"));
}

TEST(SuggestedNameExtension, TextAfterTheLastDotUpToFourCharacters) {
    EXPECT_EQ("pdf", DialogUtils::extensionOfSuggestedName("report.final.pdf"));
    EXPECT_EQ("gz", DialogUtils::extensionOfSuggestedName("archive.tar.gz"));
    EXPECT_EQ("json", DialogUtils::extensionOfSuggestedName("data.json"));
    EXPECT_EQ("", DialogUtils::extensionOfSuggestedName("notes.markdown")) << "8 characters";
    EXPECT_EQ("", DialogUtils::extensionOfSuggestedName("page.xhtml")) << "5 characters already too long";
    EXPECT_EQ("", DialogUtils::extensionOfSuggestedName("README"));
    EXPECT_EQ("", DialogUtils::extensionOfSuggestedName("trailing."));
    EXPECT_EQ("", DialogUtils::extensionOfSuggestedName(""));
}

TEST(SuggestedNameExtension, NamesOfTheEtAlKindOfferNone) {
    EXPECT_EQ("", DialogUtils::extensionOfSuggestedName("a.b et al"));
    EXPECT_EQ("", DialogUtils::extensionOfSuggestedName("Smith et al. 2004.pdf"));
    EXPECT_EQ("pdf", DialogUtils::extensionOfSuggestedName("Smith et. al.pdf"))
        << "only the exact words count";
}
