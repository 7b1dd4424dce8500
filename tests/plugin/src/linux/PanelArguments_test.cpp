// What the Linux panels ask corvane-dialog for: the allowed types worked out
// from the page's filter and the suggested name. One row per rule.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "linux/LinuxOpenFileDialogImpl.h"
#include "linux/LinuxSaveFileDialogImpl.h"

using Kestrix::Web::LinuxOpenFileDialogImpl;
using Kestrix::Web::LinuxSaveFileDialogImpl;

namespace {

const char kImagesAndAll[] =
    R"([{"filter_name":"Images","extensions":["jpg","png"]},{"filter_name":"All","extensions":["*"]}])";
const char kText[] = R"([{"filter_name":"Text","extensions":["txt"]}])";
const char kAll[] = R"([{"filter_name":"All","extensions":["*"]}])";

// The arguments joined by '|', or "throws|" and the message when the
// filter is refused.
template <class Panel>
std::string argumentsOf(const Panel& panel) {
    try {
        std::string joined;
        for (const std::string& arg : panel.panelArguments()) joined += (joined.empty() ? "" : "|") + arg;
        return joined;
    } catch (const std::runtime_error& e) {
        return std::string("throws|") + e.what();
    }
}

}  // namespace

// A filter that is no list or has an empty list of extensions: the page
// plugin-dialogs-async.
TEST(PanelArguments, OpenPanels) {
    const char bad[] = "throws|Error parsing fileTypes JSON";
    const struct Row {
        const char* title;
        bool multiple, folders;
        const char* types;
        unsigned long parent;
        const char* args;
    } rows[] = {
        {"", false, false, "", 0, "--mode|open"},
        {"", false, false, kAll, 0, "--mode|open"},
        {"Pick -x", true, false, kImagesAndAll, 4194311,
         "--mode|open|--title=Pick -x|--multiple|--ext=jpg|--ext=JPG|--ext=png|--ext=PNG|--parent=4194311"},
        {"", true, true, "", 0, "--mode|folder|--multiple"},
        // Each extension once with its upper-case twin; an upper-case one is
        // not found by its twin.
        {"", false, false,
         R"([{"filter_name":"A","extensions":["JPG","jpg","*"]},{"filter_name":"B","extensions":["pdf","jpg"]}])",
         0, "--mode|open|--ext=JPG|--ext=JPG|--ext=jpg|--ext=JPG|--ext=pdf|--ext=PDF"},
        {"", false, false, R"([{"filter_name":"a","extensions":["x",7]}])", 0, bad},
        {"", false, false, R"([{"filter_name":"a","extensions":["x"]},{"filter_name":"b"}])", 0, bad},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.args,
                  argumentsOf(LinuxOpenFileDialogImpl(row.title, row.multiple, row.multiple, row.types,
                                                      row.folders, "firefox", row.parent)))
            << row.types;
}

// The suggested name's extension (after the last dot, at most four
// characters, none for names of the "et al" kind) joins the filter.
TEST(PanelArguments, SavePanels) {
    const struct Row {
        const char* name;
        const char* types;
        const char* args;
    } rows[] = {
        {"x.csv", "", "--mode|save|--name=x.csv|--ext=csv|--allow-other"},
        {"notes.markdown", "", "--mode|save|--name=notes.markdown|--allow-other"},
        {"data.json", "[]", "--mode|save|--name=data.json|--ext=json|--ext=JSON"},
        {"report.final.pdf", kImagesAndAll,
         "--mode|save|--name=report.final.pdf|--ext=jpg|--ext=JPG|--ext=png|--ext=PNG"
         "|--ext=pdf|--ext=PDF|--allow-other"},
        {"archive.tar.gz", kText, "--mode|save|--name=archive.tar.gz|--ext=txt|--ext=TXT|--ext=gz|--ext=GZ"},
        {"a.b et al", kText, "--mode|save|--name=a.b et al|--ext=txt|--ext=TXT"},
        {"README", kAll, "--mode|save|--name=README"},
        {"x.pdf", kAll, "--mode|save|--name=x.pdf|--ext=pdf|--ext=PDF|--allow-other"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.args, argumentsOf(LinuxSaveFileDialogImpl("", row.name, row.types, "firefox")))
            << row.name;
    EXPECT_EQ("--mode|save|--title=Export|--name=a.txt|--ext=txt|--allow-other|--parent=77",
              argumentsOf(LinuxSaveFileDialogImpl("Export", "a.txt", "", "chrome", 77)));
}
