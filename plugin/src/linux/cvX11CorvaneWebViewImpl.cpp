#include "cvX11CorvaneWebViewImpl.h"

#include <X11/Xlib.h>
#include <cairo-xlib.h>
#include <cairo.h>
#include <turbojpeg.h>

#include <algorithm>
#include <memory>

#include "Messages.h"
#include "X11DragSelection.h"
#include "cvICorvaneWebViewBrowser.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const double kGround = 0xAA / 255.0;  // light grey, #AAAAAA
const double kFrameWidth = 5.0;
const double kTextSize = 12.0;

// cairo's RGB24 is a native-endian 0x00RRGGBB word per pixel.
const int kSurfacePixelFormat = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? TJPF_BGRX : TJPF_XRGB;

struct TurboJpegHandle {
    tjhandle handle = tjInitDecompress();
    ~TurboJpegHandle() {
        if (handle) tjDestroy(handle);
    }
};

// The JPEG decoded into an image surface, or null when it is not one we
// can decode. A damaged tail (a warning from the decoder) still gives the
// picture as far as it goes.
cairo_surface_t* decodeJpeg(const char* data, unsigned int length) {
    if (!data || length == 0) return nullptr;
    TurboJpegHandle decoder;
    if (!decoder.handle) return nullptr;
    unsigned char* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(data));
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    if (tjDecompressHeader3(decoder.handle, bytes, length, &width, &height, &subsampling, &colorspace) != 0)
        return nullptr;

    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    cairo_surface_flush(surface);
    const int decoded =
        tjDecompress2(decoder.handle, bytes, length, cairo_image_surface_get_data(surface), width,
                      cairo_image_surface_get_stride(surface), height, kSurfacePixelFormat, 0);
    if (decoded != 0 && tjGetErrorCode(decoder.handle) != TJERR_WARNING) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    cairo_surface_mark_dirty(surface);
    return surface;
}

NPSetWindowCallbackStruct* windowInfo(const NPWindow* window) {
    return window ? static_cast<NPSetWindowCallbackStruct*>(window->ws_info) : nullptr;
}

}  // namespace

cvX11CorvaneWebViewImpl::~cvX11CorvaneWebViewImpl() {
    if (_image) cairo_surface_destroy(_image);
}

bool cvX11CorvaneWebViewImpl::init(NPWindow* window, cvICorvaneWebViewBrowser* browser, bool) {
    _window = window;
    _browser = browser;
    // The log keeps the texts it has always had, so that readers of old
    // and new logs look for the same lines.
    cv_log("cvMacCorvaneWebViewImpl::initialized");
    return true;
}

bool cvX11CorvaneWebViewImpl::fini() {
    return true;
}

void cvX11CorvaneWebViewImpl::setImage(const char* data, unsigned int length) {
    cairo_surface_t* image = decodeJpeg(data, length);
    if (!image) {
        // Whatever was shown before stays: the product name, or an
        // earlier image.
        cv_log("ERROR: Failure to create Core Graphics image.");
        return;
    }
    if (_image) cairo_surface_destroy(_image);
    _image = image;
    invalidate();
}

int16_t cvX11CorvaneWebViewImpl::handleEvent(void* event) {
    if (!event) return 0;
    const XEvent* x = static_cast<const XEvent*>(event);
    switch (x->type) {
        case GraphicsExpose:
            paint(x);
            return 1;
        case ButtonPress:
        case ButtonRelease:  // wheel turns arrive as buttons 4 to 7
        case EnterNotify:
        case LeaveNotify:
            handleMouseEvent();
            return 1;
        case MotionNotify:
            // Only a drag counts; plain movement is left to the browser.
            if (!(x->xmotion.state & (Button1Mask | Button2Mask | Button3Mask | Button4Mask | Button5Mask)))
                return 0;
            handleMouseEvent();
            return 1;
        case KeyPress:
        case KeyRelease:
            handleKeyboardEvent();
            return 1;
        case FocusIn:
        case FocusOut:
            _highlight = x->type == FocusIn;
            invalidate();
            return 1;
        default:
            return 0;
    }
}

void cvX11CorvaneWebViewImpl::handleMouseEvent() {
    // Leaving turns the frame on as well; only losing the focus turns it off.
    _highlight = true;
    invalidate();
}

void cvX11CorvaneWebViewImpl::handleKeyboardEvent() {}

void cvX11CorvaneWebViewImpl::invalidate() {
    if (_window && _browser) _browser->invalidateWindow(*_window);
}

// The host paints the whole exposed area into its pixmap each time and
// reads it back, so everything in the area is drawn, every time.
void cvX11CorvaneWebViewImpl::paint(const NPEvent* event) {
    const XGraphicsExposeEvent& expose = event->xgraphicsexpose;
    const NPSetWindowCallbackStruct* info = windowInfo(_window);
    Display* display = expose.display;
    if (!display && info) display = static_cast<Display*>(info->display);
    if (!display || !expose.drawable || expose.width <= 0 || expose.height <= 0) return;
    Visual* visual = info && info->visual ? static_cast<Visual*>(info->visual)
                                          : DefaultVisual(display, DefaultScreen(display));
    const int surfaceWidth =
        std::max<int>(_window ? static_cast<int>(_window->width) : 0, expose.x + expose.width);
    const int surfaceHeight =
        std::max<int>(_window ? static_cast<int>(_window->height) : 0, expose.y + expose.height);

    cairo_surface_t* surface =
        cairo_xlib_surface_create(display, expose.drawable, visual, surfaceWidth, surfaceHeight);
    cairo_t* cr = cairo_create(surface);

    double x = expose.x, y = expose.y, width = expose.width, height = expose.height;
    cairo_rectangle(cr, x, y, width, height);
    cairo_clip(cr);

    cairo_set_source_rgb(cr, kGround, kGround, kGround);
    cairo_paint(cr);

    if (_highlight) {
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_set_line_width(cr, kFrameWidth);
        const double half = kFrameWidth / 2;
        cairo_rectangle(cr, x + half, y + half, width - kFrameWidth, height - kFrameWidth);
        cairo_stroke(cr);
        x += kFrameWidth;
        y += kFrameWidth;
        width -= 2 * kFrameWidth;
        height -= 2 * kFrameWidth;
    }

    if (_image) {
        // Scaled to the (possibly framed) size, but always at the plug-in's
        // top-left corner: with the frame on, the picture covers the frame's
        // top and left sides and leaves ground at the right and bottom.
        const int imageWidth = cairo_image_surface_get_width(_image);
        const int imageHeight = cairo_image_surface_get_height(_image);
        if (width > 0 && height > 0 && imageWidth > 0 && imageHeight > 0) {
            cairo_save(cr);
            cairo_scale(cr, width / imageWidth, height / imageHeight);
            cairo_set_source_surface(cr, _image, 0, 0);
            cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
            cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
            cairo_rectangle(cr, 0, 0, imageWidth, imageHeight);
            cairo_fill(cr);
            cairo_restore(cr);
        }
    } else if (width > 0 && height > 0) {
        cairo_rectangle(cr, x, y, width, height);
        cairo_clip(cr);
        cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cr, kTextSize);
        cairo_text_extents_t extents;
        cairo_text_extents(cr, kProductName.c_str(), &extents);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_move_to(cr, x + (width - extents.width) / 2 - extents.x_bearing,
                      y + (height - extents.height) / 2 - extents.y_bearing);
        cairo_show_text(cr, kProductName.c_str());
    }

    cairo_destroy(cr);
    cairo_surface_flush(surface);
    cairo_surface_destroy(surface);
}

// The drag source belongs to the browser's X server; without one we ask
// the server of our environment.
std::unique_ptr<cvICorvaneWebViewDrag> cvX11CorvaneWebViewImpl::openDrag() {
    const NPSetWindowCallbackStruct* info = windowInfo(_window);
    Display* browserDisplay = info ? static_cast<Display*>(info->display) : nullptr;
    return std::make_unique<X11DragSelection>(browserDisplay ? DisplayString(browserDisplay) : nullptr);
}

}  // namespace Web
}  // namespace Kestrix
