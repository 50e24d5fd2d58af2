// Stand-ins for the short global names that a macOS build puts in scope before
// any plug-in code: the vendor headers pull in CoreFoundation, and with it the
// classic Mac type header (and, through Carbon, QuickDraw's few survivors).
//
// Every plug-in source is compiled once with this header forced in front of it
// (see CMakeLists.txt next to it). A plug-in name that would collide on macOS
// then fails here too: a file-scope struct, typedef, function or variable of
// the same name is a redefinition, and one in an anonymous namespace makes each
// unqualified use ambiguous. Names inside functions or named namespaces are
// fine, as they are on macOS.
//
// The list and the underlying types are this project's own, chosen from the
// names' documented meaning; only the names and kinds matter for the check.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Integer and floating-point widths.
typedef unsigned char UInt8;
typedef signed char SInt8;
typedef unsigned short UInt16;
typedef signed short SInt16;
typedef unsigned int UInt32;
typedef signed int SInt32;
typedef unsigned long long UInt64;
typedef signed long long SInt64;
typedef float Float32;
typedef double Float64;
typedef UInt8 Byte;
typedef SInt8 SignedByte;
typedef unsigned char Boolean;

// Fixed-point numbers.
typedef SInt32 Fixed;
typedef SInt32 Fract;
typedef short ShortFixed;
typedef Fixed* FixedPtr;
typedef Fract* FractPtr;

// Memory.
typedef char* Ptr;
typedef Ptr* Handle;
typedef long Size;
typedef long (*ProcPtr)(void);
typedef ProcPtr* ProcHandle;
typedef void* LogicalAddress;
typedef unsigned long ByteCount;
typedef unsigned long ByteOffset;
typedef unsigned long ItemCount;
typedef UInt32 OptionBits;

// Results and codes.
typedef SInt16 OSErr;
typedef SInt32 OSStatus;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef FourCharCode ResType;
typedef SInt16 ScriptCode;
typedef SInt16 LangCode;
typedef SInt16 RegionCode;
typedef SInt32 Duration;

// Text.
typedef UInt16 UniChar;
typedef unsigned long UniCharCount;
typedef UInt32 UTF32Char;
typedef UInt16 UTF16Char;
typedef UInt8 UTF8Char;
typedef unsigned char Str255[256];
typedef unsigned char Str63[64];
typedef unsigned char Str32[33];
typedef unsigned char Str31[32];
typedef unsigned char Str27[28];
typedef unsigned char Str15[16];
typedef unsigned char* StringPtr;
typedef StringPtr* StringHandle;
typedef const unsigned char* ConstStringPtr;
typedef const unsigned char* ConstStr255Param;
typedef unsigned char Style;
typedef short StyleParameter;
typedef Style StyleField;
typedef long CharParameter;

// Geometry and colour.
struct Point {
  short v;
  short h;
};
typedef struct Point Point;
typedef Point* PointPtr;
struct Rect {
  short top;
  short left;
  short bottom;
  short right;
};
typedef struct Rect Rect;
typedef Rect* RectPtr;
struct FixedPoint {
  Fixed x;
  Fixed y;
};
typedef struct FixedPoint FixedPoint;
struct FixedRect {
  Fixed left;
  Fixed top;
  Fixed right;
  Fixed bottom;
};
typedef struct FixedRect FixedRect;
struct RGBColor {
  unsigned short red;
  unsigned short green;
  unsigned short blue;
};
typedef struct RGBColor RGBColor;
struct Pattern {
  UInt8 pat[8];
};
typedef struct Pattern Pattern;
struct Cursor {
  UInt16 data[16];
  UInt16 mask[16];
  Point hotSpot;
};
typedef struct Cursor Cursor;
typedef struct OpaqueRgnHandle* RgnHandle;
typedef struct OpaqueGrafPtr* GrafPtr;
typedef struct OpaqueWindowPtr* WindowRef;
typedef struct OpaqueWindowPtr* WindowPtr;

// Wide integers and time stamps.
struct wide {
  UInt32 lo;
  SInt32 hi;
};
typedef struct wide wide;
struct UnsignedWide {
  UInt32 lo;
  UInt32 hi;
};
typedef struct UnsignedWide UnsignedWide;
typedef UnsignedWide AbsoluteTime;
typedef UnsignedWide Nanoseconds;

// Files, resources and Apple events.
typedef SInt16 ResID;
typedef SInt16 ResAttributes;
typedef FourCharCode DescType;
typedef UInt32 TextEncoding;
struct FSRef {
  UInt8 hidden[80];
};
typedef struct FSRef FSRef;
struct FSSpec {
  UInt8 hidden[70];
};
typedef struct FSSpec FSSpec;
struct AEDesc {
  DescType descriptorType;
  void* dataHandle;
};
typedef struct AEDesc AEDesc;
typedef struct ComponentRecord* Component;
typedef struct ComponentInstanceRecord* ComponentInstance;

// Versions and time.
struct NumVersion {
  UInt8 nonRelRev;
  UInt8 stage;
  UInt8 minorAndBugRev;
  UInt8 majorRev;
};
typedef struct NumVersion NumVersion;
typedef SInt32 TimeValue;
typedef SInt32 TimeScale;

// Enumerators that share the global scope with all of the above: the text
// styles and the common result and option constants.
enum {
  normal = 0,
  bold = 1,
  italic = 2,
  underline = 4,
  outline = 8,
  shadow = 0x10,
  condense = 0x20,
  extend = 0x40
};
enum { noErr = 0 };
enum { kNilOptions = 0 };
enum { kVariableLengthArray = 1 };
enum { kUnknownType = 0x3F3F3F3F };

#ifdef __cplusplus
}
#endif
