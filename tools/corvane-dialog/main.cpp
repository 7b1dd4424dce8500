// corvane-dialog: the file, folder and save panels of the plug-in on Linux.
//
// GTK 3 cannot be loaded into the browser that hosts the plug-in, so each
// panel is this small program, started by the plug-in and read back through
// its standard output and exit status:
//
//   corvane-dialog --mode open|folder|save [--title T] [--multiple]
//                  [--name SUGGESTED] [--ext EXT]... [--allow-other]
//                  [--parent XID]
//   corvane-dialog --alert TEXT
//
// OK prints every chosen path followed by a NUL byte and exits 0; Cancel or
// closing the window exits 1; bad arguments or no display exit 2, with the
// reason on standard error. --alert shows TEXT with one "OK" button and
// exits 0 when it is dismissed.
//
// The texts (title, name, extensions, alert) are UTF-8 whatever the
// locale: a browser started without one passes on LC_ALL=C, and the page's
// strings reach us as UTF-8 all the same.
//
// The window title is the --title text, else "Open File", "Open Folder" or
// "Save File" by mode, and "Corvane Web" for an alert.
#include <errno.h>
#include <fcntl.h>
#include <gtk/gtk.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>
#ifdef GDK_WINDOWING_X11
#include <gdk/gdkx.h>
#endif

#include <string>
#include <vector>

namespace {

const int kExitAccepted = 0;
const int kExitCancelled = 1;
const int kExitUsage = 2;

const char kAlertTitle[] = "Corvane Web";
const char kAllFiles[] = "All files";

struct Options {
    gchar* mode = nullptr;
    gchar* title = nullptr;
    gboolean multiple = FALSE;
    gchar* name = nullptr;
    gchar** extensions = nullptr;
    gboolean allowOther = FALSE;
    gchar* parent = nullptr;
    gchar* alert = nullptr;
};

bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Where our messages and GLib's go: a private copy of standard error.
int gMessageFd = STDERR_FILENO;

// The chosen paths go to a private copy of standard output, and messages to
// one of standard error. Both are then pointed at /dev/null, so that
// nothing GTK starts (a bus daemon, say) can inherit the plug-in's pipes
// and keep them open after we exit.
int takeChannel(int fd) {
    int copy = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (devNull >= 0) {
        dup2(devNull, fd);
        close(devNull);
    }
    return copy;
}

void message(const std::string& text) {
    const std::string line = "corvane-dialog: " + text + "\n";
    if (gMessageFd >= 0) writeAll(gMessageFd, line.data(), line.size());
}

// GLib's and GTK's warnings go where ours go; debug and info stay quiet.
GLogWriterOutput writeLog(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer) {
    if (level & (G_LOG_LEVEL_DEBUG | G_LOG_LEVEL_INFO)) return G_LOG_WRITER_HANDLED;
    gchar* line = g_log_writer_format_fields(level, fields, count, FALSE);
    if (line && gMessageFd >= 0) {
        writeAll(gMessageFd, line, strlen(line));
        writeAll(gMessageFd, "\n", 1);
    }
    g_free(line);
    return G_LOG_WRITER_HANDLED;
}

// Option values are taken as bytes (no conversion from the locale's
// character set, which fails on anything but ASCII under LC_ALL=C) and
// read as UTF-8; bytes that are not UTF-8 show as replacement characters.
void makeUtf8(gchar*& text) {
    if (!text || g_utf8_validate(text, -1, nullptr)) return;
    gchar* valid = g_utf8_make_valid(text, -1);
    g_free(text);
    text = valid;
}

void setParent(GtkWidget* dialog, const char* parentText) {
    if (!parentText || !*parentText) return;
    char* end = nullptr;
    unsigned long xid = strtoul(parentText, &end, 0);
    if (xid == 0 || !end || *end) return;
#ifdef GDK_WINDOWING_X11
    GdkDisplay* display = gtk_widget_get_display(dialog);
    if (!GDK_IS_X11_DISPLAY(display)) return;
    gtk_widget_realize(dialog);
    // A window that no longer exists gives null here, not an X error.
    GdkWindow* parent = gdk_x11_window_foreign_new_for_display(display, static_cast<Window>(xid));
    if (parent) {
        gdk_window_set_transient_for(gtk_widget_get_window(dialog), parent);
        g_object_unref(parent);
    }
#endif
}

void addFilters(GtkFileChooser* chooser, gchar** extensions, bool allowOther) {
    if (!extensions || !extensions[0]) return;
    GtkFileFilter* allowed = gtk_file_filter_new();
    std::string label;
    for (gchar** ext = extensions; *ext; ++ext) {
        std::string pattern = std::string("*.") + *ext;
        gtk_file_filter_add_pattern(allowed, pattern.c_str());
        label += (label.empty() ? "" : " ") + pattern;
    }
    gtk_file_filter_set_name(allowed, label.c_str());
    gtk_file_chooser_add_filter(chooser, allowed);
    if (allowOther) {
        GtkFileFilter* all = gtk_file_filter_new();
        gtk_file_filter_add_pattern(all, "*");
        gtk_file_filter_set_name(all, kAllFiles);
        gtk_file_chooser_add_filter(chooser, all);
    }
}

bool hasAllowedExtension(const std::string& path, gchar** extensions) {
    std::string::size_type slash = path.rfind('/');
    std::string::size_type dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
    std::string ext = path.substr(dot + 1);
    for (gchar** e = extensions; *e; ++e) {
        if (ext == *e) return true;
    }
    return false;
}

int runAlert(const char* text) {
    GtkWidget* alert =
        gtk_message_dialog_new(nullptr, GTK_DIALOG_MODAL, GTK_MESSAGE_WARNING, GTK_BUTTONS_OK, "%s", text);
    gtk_window_set_title(GTK_WINDOW(alert), kAlertTitle);
    gtk_window_set_keep_above(GTK_WINDOW(alert), TRUE);
    gtk_dialog_run(GTK_DIALOG(alert));
    gtk_widget_destroy(alert);
    return kExitAccepted;
}

int runPanel(const Options& options, int resultFd) {
    const std::string mode = options.mode ? options.mode : "";
    GtkFileChooserAction action;
    const char* defaultTitle;
    const char* acceptLabel;
    if (mode == "open") {
        // GTK cannot offer files and folders in one panel: an open panel
        // that also allows folders still chooses files.
        action = GTK_FILE_CHOOSER_ACTION_OPEN;
        defaultTitle = "Open File";
        acceptLabel = "_Open";
    } else if (mode == "folder") {
        action = GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER;
        defaultTitle = "Open Folder";
        acceptLabel = "_Open";
    } else if (mode == "save") {
        action = GTK_FILE_CHOOSER_ACTION_SAVE;
        defaultTitle = "Save File";
        acceptLabel = "_Save";
    } else {
        message("--mode must be open, folder or save");
        return kExitUsage;
    }
    const char* title = options.title && *options.title ? options.title : defaultTitle;

    GtkWidget* dialog = gtk_file_chooser_dialog_new(title, nullptr, action, "_Cancel", GTK_RESPONSE_CANCEL,
                                                    acceptLabel, GTK_RESPONSE_ACCEPT, nullptr);
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_ACCEPT);
    gtk_file_chooser_set_local_only(chooser, TRUE);
    if (action != GTK_FILE_CHOOSER_ACTION_SAVE) {
        gtk_file_chooser_set_select_multiple(chooser, options.multiple);
        // Open in the home folder rather than the recent-files view: there
        // a folder panel ignores a typed location and cannot be accepted
        // until something is clicked.
        gtk_file_chooser_set_current_folder(chooser, g_get_home_dir());
    }
    if (action == GTK_FILE_CHOOSER_ACTION_SAVE) {
        gtk_file_chooser_set_do_overwrite_confirmation(chooser, TRUE);
        if (options.name && *options.name) gtk_file_chooser_set_current_name(chooser, options.name);
    }
    addFilters(chooser, options.extensions, options.allowOther);
    setParent(dialog, options.parent);

    std::vector<std::string> paths;
    const bool accepted = gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_ACCEPT;
    if (accepted) {
        GSList* names = gtk_file_chooser_get_filenames(chooser);
        for (GSList* item = names; item; item = item->next)
            paths.emplace_back(static_cast<const char*>(item->data));
        g_slist_free_full(names, g_free);
    }
    gtk_widget_destroy(dialog);
    if (!accepted) return kExitCancelled;

    // A save panel limited to some types gives its file one of them unless
    // the user may pick any type, as the plug-in's pages expect.
    if (action == GTK_FILE_CHOOSER_ACTION_SAVE && options.extensions && options.extensions[0] &&
        !options.allowOther) {
        for (std::string& path : paths) {
            if (!hasAllowedExtension(path, options.extensions))
                path += std::string(".") + options.extensions[0];
        }
    }
    for (const std::string& path : paths) {
        if (!writeAll(resultFd, path.c_str(), path.size() + 1)) return kExitCancelled;
    }
    return kExitAccepted;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const GOptionEntry entries[] = {
        // FILENAME: the bytes as given (see makeUtf8).
        {"mode", 0, 0, G_OPTION_ARG_FILENAME, &options.mode, "Panel kind", "open|folder|save"},
        {"title", 0, 0, G_OPTION_ARG_FILENAME, &options.title, "Window title", "T"},
        {"multiple", 0, 0, G_OPTION_ARG_NONE, &options.multiple, "Allow choosing several items", nullptr},
        {"name", 0, 0, G_OPTION_ARG_FILENAME, &options.name, "Suggested file name (save)", "SUGGESTED"},
        {"ext", 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &options.extensions, "Allowed extension (repeatable)",
         "EXT"},
        {"allow-other", 0, 0, G_OPTION_ARG_NONE, &options.allowOther, "Also offer all files", nullptr},
        {"parent", 0, 0, G_OPTION_ARG_FILENAME, &options.parent, "X window to stay above", "XID"},
        {"alert", 0, 0, G_OPTION_ARG_FILENAME, &options.alert, "Show TEXT with an OK button", "TEXT"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};

    const int resultFd = takeChannel(STDOUT_FILENO);
    gMessageFd = takeChannel(STDERR_FILENO);
    g_log_set_writer_func(&writeLog, nullptr, nullptr);
    GError* error = nullptr;
    if (!gtk_init_with_args(&argc, &argv, nullptr, entries, nullptr, &error)) {
        message(error ? error->message : "cannot open the display");
        g_clear_error(&error);
        return kExitUsage;
    }
    if (argc > 1) {
        message(std::string("unexpected argument ") + argv[1]);
        return kExitUsage;
    }
    makeUtf8(options.title);
    makeUtf8(options.name);
    makeUtf8(options.alert);
    for (gchar** ext = options.extensions; ext && *ext; ++ext) makeUtf8(*ext);
    if (options.alert) return runAlert(options.alert);

    // A panel left behind by a browser that went away would wait forever.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() == 1) return kExitCancelled;
    if (resultFd < 0) {
        message("no standard output for the result");
        return kExitUsage;
    }
    return runPanel(options, resultFd);
}
