/*
 * NPAPI basic types, structures, selectors and result codes, as the
 * Netscape plug-in interface defines them for Unix (X11) hosts on LP64.
 *
 * Written for this project from the public description of the interface.
 * Only what a Unix plug-in and a test browser need is declared; the
 * macOS- and Windows-only structures are left out, but every selector
 * value is kept so that code negotiating the macOS models still builds
 * and the Unix host can refuse them.
 *
 * Plain C (C11 or C++17). X11 types are not pulled in: pointers to X
 * structures are opaque here, and code that draws includes Xlib itself.
 */
#ifndef CORVANE_NPAPI_H
#define CORVANE_NPAPI_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* ---- Interface version ------------------------------------------------ */

#define NP_VERSION_MAJOR 0
#define NP_VERSION_MINOR 29

/* Minor versions at which table entries and features appeared. */
#define NPVERS_HAS_STREAMOUTPUT 8
#define NPVERS_HAS_NOTIFICATION 9
#define NPVERS_HAS_LIVECONNECT 9
#define NPVERS_68K_HAS_LIVECONNECT 11
#define NPVERS_HAS_WINDOWLESS 11
#define NPVERS_HAS_XPCONNECT_SCRIPTING 13
#define NPVERS_HAS_NPRUNTIME_SCRIPTING 14
#define NPVERS_HAS_FORM_VALUES 15
#define NPVERS_HAS_POPUPS_ENABLED_STATE 16
#define NPVERS_HAS_RESPONSE_HEADERS 17
#define NPVERS_HAS_NPOBJECT_ENUM 18
#define NPVERS_HAS_PLUGIN_THREAD_ASYNC_CALL 19
#define NPVERS_HAS_ALL_NETWORK_STREAMS 20
#define NPVERS_HAS_URL_AND_AUTH_INFO 21
#define NPVERS_HAS_PRIVATE_MODE 22
#define NPVERS_MACOSX_HAS_COCOA_EVENTS 23
#define NPVERS_HAS_ADVANCED_KEY_HANDLING 25
#define NPVERS_HAS_URL_REDIRECT_HANDLING 26
#define NPVERS_HAS_CLEAR_SITE_DATA 27

/* ---- Scalar types ----------------------------------------------------- */

typedef unsigned char NPBool;
typedef int16_t NPError;
typedef int16_t NPReason;
typedef char* NPMIMEType;

/* ---- Result codes ----------------------------------------------------- */

#define NPERR_BASE 0
#define NPERR_NO_ERROR 0
#define NPERR_GENERIC_ERROR 1
#define NPERR_INVALID_INSTANCE_ERROR 2
#define NPERR_INVALID_FUNCTABLE_ERROR 3
#define NPERR_MODULE_LOAD_FAILED_ERROR 4
#define NPERR_OUT_OF_MEMORY_ERROR 5
#define NPERR_INVALID_PLUGIN_ERROR 6
#define NPERR_INVALID_PLUGIN_DIR_ERROR 7
#define NPERR_INCOMPATIBLE_VERSION_ERROR 8
#define NPERR_INVALID_PARAM 9
#define NPERR_INVALID_URL 10
#define NPERR_FILE_NOT_FOUND 11
#define NPERR_NO_DATA 12
#define NPERR_STREAM_NOT_SEEKABLE 13
#define NPERR_TIME_RANGE_NOT_SUPPORTED 14
#define NPERR_MALFORMED_SITE 15

/* Why a stream or URL request ended. */
#define NPRES_BASE 0
#define NPRES_DONE 0
#define NPRES_NETWORK_ERR 1
#define NPRES_USER_BREAK 2

/* NPP_New mode. */
#define NP_EMBED 1
#define NP_FULL 2

/* Stream delivery types chosen in NPP_NewStream. */
#define NP_NORMAL 1
#define NP_SEEK 2
#define NP_ASFILE 3
#define NP_ASFILEONLY 4

/* The largest NPP_WriteReady answer: "send whatever you have". */
#define NP_MAXREADY (((unsigned)(~0) << 1) >> 1)

/* NPP_HandleEvent answers. */
#define kNPEventNotHandled 0
#define kNPEventHandled 1
#define kNPEventStartIME 2

/* NPP_ClearSiteData flags. */
#define NP_CLEAR_ALL 0
#define NP_CLEAR_CACHE (1 << 0)

/* ---- Instance, streams, geometry -------------------------------------- */

/* The instance handle: pdata belongs to the plug-in, ndata to the browser. */
typedef struct _NPP {
    void* pdata;
    void* ndata;
} NPP_t;
typedef NPP_t* NPP;

typedef struct _NPStream {
    void* pdata;
    void* ndata;
    const char* url;
    uint32_t end;          /* length in bytes, 0 when unknown */
    uint32_t lastmodified; /* seconds since the epoch, 0 when unknown */
    void* notifyData;      /* as given to NPN_GetURLNotify */
    const char* headers;   /* HTTP status line and headers, "\n"-separated; may be null */
} NPStream;

typedef struct _NPByteRange {
    int32_t offset; /* a negative offset counts from the end */
    uint32_t length;
    struct _NPByteRange* next;
} NPByteRange;

typedef struct _NPSavedData {
    int32_t len;
    void* buf;
} NPSavedData;

typedef struct _NPRect {
    uint16_t top;
    uint16_t left;
    uint16_t bottom;
    uint16_t right;
} NPRect;

typedef struct _NPSize {
    int32_t width;
    int32_t height;
} NPSize;

typedef enum { NPFocusNext = 0, NPFocusPrevious = 1 } NPFocusDirection;

typedef enum {
    NPCoordinateSpacePlugin = 1,
    NPCoordinateSpaceWindow,
    NPCoordinateSpaceFlippedWindow,
    NPCoordinateSpaceScreen,
    NPCoordinateSpaceFlippedScreen
} NPCoordinateSpace;

typedef enum { NPImageFormatBGRA32 = 0x1, NPImageFormatBGRX32 = 0x2 } NPImageFormat;

/* Only reached through pointers in the browser table; never used here. */
typedef struct _NPAsyncSurface NPAsyncSurface;

/* ---- Windows and drawing ---------------------------------------------- */

typedef enum {
    NPWindowTypeWindow = 1,  /* window is an X window id */
    NPWindowTypeDrawable = 2 /* window is an X drawable (windowless plug-ins) */
} NPWindowType;

typedef struct _NPWindow {
    void* window; /* X window or drawable id, carried in a pointer */
    int32_t x;    /* top-left corner relative to the page */
    int32_t y;
    uint32_t width;
    uint32_t height;
    NPRect clipRect;
    void* ws_info; /* Unix only: NPSetWindowCallbackStruct*, may be null */
    NPWindowType type;
} NPWindow;

/* Unix callback structures: `type` tells which one a pointer holds. */
enum { NP_SETWINDOW = 1, NP_PRINT };

typedef struct {
    int32_t type;
} NPAnyCallbackStruct;

/* What NPWindow.ws_info points at on X11. The X types stay opaque:
 * display is a Display*, visual a Visual*, colormap an X Colormap id. */
typedef struct {
    int32_t type;
    void* display;
    void* visual;
    unsigned long colormap;
    unsigned int depth;
} NPSetWindowCallbackStruct;

typedef struct {
    int32_t type;
    FILE* fp;
} NPPrintCallbackStruct;

typedef struct _NPFullPrint {
    NPBool pluginPrinted; /* set when the plug-in printed the full page itself */
    NPBool printOne;      /* print one copy to the default printer */
    void* platformPrint;
} NPFullPrint;

typedef struct _NPEmbedPrint {
    NPWindow window;
    void* platformPrint;
} NPEmbedPrint;

typedef struct _NPPrint {
    uint16_t mode; /* NP_FULL or NP_EMBED */
    union {
        NPFullPrint fullPrint;
        NPEmbedPrint embedPrint;
    } print;
} NPPrint;

/* On X11 NPP_HandleEvent receives a pointer to an XEvent. The union tag
 * is Xlib's own, so a translation unit that includes Xlib can pass an
 * XEvent* where an NPEvent* is expected without a cast. */
typedef union _XEvent NPEvent;

/* X11 regions and menus are opaque to the interface. */
typedef void* NPRegion;
typedef void* NPMenu;

/* Drawing and event models. On macOS these are negotiated through
 * NPPVpluginDrawingModel/NPPVpluginEventModel; a Unix host refuses them. */
typedef enum {
    NPDrawingModelQuickDraw = 0,
    NPDrawingModelCoreGraphics = 1,
    NPDrawingModelOpenGL = 2,
    NPDrawingModelCoreAnimation = 3,
    NPDrawingModelInvalidatingCoreAnimation = 4,
    NPDrawingModelSyncWin = 5,
    NPDrawingModelSyncX = 6,
    NPDrawingModelAsyncBitmapSurface = 7
} NPDrawingModel;

typedef enum { NPEventModelCarbon = 0, NPEventModelCocoa = 1 } NPEventModel;

/* The Cocoa event model's events. Plain C, so every build can read them. */
typedef enum {
    NPCocoaEventDrawRect = 1,
    NPCocoaEventMouseDown,
    NPCocoaEventMouseUp,
    NPCocoaEventMouseMoved,
    NPCocoaEventMouseEntered,
    NPCocoaEventMouseExited,
    NPCocoaEventMouseDragged,
    NPCocoaEventKeyDown,
    NPCocoaEventKeyUp,
    NPCocoaEventFlagsChanged,
    NPCocoaEventFocusChanged,
    NPCocoaEventWindowFocusChanged,
    NPCocoaEventScrollWheel,
    NPCocoaEventTextInput
} NPCocoaEventType;

typedef struct _NPNSString NPNSString;

typedef struct _NPCocoaEvent {
    NPCocoaEventType type;
    uint32_t version;
    union {
        struct {
            uint32_t modifierFlags;
            double pluginX;
            double pluginY;
            int32_t buttonNumber;
            int32_t clickCount;
            double deltaX;
            double deltaY;
            double deltaZ;
        } mouse;
        struct {
            uint32_t modifierFlags;
            NPNSString* characters;
            NPNSString* charactersIgnoringModifiers;
            NPBool isARepeat;
            uint16_t keyCode;
        } key;
        struct {
            void* context; /* the CGContextRef to paint into */
            double x;
            double y;
            double width;
            double height;
        } draw;
        struct {
            NPBool hasFocus;
        } focus;
        struct {
            NPNSString* text;
        } text;
    } data;
} NPCocoaEvent;

/* ---- Variable selectors ----------------------------------------------- */

/* Selectors that pass C++ interface pointers carry this bit on Unix
 * builds made with GCC 3 or later (their vtable layout changed). */
#define NP_ABI_GCC3_MASK 0x10000000
#define NP_ABI_MASK NP_ABI_GCC3_MASK

/* What the browser may ask of the plug-in (NPP_GetValue / NP_GetValue)
 * and what the plug-in tells the browser (NPN_SetValue). */
typedef enum {
    NPPVpluginNameString = 1,
    NPPVpluginDescriptionString = 2,
    NPPVpluginWindowBool = 3,
    NPPVpluginTransparentBool = 4,
    NPPVjavaClass = 5,
    NPPVpluginWindowSize = 6,
    NPPVpluginTimerInterval = 7,
    NPPVpluginScriptableInstance = (10 | NP_ABI_MASK),
    NPPVpluginScriptableIID = 11,
    NPPVjavascriptPushCallerBool = 12,
    NPPVpluginKeepLibraryInMemory = 13,
    NPPVpluginNeedsXEmbed = 14,
    NPPVpluginScriptableNPObject = 15,
    NPPVformValue = 16,
    NPPVpluginUrlRequestsDisplayedBool = 17,
    NPPVpluginWantsAllNetworkStreams = 18,
    NPPVpluginNativeAccessibleAtkPlugId = 19,
    NPPVpluginCancelSrcStream = 20,
    NPPVsupportsAdvancedKeyHandling = 21,
    NPPVpluginUsesDOMForCursorBool = 22,
    NPPVpluginDrawingModel = 1000,
    NPPVpluginEventModel = 1001,
    NPPVpluginCoreAnimationLayer = 1003,
    NPPVpluginIsPlayingAudio = 4000
} NPPVariable;

/* What the plug-in may ask of the browser (NPN_GetValue). */
typedef enum {
    NPNVxDisplay = 1,
    NPNVxtAppContext = 2,
    NPNVnetscapeWindow = 3,
    NPNVjavascriptEnabledBool = 4,
    NPNVasdEnabledBool = 5,
    NPNVisOfflineBool = 6,
    NPNVserviceManager = (10 | NP_ABI_MASK),
    NPNVDOMElement = (11 | NP_ABI_MASK),
    NPNVDOMWindow = (12 | NP_ABI_MASK),
    NPNVToolkit = (13 | NP_ABI_MASK),
    NPNVSupportsXEmbedBool = 14,
    NPNVWindowNPObject = 15,
    NPNVPluginElementNPObject = 16,
    NPNVSupportsWindowless = 17,
    NPNVprivateModeBool = 18,
    NPNVsupportsAdvancedKeyHandling = 21,
    NPNVdocumentOrigin = 22,
    NPNVCSSZoomFactor = 23,
    NPNVpluginDrawingModel = 1000,
    NPNVcontentsScaleFactor = 1001,
    NPNVsupportsQuickDrawBool = 2000,
    NPNVsupportsCoreGraphicsBool = 2001,
    NPNVsupportsOpenGLBool = 2002,
    NPNVsupportsCoreAnimationBool = 2003,
    NPNVsupportsInvalidatingCoreAnimationBool = 2004,
    NPNVsupportsAsyncBitmapSurfaceBool = 2007,
    NPNVsupportsCarbonBool = 3000,
    NPNVsupportsCocoaBool = 3001,
    NPNVsupportsUpdatedCocoaTextInputBool = 3002,
    NPNVmuteAudioBool = 4000
} NPNVariable;

/* Answer of NPNVToolkit on X11 hosts. */
typedef enum { NPNVGtk12 = 1, NPNVGtk2 = 2 } NPNToolkitType;

/* Selectors of NPN_GetValueForURL / NPN_SetValueForURL. */
typedef enum { NPNURLVCookie = 501, NPNURLVProxy = 502 } NPNURLVariable;

#endif /* CORVANE_NPAPI_H */
