// What the Linux panels ask corvane-dialog for: the allowed types worked out
// from the page's filter and the suggested name.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "FileType.h"
#include "PlatformUtils.h"
#include "linux/LinuxOpenFileDialogImpl.h"
#include "linux/LinuxSaveFileDialogImpl.h"

using Kestrix::Web::FileType;
using Kestrix::Web::LinuxOpenFileDialogImpl;
using Kestrix::Web::LinuxSaveFileDialogImpl;
namespace PlatformUtils = Kestrix::Web::PlatformUtils;

namespace {

using Strings = std::vector<std::string>;

const char kImagesAndAll[] =
    R"([{"filter_name":"Images","extensions":["jpg","png"]},{"filter_name":"All","extensions":["*"]}])";

Strings saveArguments(const std::string& suggestedName, const std::string& fileTypes) {
    return LinuxSaveFileDialogImpl("", suggestedName, fileTypes, "firefox").panelArguments();
}

}  // namespace

TEST(CreateFileTypes, EachExtensionOnceWithItsUpperCaseTwin) {
    EXPECT_EQ((Strings{"jpg", "JPG", "png", "PNG"}),
              PlatformUtils::createFileTypes({FileType("Images", {"jpg", "JPG", "png"})}));
    EXPECT_EQ((Strings{"txt", "TXT", "pdf", "PDF"}),
              PlatformUtils::createFileTypes({FileType("A", {"txt"}), FileType("B", {"pdf", "txt"})}))
        << "duplicates across entries are skipped too";
    EXPECT_EQ((Strings{"tar.gz", "TAR.GZ", "\xC3\xA9t\xC3\xA9", "\xC3\x89T\xC3\x89"}),
              PlatformUtils::createFileTypes({FileType("A", {"tar.gz", "\xC3\xA9t\xC3\xA9"})}));
}

TEST(CreateFileTypes, AnyFileIsLeftOut) {
    EXPECT_EQ((Strings{"csv", "CSV"}), PlatformUtils::createFileTypes({FileType("x", {"*", "csv", "*"})}));
    EXPECT_TRUE(PlatformUtils::createFileTypes({FileType("All", {"*"})}).empty());
    EXPECT_TRUE(PlatformUtils::createFileTypes({}).empty());
}

TEST(CreateFileTypes, AnUpperCaseExtensionIsNotFoundByItsTwin) {
    // Only the page's own extensions are looked up, so an upper-case one
    // comes twice and a later lower-case one still gets in.
    EXPECT_EQ((Strings{"JPG", "JPG", "jpg", "JPG"}),
              PlatformUtils::createFileTypes({FileType("x", {"JPG", "jpg"})}));
}

TEST(OpenPanelArguments, ModeTitleMultipleTypesAndParent) {
    EXPECT_EQ((Strings{"--mode", "open"}),
              LinuxOpenFileDialogImpl("", false, false, "", false, "").panelArguments());
    EXPECT_EQ((Strings{"--mode", "open", "--title=Pick -x", "--multiple", "--ext=jpg", "--ext=JPG",
                       "--ext=png", "--ext=PNG", "--parent=4194311"}),
              LinuxOpenFileDialogImpl("Pick -x", true, true, kImagesAndAll, false, "safari", 4194311)
                  .panelArguments())
        << "the \"*\" entry is dropped; allowing folders still chooses files";
    EXPECT_EQ((Strings{"--mode", "folder", "--multiple"}),
              LinuxOpenFileDialogImpl("", true, true, "", true, "firefox").panelArguments());
    EXPECT_EQ((Strings{"--mode", "open"}),
              LinuxOpenFileDialogImpl("", false, false, "[]", false, "").panelArguments());
}

TEST(OpenPanelArguments, AnyFileAloneGivesNoFilter) {
    EXPECT_EQ(
        (Strings{"--mode", "open"}),
        LinuxOpenFileDialogImpl("", false, false, R"([{"filter_name":"All","extensions":["*"]}])", false, "")
            .panelArguments());
}

TEST(OpenPanelArguments, ABadFilterThrows) {
    EXPECT_THROW(LinuxOpenFileDialogImpl("", false, false, "{}", false, "").panelArguments(),
                 std::runtime_error);
}

TEST(SavePanelArguments, WithoutAFilterTheNameAllowsItsExtensionAndOtherTypes) {
    EXPECT_EQ((Strings{"--mode", "save", "--name=x.csv", "--ext=csv", "--allow-other"}),
              saveArguments("x.csv", ""))
        << "the extension alone, no upper-case twin";
    EXPECT_EQ((Strings{"--mode", "save", "--name=notes.markdown", "--allow-other"}),
              saveArguments("notes.markdown", ""));
    EXPECT_EQ((Strings{"--mode", "save", "--allow-other"}), saveArguments("", ""));
    EXPECT_EQ((Strings{"--mode", "save", "--name=README", "--allow-other"}), saveArguments("README", ""));
}

TEST(SavePanelArguments, TheNamesExtensionJoinsTheFilter) {
    EXPECT_EQ((Strings{"--mode", "save", "--name=report.final.pdf", "--ext=jpg", "--ext=JPG", "--ext=png",
                       "--ext=PNG", "--ext=pdf", "--ext=PDF", "--allow-other"}),
              saveArguments("report.final.pdf", kImagesAndAll));
    EXPECT_EQ((Strings{"--mode", "save", "--name=archive.tar.gz", "--ext=txt", "--ext=TXT", "--ext=gz",
                       "--ext=GZ"}),
              saveArguments("archive.tar.gz", R"([{"filter_name":"Text","extensions":["txt"]}])"))
        << "no \"*\" in the filter: only the listed types";
    EXPECT_EQ((Strings{"--mode", "save", "--name=a.b et al", "--ext=txt", "--ext=TXT"}),
              saveArguments("a.b et al", R"([{"filter_name":"Text","extensions":["txt"]}])"));
    EXPECT_EQ((Strings{"--mode", "save", "--name=x.csv", "--ext=csv", "--ext=CSV"}),
              saveArguments("x.csv", "[]"));
}

TEST(SavePanelArguments, AnyFileAloneLeavesThePanelAsItIs) {
    // Nothing is allowed in particular, so not even the all-files switch.
    EXPECT_EQ((Strings{"--mode", "save", "--name=README"}),
              saveArguments("README", R"([{"filter_name":"All","extensions":["*"]}])"));
    EXPECT_EQ((Strings{"--mode", "save", "--name=x.pdf", "--ext=pdf", "--ext=PDF", "--allow-other"}),
              saveArguments("x.pdf", R"([{"filter_name":"All","extensions":["*"]}])"));
}

TEST(SavePanelArguments, TitleAndParent) {
    EXPECT_EQ((Strings{"--mode", "save", "--title=Export", "--name=a.txt", "--ext=txt", "--allow-other",
                       "--parent=77"}),
              LinuxSaveFileDialogImpl("Export", "a.txt", "", "chrome", 77).panelArguments());
    EXPECT_THROW(saveArguments("x.csv", R"([{"filter_name":"a","extensions":[1]}])"), std::runtime_error);
}
