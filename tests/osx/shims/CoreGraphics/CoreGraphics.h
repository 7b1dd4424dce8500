// The part of CoreGraphics the plug-in uses, declared for the GNUstep
// check build only (GNUstep has no CoreGraphics). Never shipped.
#pragma once

#include <stddef.h>

extern "C" {
typedef double CGFloat;
typedef struct CGRect {
    struct {
        CGFloat x, y;
    } origin;
    struct {
        CGFloat width, height;
    } size;
} CGRect;
typedef struct CGContext* CGContextRef;
typedef struct CGImage* CGImageRef;
typedef struct CGDataProvider* CGDataProviderRef;
typedef void (*CGDataProviderReleaseDataCallback)(void* info, const void* data, size_t size);
enum CGColorRenderingIntent { kCGRenderingIntentDefault = 0 };

inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
    return {{x, y}, {width, height}};
}

CGDataProviderRef CGDataProviderCreateWithData(void* info, const void* data, size_t size,
                                               CGDataProviderReleaseDataCallback releaseData);
void CGDataProviderRelease(CGDataProviderRef provider);
CGImageRef CGImageCreateWithJPEGDataProvider(CGDataProviderRef source, const CGFloat* decode,
                                             bool shouldInterpolate, CGColorRenderingIntent intent);
void CGImageRelease(CGImageRef image);
void CGContextTranslateCTM(CGContextRef context, CGFloat tx, CGFloat ty);
void CGContextScaleCTM(CGContextRef context, CGFloat sx, CGFloat sy);
void CGContextDrawImage(CGContextRef context, CGRect rect, CGImageRef image);
}
