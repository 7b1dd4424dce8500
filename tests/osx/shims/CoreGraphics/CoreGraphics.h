// The part of CoreGraphics the plug-in uses, declared for the GNUstep
// check build only (GNUstep has no CoreGraphics). Never shipped.
#pragma once

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef double CGFloat;
typedef struct CGPoint {
    CGFloat x;
    CGFloat y;
} CGPoint;
typedef struct CGSize {
    CGFloat width;
    CGFloat height;
} CGSize;
typedef struct CGRect {
    CGPoint origin;
    CGSize size;
} CGRect;

typedef struct CGContext* CGContextRef;
typedef struct CGImage* CGImageRef;
typedef struct CGDataProvider* CGDataProviderRef;
typedef void (*CGDataProviderReleaseDataCallback)(void* info, const void* data, size_t size);
typedef enum CGColorRenderingIntent { kCGRenderingIntentDefault = 0 } CGColorRenderingIntent;

static inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
    CGRect rect = {{x, y}, {width, height}};
    return rect;
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

#ifdef __cplusplus
}
#endif
