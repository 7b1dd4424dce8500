// The plug-in's view on X11, on a real X server (a private Xvfb): what it
// paints into the host's pixmap, how it answers the browser's events, and
// what a drop from a real drag source (tools/xdnd-owner) leads to. The
// browser calls go to the fake browser.
#include <gtest/gtest.h>
#include <time.h>
#include <turbojpeg.h>
#include <utime.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "PlugIn.h"
#include "PluginTestFixture.h"
#include "TempDir.h"
#include "ViewBrowser.h"
#include "XvfbServer.h"
#include "cvCorvaneWebView.h"
#include "cvCorvaneWebViewImplFactory.h"
#include "cvICorvaneWebViewDelegate.h"
#include "cvX11CorvaneWebViewImpl.h"

// Last: Xlib's macros (None, Bool, Status...) must not meet the headers above.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

// fontconfig, which cairo asks for the product name's font, keeps its
// configuration and patterns for the life of the process. The view never
// allocates through fontconfig itself, so nothing of ours is let off here.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}

namespace CorvaneTest {
namespace {

using Kestrix::Web::cvCorvaneWebView;
using Kestrix::Web::cvICorvaneWebViewDelegate;
using Kestrix::Web::cvICorvaneWebViewImpl;
using Kestrix::Web::cvX11CorvaneWebViewImpl;
using Kestrix::Web::PlugIn;
using Kestrix::Web::ViewBrowser;

const int kWidth = 300;
const int kHeight = 200;
const uint32_t kGrey = 0xAAAAAA;
const uint32_t kBlack = 0x000000;

class RecordingDelegate : public cvICorvaneWebViewDelegate {
public:
    void doDrop(std::vector<std::string> paths) override { drops.push_back(paths); }
    void doDropex(std::string json) override { dropexes.push_back(json); }
    void doDragOver() override { ++dragOvers; }
    void doDragLeave() override { ++dragLeaves; }

    std::vector<std::vector<std::string>> drops;
    std::vector<std::string> dropexes;
    int dragOvers = 0;
    int dragLeaves = 0;
};

// A solid-colour JPEG made with the same library the view decodes with.
std::string solidJpeg(int width, int height, unsigned char r, unsigned char g, unsigned char b) {
    std::vector<unsigned char> rgb(static_cast<size_t>(width) * height * 3);
    for (size_t i = 0; i < rgb.size(); i += 3) {
        rgb[i] = r;
        rgb[i + 1] = g;
        rgb[i + 2] = b;
    }
    tjhandle encoder = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    const int failed =
        tjCompress2(encoder, rgb.data(), width, 0, height, TJPF_RGB, &jpeg, &size, TJSAMP_444, 95, 0);
    std::string out = failed ? "" : std::string(reinterpret_cast<char*>(jpeg), size);
    tjFree(jpeg);
    tjDestroy(encoder);
    return out;
}

bool near(uint32_t pixel, uint32_t colour, int tolerance = 6) {
    for (int shift = 0; shift <= 16; shift += 8) {
        const int a = (pixel >> shift) & 0xFF, b = (colour >> shift) & 0xFF;
        if (a - b > tolerance || b - a > tolerance) return false;
    }
    return true;
}

bool dark(uint32_t pixel) {
    return ((pixel >> 16) & 0xFF) < 0x60 && ((pixel >> 8) & 0xFF) < 0x60 && (pixel & 0xFF) < 0x60;
}

std::string fileUri(const std::string& path) {
    return "file://" + path;
}

// One X server and one connection for the whole program, kept to the end
// as a browser keeps its own: cairo holds what it learnt about a display
// (formats, glyphs) until the display closes, and frees little of it then.
struct SharedDisplay {
    XvfbServer server;
    Display* display = nullptr;
};

SharedDisplay& sharedDisplay() {
    static SharedDisplay shared;
    static bool tried = false;
    if (!tried) {
        tried = true;
        if (shared.server.start()) shared.display = XOpenDisplay(shared.server.displayName().c_str());
    }
    return shared;
}

class PluginViewTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        if (!XvfbServer::available()) GTEST_SKIP() << "Xvfb is not installed (Debian: xvfb)";
        _display = sharedDisplay().display;
        ASSERT_NE(nullptr, _display) << "no X server: " << sharedDisplay().server.error();
        const int screen = DefaultScreen(_display);
        _pixmap = XCreatePixmap(_display, DefaultRootWindow(_display), kWidth, kHeight, 24);
        fillPixmap(0xFFFFFF);

        _info.type = NP_SETWINDOW;
        _info.display = _display;
        _info.visual = DefaultVisual(_display, screen);
        _info.colormap = DefaultColormap(_display, screen);
        _info.depth = 24;
        _window.window = reinterpret_cast<void*>(_pixmap);
        _window.x = 100;
        _window.y = 50;
        _window.width = kWidth;
        _window.height = kHeight;
        _window.ws_info = &_info;
        _window.type = NPWindowTypeDrawable;

        browser();  // NP_Initialize: the view's browser calls reach the fake browser
        _impl = new cvX11CorvaneWebViewImpl;
        _view.reset(new cvCorvaneWebView(std::unique_ptr<cvICorvaneWebViewImpl>(_impl)));
        _view->init(&_window, &_viewBrowser, false, false, false);
        _view->setDelegate(&_delegate);
    }

    void TearDown() override {
        _drag.stop();
        _view.reset();
        if (_pixmap) XFreePixmap(_display, _pixmap);
        PluginTest::TearDown();
    }

    void fillPixmap(unsigned long colour) {
        GC gc = XCreateGC(_display, _pixmap, 0, nullptr);
        XSetForeground(_display, gc, colour);
        XFillRectangle(_display, _pixmap, gc, 0, 0, kWidth, kHeight);
        XFreeGC(_display, gc);
    }

    // What the host sends when it wants (part of) the pixmap painted.
    int16_t expose(int x = 0, int y = 0, int width = kWidth, int height = kHeight) {
        XEvent event = {};
        event.xgraphicsexpose.type = GraphicsExpose;
        event.xgraphicsexpose.display = _display;
        event.xgraphicsexpose.drawable = _pixmap;
        event.xgraphicsexpose.x = x;
        event.xgraphicsexpose.y = y;
        event.xgraphicsexpose.width = width;
        event.xgraphicsexpose.height = height;
        return _view->handleEvent(&event);
    }

    int16_t send(int type, unsigned int state = 0) {
        XEvent event = {};
        event.type = type;
        event.xany.display = _display;
        if (type == MotionNotify) event.xmotion.state = state;
        return _view->handleEvent(&event);
    }

    // The pixmap as the host reads it back.
    std::vector<uint32_t> pixels() {
        XImage* image = XGetImage(_display, _pixmap, 0, 0, kWidth, kHeight, AllPlanes, ZPixmap);
        std::vector<uint32_t> out(kWidth * kHeight);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) out[y * kWidth + x] = XGetPixel(image, x, y) & 0xFFFFFF;
        XDestroyImage(image);
        return out;
    }
    static uint32_t at(const std::vector<uint32_t>& p, int x, int y) { return p[y * kWidth + x]; }

    // The smallest rectangle holding every dark pixel; false when there is none.
    static bool darkBounds(const std::vector<uint32_t>& p, int* left, int* top, int* right, int* bottom) {
        *left = kWidth, *top = kHeight, *right = -1, *bottom = -1;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                if (!dark(at(p, x, y))) continue;
                *left = std::min(*left, x), *right = std::max(*right, x);
                *top = std::min(*top, y), *bottom = std::max(*bottom, y);
            }
        }
        return *right >= 0;
    }

    // ---- Drag sources ----
    // Starts xdnd-owner with `args` on our display and waits until it owns
    // the selection.
    void startDrag(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {CORVANE_XDND_OWNER_PATH};
        argv.insert(argv.end(), args.begin(), args.end());
        ASSERT_TRUE(_drag.start(argv, {{"DISPLAY", sharedDisplay().server.displayName()}}, true));
        std::string line;
        ASSERT_TRUE(_drag.readLine(&line, 5000));
        ASSERT_EQ("ready", line);
    }
    bool dragStillOwned() {
        return XGetSelectionOwner(_display, XInternAtom(_display, "XdndSelection", False)) != 0;
    }
    // The targets the view asked the source for, until it cleared the drag
    // or `timeoutMs` passed.
    std::vector<std::string> dragRequests(int timeoutMs = 1000) {
        std::vector<std::string> lines;
        std::string line;
        while (_drag.readLine(&line, timeoutMs)) {
            lines.push_back(line);
            if (line == "cleared") break;
        }
        return lines;
    }

    void drop(FakeObject* pageFiles) {
        NPVariant files;
        OBJECT_TO_NPVARIANT(pageFiles, files);
        _view->handleDrop(&files);
    }
    FakeObject* pageList(const std::vector<FakeValue>& names) { return browser().newPageArray(names); }

    static bool approved(const std::string& path) { return PlugIn::isFileAllowed(path); }

    Display* _display = nullptr;
    Pixmap _pixmap = 0;
    NPSetWindowCallbackStruct _info = {};
    NPWindow _window = {};
    NPP_t _npp = {};
    ViewBrowser _viewBrowser{&_npp};
    RecordingDelegate _delegate;
    cvX11CorvaneWebViewImpl* _impl = nullptr;  // _view's
    std::unique_ptr<cvCorvaneWebView> _view;
    ChildProcess _drag;
    TempDir _files;
};

// ---- Painting ----

TEST_F(PluginViewTest, PaintsTheProductNameCentredOnGreyGround) {
    EXPECT_EQ(1, expose());
    const std::vector<uint32_t> p = pixels();
    for (auto corner : {std::make_pair(0, 0), std::make_pair(kWidth - 1, 0), std::make_pair(0, kHeight - 1),
                        std::make_pair(kWidth - 1, kHeight - 1), std::make_pair(4, 4)})
        EXPECT_EQ(kGrey, at(p, corner.first, corner.second)) << corner.first << "," << corner.second;

    int left, top, right, bottom;
    ASSERT_TRUE(darkBounds(p, &left, &top, &right, &bottom)) << "no text drawn";
    // One line of text, wider than tall, around the middle.
    EXPECT_GT(right - left, 40);
    EXPECT_LT(bottom - top, 30);
    EXPECT_NEAR(kWidth / 2.0, (left + right) / 2.0, 3);
    EXPECT_NEAR(kHeight / 2.0, (top + bottom) / 2.0, 4);
}

TEST_F(PluginViewTest, PaintsExactlyTheExposedAreaEveryTime) {
    EXPECT_EQ(1, expose(10, 20, 40, 30));
    std::vector<uint32_t> p = pixels();
    EXPECT_EQ(kGrey, at(p, 10, 20));
    EXPECT_EQ(kGrey, at(p, 49, 49));
    EXPECT_EQ(0xFFFFFFu, at(p, 9, 20));
    EXPECT_EQ(0xFFFFFFu, at(p, 50, 49));
    EXPECT_EQ(0xFFFFFFu, at(p, 10, 50));

    // The host reuses its pixmap: what was there is painted over in full.
    fillPixmap(0x123456);
    expose();
    p = pixels();
    EXPECT_EQ(kGrey, at(p, 0, 0));
    EXPECT_EQ(kGrey, at(p, kWidth - 1, kHeight - 1));
}

TEST_F(PluginViewTest, ButtonPressDrawsTheFiveBlackPixelFrame) {
    expose();
    std::vector<uint32_t> p = pixels();
    EXPECT_EQ(kGrey, at(p, 0, 0));
    EXPECT_EQ(kGrey, at(p, 2, kHeight / 2));

    EXPECT_EQ(1, send(ButtonPress));
    expose();
    p = pixels();
    for (int d = 0; d < 5; ++d) {
        EXPECT_EQ(kBlack, at(p, d, kHeight / 2)) << "left " << d;
        EXPECT_EQ(kBlack, at(p, kWidth - 1 - d, kHeight / 2)) << "right " << d;
        EXPECT_EQ(kBlack, at(p, kWidth / 4, d)) << "top " << d;
        EXPECT_EQ(kBlack, at(p, kWidth / 4, kHeight - 1 - d)) << "bottom " << d;
    }
    EXPECT_EQ(kGrey, at(p, 5, kHeight / 2));
    EXPECT_EQ(kGrey, at(p, kWidth - 6, kHeight / 2));
    EXPECT_EQ(kGrey, at(p, kWidth / 4, 5));
    EXPECT_EQ(kGrey, at(p, kWidth / 4, kHeight - 6));
}

TEST_F(PluginViewTest, JpegImageIsDrawnScaledOverTheWholeArea) {
    const std::string jpeg = solidJpeg(8, 4, 0xC0, 0x30, 0x20);
    ASSERT_FALSE(jpeg.empty());
    const int invalidated = browser().invalidateCount();
    _view->setImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()));
    EXPECT_EQ(invalidated + 1, browser().invalidateCount());

    expose();
    const std::vector<uint32_t> p = pixels();
    for (auto point : {std::make_pair(0, 0), std::make_pair(kWidth - 1, kHeight - 1),
                       std::make_pair(kWidth / 2, kHeight / 2), std::make_pair(kWidth - 1, 0),
                       std::make_pair(0, kHeight - 1)})
        EXPECT_TRUE(near(at(p, point.first, point.second), 0xC03020))
            << std::hex << at(p, point.first, point.second) << " at " << std::dec << point.first << ","
            << point.second;
    int left, top, right, bottom;
    EXPECT_FALSE(darkBounds(p, &left, &top, &right, &bottom))
        << "the product name is not drawn over an image";
}

TEST_F(PluginViewTest, FramedImageKeepsItsTopLeftOriginAndLeavesGroundAtTheFarSides) {
    const std::string jpeg = solidJpeg(8, 8, 0x20, 0x40, 0xD0);
    _view->setImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()));
    send(FocusIn);
    expose();
    const std::vector<uint32_t> p = pixels();
    // The image, shrunk by the frame but drawn from (0, 0), covers the
    // frame's top-left corner...
    EXPECT_TRUE(near(at(p, 1, 1), 0x2040D0)) << std::hex << at(p, 1, 1);
    EXPECT_TRUE(near(at(p, kWidth - 12, kHeight - 12), 0x2040D0))
        << std::hex << at(p, kWidth - 12, kHeight - 12);
    // ...and ends 10 pixels short, where the ground and the frame show.
    EXPECT_EQ(kGrey, at(p, kWidth - 7, kHeight / 2));
    EXPECT_EQ(kGrey, at(p, kWidth / 2, kHeight - 7));
    EXPECT_EQ(kBlack, at(p, kWidth - 3, kHeight / 2));
    EXPECT_EQ(kBlack, at(p, kWidth / 2, kHeight - 3));
}

TEST_F(PluginViewTest, UndecodableImageIsLoggedAndLaterImagesReplaceEarlierOnes) {
    const int invalidated = browser().invalidateCount();
    const std::string png = "\x89PNG\r\n\x1a\n not a jpeg at all";
    _view->setImage(png.data(), static_cast<unsigned int>(png.size()));
    _view->setImage("", 0);
    EXPECT_EQ(2u, _log.count("LOG ERROR: Failure to create Core Graphics image."));
    EXPECT_EQ(invalidated, browser().invalidateCount());
    expose();
    int left, top, right, bottom;
    EXPECT_TRUE(darkBounds(pixels(), &left, &top, &right, &bottom)) << "the product name is still drawn";

    // A second good image replaces the first; a bad one after them changes nothing.
    const std::string red = solidJpeg(4, 4, 0xE0, 0x10, 0x10);
    const std::string green = solidJpeg(4, 4, 0x10, 0xE0, 0x10);
    _view->setImage(red.data(), static_cast<unsigned int>(red.size()));
    _view->setImage(green.data(), static_cast<unsigned int>(green.size()));
    _view->setImage(red.data(), 10);  // a cut-off header
    EXPECT_EQ(3u, _log.count("LOG ERROR: Failure to create Core Graphics image."));
    expose();
    EXPECT_TRUE(near(at(pixels(), kWidth / 2, kHeight / 2), 0x10E010));
}

// ---- Events ----

TEST_F(PluginViewTest, EventTable) {
    struct Case {
        const char* name;
        int type;
        unsigned int state;
        int16_t handled;
        bool highlights;
    };
    const Case cases[] = {
        {"ButtonPress", ButtonPress, 0, 1, true},
        {"ButtonRelease", ButtonRelease, 0, 1, true},
        {"EnterNotify", EnterNotify, 0, 1, true},
        {"LeaveNotify", LeaveNotify, 0, 1, true},  // leaving turns the frame on too
        {"MotionNotify dragging", MotionNotify, Button1Mask, 1, true},
        {"MotionNotify wheel held", MotionNotify, Button4Mask, 1, true},
        {"MotionNotify", MotionNotify, 0, 0, false},
        {"MotionNotify with a modifier", MotionNotify, ShiftMask, 0, false},
        {"KeyPress", KeyPress, 0, 1, false},
        {"KeyRelease", KeyRelease, 0, 1, false},
        {"ConfigureNotify", ConfigureNotify, 0, 0, false},
        {"PropertyNotify", PropertyNotify, 0, 0, false},
        {"VisibilityNotify", VisibilityNotify, 0, 0, false},
    };
    for (const Case& c : cases) {
        cvX11CorvaneWebViewImpl view;
        view.init(&_window, &_viewBrowser, false);
        const int invalidated = browser().invalidateCount();
        XEvent event = {};
        event.type = c.type;
        event.xmotion.state = c.state;
        EXPECT_EQ(c.handled, view.handleEvent(&event)) << c.name;
        EXPECT_EQ(c.highlights, view.highlight()) << c.name;
        EXPECT_EQ(invalidated + (c.highlights ? 1 : 0), browser().invalidateCount()) << c.name;
    }
    EXPECT_EQ(0, _view->handleEvent(nullptr));
}

TEST_F(PluginViewTest, OnlyTheFocusTurnsTheFrameOff) {
    const int invalidated = browser().invalidateCount();
    EXPECT_EQ(1, send(FocusIn));
    EXPECT_TRUE(_impl->highlight());
    EXPECT_EQ(1, send(LeaveNotify));
    EXPECT_EQ(1, send(KeyPress));
    EXPECT_TRUE(_impl->highlight());
    EXPECT_EQ(1, send(FocusOut));
    EXPECT_FALSE(_impl->highlight());
    EXPECT_EQ(invalidated + 3, browser().invalidateCount());
    expose();
    EXPECT_EQ(kGrey, at(pixels(), 0, 0));
}

TEST_F(PluginViewTest, InvalidationSendsTheWindowsPositionAndSize) {
    send(ButtonPress);
    const NPRect rect = browser().lastInvalidRect();
    // x = 100, y = 50, 300 x 200: the size goes where the far edges belong.
    EXPECT_EQ(50, rect.top);
    EXPECT_EQ(100, rect.left);
    EXPECT_EQ(200, rect.bottom);
    EXPECT_EQ(300, rect.right);

    // Before the view has a window nothing is invalidated.
    cvX11CorvaneWebViewImpl view;
    const int invalidated = browser().invalidateCount();
    XEvent event = {};
    event.type = ButtonPress;
    EXPECT_EQ(1, view.handleEvent(&event));
    EXPECT_EQ(invalidated, browser().invalidateCount());
}

TEST_F(PluginViewTest, ViewForwardsToItsImplementation) {
    cvCorvaneWebView view;
    EXPECT_FALSE(view.init(nullptr, &_viewBrowser, false, false, false));
    EXPECT_TRUE(view.init(&_window, &_viewBrowser, false, false, false));
    EXPECT_TRUE(_log.has("LOG cvMacCorvaneWebViewImpl::initialized"));
    EXPECT_TRUE(view.resize(&_window));
    XEvent event = {};
    event.type = GraphicsExpose;
    event.xgraphicsexpose.display = _display;
    event.xgraphicsexpose.drawable = _pixmap;
    event.xgraphicsexpose.width = kWidth;
    event.xgraphicsexpose.height = kHeight;
    EXPECT_EQ(1, view.handleEvent(&event));
    EXPECT_EQ(kGrey, at(pixels(), 0, 0));
    event.type = MotionNotify;
    EXPECT_EQ(0, view.handleEvent(&event));

    cvCorvaneWebView empty(nullptr);
    EXPECT_FALSE(empty.init(&_window, &_viewBrowser, false, false, false));
    EXPECT_EQ(0, empty.handleEvent(&event));
    empty.setImage("x", 1);
    empty.handleDrop(nullptr);
    empty.setDelegate(&_delegate);

    EXPECT_NE(nullptr, dynamic_cast<cvX11CorvaneWebViewImpl*>(Kestrix::Web::createPlatformViewImpl().get()));
}

// ---- Drops ----

class PluginViewDropTest : public PluginViewTest {
protected:
    void SetUp() override {
        PluginViewTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        _a = _files.write("x/a.txt", "hello");
        _b = _files.write("y/b.txt", "hi there");
        _folder = _files.mkdir("folder");
        _uriList = fileUri(_a) + "\r\n" + fileUri(_b) + "\r\n";
    }
    std::string _a, _b, _folder, _uriList;
};

TEST_F(PluginViewDropTest, MatchingNamesApproveTheFilesAndTellTheDelegate) {
    // A fixed date in a fixed zone, so the description can be spelt out.
    ScopedEnv zone;
    zone.set("TZ", "UTC");
    tzset();
    const utimbuf when = {1700000000, 1700000000};
    ASSERT_EQ(0, utime(_a.c_str(), &when));
    ASSERT_EQ(0, utime(_b.c_str(), &when));

    startDrag({"--uri-list", _uriList});
    const size_t liveBefore = FakeRuntime::liveAllocations();
    drop(pageList({"b.txt", "a.txt"}));  // the page's order does not matter
    tzset();

    EXPECT_TRUE(approved(_a));
    EXPECT_TRUE(approved(_b));
    ASSERT_EQ(1u, _delegate.drops.size());
    EXPECT_EQ((std::vector<std::string>{_a, _b}), _delegate.drops[0]);
    ASSERT_EQ(1u, _delegate.dropexes.size());
    EXPECT_EQ(
        "{\"dataTransfer\":{\"files\":["
        "{\"lastModifiedDate\":\"Tue Nov 14 22:13:20 2023\",\"name\":\"" +
            _a +
            "\",\"size\":5,\"type\":\"text/plain\"},"
            "{\"lastModifiedDate\":\"Tue Nov 14 22:13:20 2023\",\"name\":\"" +
            _b + "\",\"size\":8,\"type\":\"text/plain\"}]}}",
        _delegate.dropexes[0]);
    EXPECT_FALSE(dragStillOwned());
    EXPECT_EQ((std::vector<std::string>{"request text/uri-list", "cleared"}), dragRequests());
    EXPECT_TRUE(_log.has("DBG handleDrop(): Mac -> files provided"));
    // The page's names were copied in browser memory and given back.
    EXPECT_EQ(liveBefore, FakeRuntime::liveAllocations());
}

TEST_F(PluginViewDropTest, MismatchingNamesApproveNothingAndLeaveTheDrag) {
    startDrag({"--uri-list", _uriList});
    drop(pageList({"a.txt", "c.txt"}));
    EXPECT_FALSE(approved(_a));
    EXPECT_FALSE(approved(_b));
    EXPECT_TRUE(_delegate.drops.empty());
    EXPECT_TRUE(_delegate.dropexes.empty());
    EXPECT_TRUE(dragStillOwned());
    EXPECT_TRUE(
        _log.has("DBG handleDrop(): Mac -> File(s) dropped and file(s) in the clipboard don't match"));
}

TEST_F(PluginViewDropTest, NamesAreComparedAfterTheLastSlashOrBackslash) {
    // A name with a backslash in it is cut there, as a Windows path would be.
    const std::string odd = _files.write("z/c\\d.txt", "x");
    startDrag({"--uri-list", fileUri(_a) + "\r\n" + fileUri(_files.path() + "/z/c%5Cd.txt") + "\r\n"});
    drop(pageList({"d.txt", "a.txt"}));
    ASSERT_EQ(1u, _delegate.drops.size());
    EXPECT_EQ((std::vector<std::string>{_a, odd}), _delegate.drops[0]);
}

TEST_F(PluginViewDropTest, OneNameAgainstTwoFilesIsNotCrossChecked) {
    startDrag({"--uri-list", _uriList});
    drop(pageList({"something-else.txt"}));
    EXPECT_TRUE(approved(_a));
    EXPECT_TRUE(approved(_b));
    ASSERT_EQ(1u, _delegate.drops.size());
    EXPECT_EQ(2u, _delegate.drops[0].size());
    EXPECT_FALSE(dragStillOwned());
}

TEST_F(PluginViewDropTest, FoldersAreLeftOutUnlessAllowed) {
    const std::string list = fileUri(_a) + "\r\n" + fileUri(_folder) + "\r\n";
    startDrag({"--uri-list", list});
    _view->handleDrop(nullptr);
    ASSERT_EQ(1u, _delegate.drops.size());
    EXPECT_EQ((std::vector<std::string>{_a}), _delegate.drops[0]);
    EXPECT_FALSE(approved(_folder));
    EXPECT_TRUE(_log.has("DBG handleDrop(): Mac -> No list of files provided"));

    _drag.stop();
    startDrag({"--uri-list", list});
    _view->init(&_window, &_viewBrowser, false, true, false);
    _view->handleDrop(nullptr);
    ASSERT_EQ(2u, _delegate.drops.size());
    EXPECT_EQ((std::vector<std::string>{_a, _folder}), _delegate.drops[1]);
    EXPECT_TRUE(approved(_folder));
}

TEST_F(PluginViewDropTest, AFolderAloneOnlyClearsTheDrag) {
    startDrag({"--uri-list", fileUri(_folder) + "\r\n"});
    drop(pageList({"folder"}));
    EXPECT_TRUE(_delegate.drops.empty());
    EXPECT_FALSE(approved(_folder));
    EXPECT_FALSE(dragStillOwned());
}

TEST_F(PluginViewDropTest, OnlyLocalFileUrisBecomePaths) {
    const std::string spaced = _files.write("with space.txt", "s");
    const std::string missing = _files.path() + "/not-there.txt";
    startDrag({"--uri-list",
               "# a comment line\r\nhttp://example.com/a.txt\r\n" + fileUri(_files.path()) +
                   "/with%20space.txt\r\nfile://elsewhere.example/etc/passwd\r\n" + "file://localhost" + _a +
                   "\r\n" + fileUri(missing) + "\r\n",
               "--text", "fallback text"});
    _view->handleDrop(nullptr);
    ASSERT_EQ(1u, _delegate.drops.size());
    // Paths that do not exist are kept; the text is not used when there are URIs.
    EXPECT_EQ((std::vector<std::string>{spaced, _a, missing}), _delegate.drops[0]);
    EXPECT_FALSE(approved("/etc/passwd"));
    EXPECT_FALSE(approved("fallback text"));
}

TEST_F(PluginViewDropTest, TextDragApprovesTheTextItself) {
    startDrag({"--text", "/some/dragged text"});
    _view->handleDrop(nullptr);
    EXPECT_TRUE(approved("/some/dragged text"));
    ASSERT_EQ(1u, _delegate.drops.size());
    EXPECT_EQ((std::vector<std::string>{"/some/dragged text"}), _delegate.drops[0]);
    EXPECT_EQ((std::vector<std::string>{"request text/uri-list", "request UTF8_STRING", "cleared"}),
              dragRequests());
}

TEST_F(PluginViewDropTest, LengthThatIsAStringGivesNoPageNames) {
    FakeObject* files = browser().newPageObject();
    files->set("length", FakeValue("2"));
    files->setAt(0, FakeValue("x.txt"));
    files->setAt(1, FakeValue("y.txt"));
    startDrag({"--uri-list", _uriList});
    drop(files);
    EXPECT_TRUE(_log.has("DBG length property is not of expetected type"));
    // No names, so no cross-check: the drop is taken.
    EXPECT_TRUE(approved(_a));
    EXPECT_TRUE(approved(_b));
}

TEST_F(PluginViewDropTest, LengthAsADoubleIsTruncated) {
    FakeObject* files = browser().newPageObject();
    files->set("length", FakeValue(2.9));
    files->setAt(0, FakeValue("a.txt"));
    files->setAt(1, FakeValue("c.txt"));
    files->setAt(2, FakeValue("b.txt"));
    startDrag({"--uri-list", _uriList});
    drop(files);
    // Two names read, and they do not match.
    EXPECT_FALSE(approved(_a));
    EXPECT_TRUE(
        _log.has("DBG handleDrop(): Mac -> File(s) dropped and file(s) in the clipboard don't match"));
    EXPECT_FALSE(_log.has("DBG length property is not of expetected type"));
}

TEST_F(PluginViewDropTest, LargeListsArriveInPieces) {
    std::string list;
    for (int i = 0; i < 200; ++i) list += "# padding line " + std::to_string(i) + " of a long list\r\n";
    list += _uriList;
    startDrag({"--uri-list", list, "--incr-chunk", "1000"});
    drop(pageList({"a.txt", "b.txt"}));
    ASSERT_EQ(1u, _delegate.drops.size());
    EXPECT_EQ((std::vector<std::string>{_a, _b}), _delegate.drops[0]);
}

TEST_F(PluginViewDropTest, SourceThatDoesNotAnswerCountsAsEmptyAfterTwoSeconds) {
    startDrag({"--uri-list", _uriList, "--silent"});
    const auto start = std::chrono::steady_clock::now();
    drop(pageList({"a.txt", "b.txt"}));
    const auto waited =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    EXPECT_GE(waited.count(), 1900);
    EXPECT_LT(waited.count(), 4000);
    EXPECT_TRUE(_delegate.drops.empty());
    EXPECT_FALSE(approved(_a));
    EXPECT_FALSE(dragStillOwned());
}

TEST_F(PluginViewDropTest, NoDragOrNoDelegateTakesNothing) {
    const auto start = std::chrono::steady_clock::now();
    drop(pageList({"a.txt", "b.txt"}));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
    EXPECT_TRUE(_delegate.drops.empty());

    startDrag({"--uri-list", _uriList});
    _view->setDelegate(nullptr);
    drop(pageList({"a.txt", "b.txt"}));
    EXPECT_FALSE(approved(_a));
    EXPECT_FALSE(dragStillOwned());
}

TEST_F(PluginViewDropTest, BrowserOutOfMemoryAbandonsTheDrop) {
    FakeBrowser::Options options = FakeBrowser::Options::qtWebKit();
    options.nullEntries.insert("memalloc");
    openBrowser(options);
    startDrag({"--uri-list", _uriList});
    drop(pageList({"a.txt", "b.txt"}));
    EXPECT_FALSE(approved(_a));
    EXPECT_TRUE(_delegate.drops.empty());
    EXPECT_TRUE(dragStillOwned());
    EXPECT_TRUE(dragRequests(200).empty()) << "the drag is not even read";
}

}  // namespace
}  // namespace CorvaneTest
