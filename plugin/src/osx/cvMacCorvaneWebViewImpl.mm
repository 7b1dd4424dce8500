#import "cvMacCorvaneWebViewImpl.h"

#import <AppKit/AppKit.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "CocoaEventAction.h"
#include "Messages.h"
#include "cvICorvaneWebViewBrowser.h"
#include "cvICorvaneWebViewDrag.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const CGFloat kFrameWidth = 5.0;
const NSTextAlignment kCentred = static_cast<NSTextAlignment>(2);

// The drag pasteboard, kept for as long as the drop that opened it.
class MacDragPasteboard : public cvICorvaneWebViewDrag {
public:
    MacDragPasteboard() : _pasteboard([[NSPasteboard pasteboardWithName:NSDragPboard] retain]) {}
    ~MacDragPasteboard() override { [_pasteboard release]; }
    MacDragPasteboard(const MacDragPasteboard&) = delete;
    MacDragPasteboard& operator=(const MacDragPasteboard&) = delete;

    std::vector<std::string> items(bool allowDirectories) override {
        std::vector<std::string> paths;
        NSArray* types = [_pasteboard types];
        if ([types containsObject:NSFilenamesPboardType]) {
            NSArray* names = [_pasteboard propertyListForType:NSFilenamesPboardType];
            NSFileManager* files = [NSFileManager defaultManager];
            for (NSUInteger i = 0; i < [names count]; ++i) {
                NSString* name = [names objectAtIndex:i];
                BOOL isDirectory = NO;
                // Paths that do not exist pass as files: the page's request
                // fails on them later.
                if ([files fileExistsAtPath:name isDirectory:&isDirectory] && isDirectory &&
                    !allowDirectories)
                    continue;
                paths.push_back([name UTF8String]);
            }
        } else if ([types containsObject:NSStringPboardType]) {
            NSString* text = [_pasteboard stringForType:NSStringPboardType];
            paths.push_back(text ? [text UTF8String] : "");
        }
        return paths;
    }

    void clear() override { [_pasteboard clearContents]; }

private:
    NSPasteboard* _pasteboard;
};

}  // namespace

cvMacCorvaneWebViewImpl::~cvMacCorvaneWebViewImpl() {
    if (_image) CGImageRelease(_image);
    if (_dataProvider) CGDataProviderRelease(_dataProvider);
    free(_imageBytes);
}

bool cvMacCorvaneWebViewImpl::init(NPWindow* window, cvICorvaneWebViewBrowser* browser, bool) {
    _window = window;
    _browser = browser;
    cv_log("cvMacCorvaneWebViewImpl::initialized");
    return true;
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

void cvMacCorvaneWebViewImpl::invalidate() {
    if (_window && _browser) _browser->invalidateWindow(*_window);
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

std::unique_ptr<cvICorvaneWebViewDrag> cvMacCorvaneWebViewImpl::openDrag() {
    return std::make_unique<MacDragPasteboard>();
}

}  // namespace Web
}  // namespace Kestrix
