#import "cvMacCorvaneWebViewImpl.h"

#import <AppKit/AppKit.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "BrowserFuncs.h"
#include "CocoaEventAction.h"
#include "Messages.h"
#include "PlugIn.h"
#include "Utils.h"
#include "cvICorvaneWebViewDelegate.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const CGFloat kFrameWidth = 5.0;
const NSTextAlignment kCentred = static_cast<NSTextAlignment>(2);

}  // namespace

cvMacCorvaneWebViewImpl::~cvMacCorvaneWebViewImpl() {
    _delegate = nullptr;
    if (_image) CGImageRelease(_image);
    if (_dataProvider) CGDataProviderRelease(_dataProvider);
    free(_imageBytes);
}

bool cvMacCorvaneWebViewImpl::init(NPWindow* window, NPP npp, bool, bool dropAllowDirectories,
                                   bool dropAllowMultiple) {
    _window = window;
    _npp = npp;
    _allowDirectories = dropAllowDirectories;
    _allowMultiple = dropAllowMultiple;
    cv_log("cvMacCorvaneWebViewImpl::initialized");
    return true;
}

void cvMacCorvaneWebViewImpl::setDelegate(cvICorvaneWebViewDelegate* delegate) {
    cv_log("setDelegate: %p", static_cast<void*>(delegate));
    _delegate = delegate;
}

int16_t cvMacCorvaneWebViewImpl::handleEvent(void* event) {
    if (!event) return 0;
    const NPCocoaEvent& cocoaEvent = *static_cast<const NPCocoaEvent*>(event);
    const CocoaEventAction action = cocoaEventAction(cocoaEvent);
    switch (action.kind) {
        case CocoaEventAction::kPaint:
            paint(cocoaEvent);
            break;
        case CocoaEventAction::kHighlight:
            handleMouseEvent();
            break;
        case CocoaEventAction::kFocus:
            _highlight = action.hasFocus;
            invalidate();
            break;
        case CocoaEventAction::kConsume:
            handleKeyboardEvent();
            break;
        case CocoaEventAction::kNotHandled:
            break;
    }
    return action.handled();
}

void cvMacCorvaneWebViewImpl::handleMouseEvent() {
    _highlight = true;
    invalidate();
}

// The rectangle's bottom and right are the window's size, not its far
// edges, as browsers have always been sent.
void cvMacCorvaneWebViewImpl::invalidate() {
    if (!_window) return;
    NPRect rect;
    rect.top = static_cast<uint16_t>(_window->y);
    rect.left = static_cast<uint16_t>(_window->x);
    rect.bottom = static_cast<uint16_t>(_window->height);
    rect.right = static_cast<uint16_t>(_window->width);
    NPN_InvalidateRect(_npp, &rect);
}

void cvMacCorvaneWebViewImpl::paint(const NPCocoaEvent& event) {
    NSGraphicsContext* kept = [[NSGraphicsContext currentContext] retain];
    NSGraphicsContext* context = [NSGraphicsContext graphicsContextWithGraphicsPort:event.data.draw.context
                                                                            flipped:YES];
    [NSGraphicsContext setCurrentContext:context];

    NSRect rect =
        NSMakeRect(event.data.draw.x, event.data.draw.y, event.data.draw.width, event.data.draw.height);
    [[NSColor lightGrayColor] set];
    [NSBezierPath fillRect:rect];

    if (_highlight) {
        [[NSColor blackColor] set];
        NSBezierPath* frame = [NSBezierPath bezierPathWithRect:rect];
        [frame setLineWidth:kFrameWidth];
        [frame stroke];
        rect = NSMakeRect(rect.origin.x + kFrameWidth, rect.origin.y + kFrameWidth,
                          rect.size.width - 2 * kFrameWidth, rect.size.height - 2 * kFrameWidth);
    }

    if (_image) {
        // Flipped back for CoreGraphics; the picture stays at the origin
        // even when the frame shrank the rectangle.
        CGContextRef cg = static_cast<CGContextRef>(event.data.draw.context);
        CGContextTranslateCTM(cg, 0, rect.size.height);
        CGContextScaleCTM(cg, 1, -1);
        CGContextDrawImage(cg, CGRectMake(0, 0, rect.size.width, rect.size.height), _image);
    } else {
        NSMutableParagraphStyle* style = [[NSMutableParagraphStyle alloc] init];
        [style setAlignment:kCentred];
        NSDictionary* attributes = [NSDictionary dictionaryWithObject:style
                                                               forKey:NSParagraphStyleAttributeName];
        [[NSString stringWithUTF8String:kProductName.c_str()] drawInRect:rect withAttributes:attributes];
        [style release];
    }

    [NSGraphicsContext setCurrentContext:kept];
    [kept release];
}

void cvMacCorvaneWebViewImpl::setImage(const char* data, unsigned int length) {
    char* bytes = static_cast<char*>(malloc(static_cast<size_t>(length) + 1));
    if (!bytes) return;
    if (length) memcpy(bytes, data, length);
    CGDataProviderRef provider = CGDataProviderCreateWithData(nullptr, bytes, length, nullptr);
    CGImageRef image = CGImageCreateWithJPEGDataProvider(provider, nullptr, true, kCGRenderingIntentDefault);
    // The earlier picture goes once the new one has its own bytes.
    if (_image) CGImageRelease(_image);
    if (_dataProvider) CGDataProviderRelease(_dataProvider);
    free(_imageBytes);
    _imageBytes = bytes;
    _dataProvider = provider;
    _image = image;
    if (!image) {
        cv_err("ERROR: Failure to create Core Graphics image.");
        return;
    }
    invalidate();
}

std::vector<std::string> cvMacCorvaneWebViewImpl::draggedPaths() const {
    std::vector<std::string> paths;
    NSPasteboard* pasteboard = [NSPasteboard pasteboardWithName:NSDragPboard];
    NSArray* types = [pasteboard types];
    if ([types containsObject:NSFilenamesPboardType]) {
        NSArray* names = [pasteboard propertyListForType:NSFilenamesPboardType];
        NSFileManager* files = [NSFileManager defaultManager];
        for (NSUInteger i = 0; i < [names count]; ++i) {
            NSString* name = [names objectAtIndex:i];
            BOOL isDirectory = NO;
            // Paths that do not exist pass as files: the page's request
            // fails on them later.
            if ([files fileExistsAtPath:name isDirectory:&isDirectory] && isDirectory && !_allowDirectories)
                continue;
            paths.push_back([name UTF8String]);
        }
    } else if ([types containsObject:NSStringPboardType]) {
        NSString* text = [pasteboard stringForType:NSStringPboardType];
        paths.push_back(text ? [text UTF8String] : "");
    }
    return paths;
}

// The page-side steps below (the page's names, the cross-check, approval
// and the delegate calls) are the same as the X11 view's; they belong in
// the neutral view, where both can share them.
void cvMacCorvaneWebViewImpl::handleDrop(const NPVariant* files) {
    std::vector<std::string> pageNames;
    if (!readPageFiles(files, &pageNames)) return;

    NSPasteboard* pasteboard = [NSPasteboard pasteboardWithName:NSDragPboard];
    const std::vector<std::string> dropped = draggedPaths();
    if (dropped.empty() || !_delegate) {
        [pasteboard clearContents];
        return;
    }

    const std::string json = Utils::createExtendedObject(dropped);
    if (!pageNames.empty() && pageNames.size() == dropped.size() && !sameNames(pageNames, dropped)) {
        cv_dbg("handleDrop(): Mac -> File(s) dropped and file(s) in the clipboard don't match");
        return;
    }

    PlugIn::addToApprovedFileList(dropped);
    _delegate->doDrop(dropped);
    _delegate->doDropex(json);
    [pasteboard clearContents];
}

bool cvMacCorvaneWebViewImpl::readPageFiles(const NPVariant* files, std::vector<std::string>* names) {
    if (!files || !NPVARIANT_IS_OBJECT(*files)) {
        cv_dbg("handleDrop(): Mac -> No list of files provided");
        return true;
    }
    cv_dbg("handleDrop(): Mac -> files provided");
    NPObject* list = NPVARIANT_TO_OBJECT(*files);

    NPVariant lengthValue;
    VOID_TO_NPVARIANT(lengthValue);
    NPN_GetProperty(_npp, list, NPN_GetStringIdentifier("length"), &lengthValue);
    int32_t length = 0;
    if (NPVARIANT_IS_INT32(lengthValue)) {
        length = NPVARIANT_TO_INT32(lengthValue);
    } else if (NPVARIANT_IS_DOUBLE(lengthValue)) {
        length = static_cast<int32_t>(NPVARIANT_TO_DOUBLE(lengthValue));
    } else {
        cv_dbg("length property is not of expetected type");
    }
    NPN_ReleaseVariantValue(&lengthValue);

    for (int32_t i = 0; i < length; ++i) {
        NPVariant item;
        VOID_TO_NPVARIANT(item);
        NPN_GetProperty(_npp, list, NPN_GetIntIdentifier(i), &item);
        const char* text = NPVARIANT_IS_STRING(item) ? NPVARIANT_TO_STRING(item).UTF8Characters : nullptr;
        const uint32_t size = text ? NPVARIANT_TO_STRING(item).UTF8Length : 0;
        // Copied in browser memory: a browser out of it abandons the drop.
        char* copy = static_cast<char*>(NPN_MemAlloc(size + 1));
        if (!copy) {
            NPN_ReleaseVariantValue(&item);
            return false;
        }
        if (size) memcpy(copy, text, size);
        copy[size] = '\0';
        names->emplace_back(copy, size);
        NPN_MemFree(copy);
        NPN_ReleaseVariantValue(&item);
    }
    return true;
}

// The page knows only the names: compare them with the last part of each
// dropped path, in any order.
bool cvMacCorvaneWebViewImpl::sameNames(std::vector<std::string> pageNames,
                                        const std::vector<std::string>& dropped) {
    std::vector<std::string> droppedNames;
    droppedNames.reserve(dropped.size());
    for (const std::string& path : dropped) {
        const size_t slash = path.find_last_of("/\\");
        droppedNames.push_back(slash == std::string::npos ? path : path.substr(slash + 1));
    }
    std::sort(pageNames.begin(), pageNames.end());
    std::sort(droppedNames.begin(), droppedNames.end());
    return pageNames == droppedNames;
}

}  // namespace Web
}  // namespace Kestrix
