/* Tintra3: the exported C interface of the colour-matching library.
 *
 * Four layers, each calling only the one below it:
 *   1. top level   tintra, tintra_Init, tintra_Proc, tintra_Free
 *   2. toolbox     QemToolbox*, SetDirectoryName
 *   3. matcher     InitCColorMatcher ... Merge1DLut (a CColorMatcher record)
 *   4. selector    Initialize, TermMatchingSelector, LocateProfile,
 *                  CMatching1, CMatching2
 * Every failure is reported as a numeric status code (0 = success; the
 * TINTRA_STATUS_ constants below, listed with their meanings in
 * status_table.h).
 *
 * Threads: the library keeps no global state. Separate handles share
 * nothing and may be used on different threads at once; one handle must not
 * be used from two threads at the same time, except that pixel blocks may be
 * converted through one built selector from several threads at once (only
 * the matcher's progress counter is then unreliable).
 *
 * This header is valid C99 and C++. */
#ifndef TINTRA3_EXPORTS_H
#define TINTRA3_EXPORTS_H

#include <stdint.h>

#include "status_table.h"

#if defined(_WIN32)
#  if defined(TINTRA3_BUILDING_DLL)
#    define TINTRA3_API __declspec(dllexport)
#  elif defined(TINTRA3_STATIC)
#    define TINTRA3_API
#  else
#    define TINTRA3_API __declspec(dllimport)
#  endif
#  define TINTRA3_CALL __cdecl
#else
#  define TINTRA3_API __attribute__((visibility("default")))
#  define TINTRA3_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A table: element count, owned flag, elements (u8, u16 or u32 as the
 * allocating code knows). Tone curves are handed down as four of these,
 * each holding unsigned 16-bit entries. */
typedef struct ValueBuffer {
    uint32_t count;
    uint32_t owned;
    void* data;
} ValueBuffer;

/* Image description of a matcher (six 32-bit words). */
typedef struct ImageParams {
    uint32_t width;                 /* pixels per line */
    uint32_t lines;                 /* image lines (progress only) */
    uint32_t bufferSize;            /* bytes in the source buffer of one PixelRun */
    uint32_t destinationBufferSize; /* bytes in the destination buffer (not examined) */
    uint16_t bitsIn;                /* 8, 10, 12 or 16 */
    uint16_t bitsOut;               /* 8 or 16 */
    uint16_t layout;                /* 0 interleaved, 1 frame-planar, 2 line-planar */
    uint16_t reserved;
} ImageParams;

/* The two profile paths (131 32-bit words). */
typedef struct ProfileNames {
    char sourceProfile[256];
    char destinationProfile[256];
    uint32_t reserved1;
    uint32_t reserved2;
    uint16_t reserved3;
    uint16_t reserved4;
} ProfileNames;

/* Matching parameters; the same layout as MatchingSelector. */
typedef struct MatchingParams {
    uint16_t intent;          /* 0..3 as callers number it */
    uint16_t method;          /* 0: 8-bit precision, 1: 16-bit precision */
    void* transform;          /* always null when handed in */
    uint32_t destinationMode; /* non-zero: printer-class gamut destination */
} MatchingParams;

typedef struct MatchingSelector {
    uint16_t intent;
    uint16_t method;
    void* transform; /* the built transform record, owned by the selector */
    uint32_t destinationMode;
} MatchingSelector;

/* The matcher object; a toolbox handle is the address of one. */
typedef struct CColorMatcher {
    uint32_t lastError;
    ImageParams image;
    ProfileNames names;
    MatchingSelector selector;
    uint32_t progressTotal;
    uint32_t progressDone;
} CColorMatcher;

/* A block of lines: first sample (bytes for 8-bit samples, native-order
 * 16-bit words otherwise) and the number of lines. */
typedef struct PixelRun {
    void* data;
    uint16_t lines;
} PixelRun;

/* Tone curves for QemToolboxChange1DLUT / QemToolboxMerge1DLUT. */
typedef struct CurveSpec {
    uint16_t channels; /* at most 4 */
    uint16_t bits;     /* 10 -> max 1023, 12 -> 4095, 16 -> 65535, else 255 */
    uint32_t kind;     /* 0 identity, 1 gamma (data[c][0] = 8.8 gamma), n >= 2 table */
    const uint16_t* data[4];
} CurveSpec;

/* Registered folder names: printer, monitor and scanner profiles. */
typedef struct DirectoryTable {
    char printer[255];
    char monitor[255];
    char scanner[255];
} DirectoryTable;

/* Status codes (status_table.h lists their meanings and who reports them). */
#define TINTRA3_STATUS_ENUMERATOR(name, code, topLevel, layer, meaning) TINTRA_STATUS_##name = code,
enum { TINTRA3_STATUS_TABLE(TINTRA3_STATUS_ENUMERATOR) };
#undef TINTRA3_STATUS_ENUMERATOR

/* Sample layouts. */
enum { TINTRA_INTERLEAVED = 0, TINTRA_FRAME_PLANAR = 1, TINTRA_LINE_PLANAR = 2 };

/* ---- top level ---------------------------------------------------------- */
/* Converts 8-bit three-sample pixels; the first variable argument is a
 * DirectoryTable* naming the registered profile folders. */
TINTRA3_API uint32_t TINTRA3_CALL tintra(const uint8_t* source, uint32_t pixels, uint8_t* destination,
                                         const char* sourceProfile, const char* destinationProfile,
                                         int32_t intent, int32_t methodChoice, ...);
TINTRA3_API uint32_t TINTRA3_CALL tintra_Init(const char* sourceProfile, const char* destinationProfile,
                                              int32_t intent, int32_t methodChoice,
                                              CColorMatcher** handle, const DirectoryTable* directories);
TINTRA3_API uint32_t TINTRA3_CALL tintra_Proc(const uint8_t* source, uint8_t* destination, uint32_t pixels,
                                              CColorMatcher* handle);
TINTRA3_API void TINTRA3_CALL tintra_Free(CColorMatcher* handle);

/* ---- toolbox ------------------------------------------------------------ */
/* profileNames: two 256-byte NUL-terminated paths back to back. */
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxInit(const ImageParams* image, const char* profileNames,
                                                 uint16_t method, int32_t intent, CColorMatcher** handle);
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxProc(const PixelRun* source, const PixelRun* destination,
                                                 CColorMatcher* handle);
TINTRA3_API void TINTRA3_CALL QemToolboxPostProc(CColorMatcher* handle);
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxResetMatchingParam(const ImageParams* image, const char* profileNames,
                                                               uint16_t method, uint16_t intent,
                                                               CColorMatcher* handle);
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxResetProfiles(const char* sourceProfile,
                                                          const char* destinationProfile, CColorMatcher* handle);
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxChangeImageWidth(int32_t width, CColorMatcher* handle);
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxChangeImageLines(int32_t lines, CColorMatcher* handle);
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxChangeBufSize(int32_t size, uint16_t unit, CColorMatcher* handle);
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxChange1DLUT(const CurveSpec* curves, uint16_t side,
                                                        CColorMatcher* handle);
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxMerge1DLUT(const CurveSpec* curves, uint16_t side,
                                                       CColorMatcher* handle);
/* path: in and out, at least 256 bytes. Returns 1 on success. */
TINTRA3_API uint32_t TINTRA3_CALL QemToolboxLocateProfile(const char* fileName, char* path);
TINTRA3_API void TINTRA3_CALL SetDirectoryName(const char* printer, const char* monitor, const char* scanner,
                                               DirectoryTable* table);

/* ---- matcher object ----------------------------------------------------- */
TINTRA3_API void TINTRA3_CALL InitCColorMatcher(CColorMatcher* matcher, const MatchingParams* params,
                                                const ImageParams* image, const ProfileNames* names);
TINTRA3_API uint32_t TINTRA3_CALL ReinitCColorMatcher(CColorMatcher* matcher, const ProfileNames* names);
TINTRA3_API void TINTRA3_CALL TermCColorMatcher(CColorMatcher* matcher);
TINTRA3_API uint32_t TINTRA3_CALL ColorMatchingProc1(CColorMatcher* matcher, const PixelRun* run);
TINTRA3_API uint32_t TINTRA3_CALL ColorMatchingProc2(CColorMatcher* matcher, const PixelRun* source,
                                                     const PixelRun* destination);
TINTRA3_API uint32_t TINTRA3_CALL GetProgress(const CColorMatcher* matcher);
TINTRA3_API uint32_t TINTRA3_CALL CMGetError(const CColorMatcher* matcher);
TINTRA3_API uint32_t TINTRA3_CALL ChangeImageLines(CColorMatcher* matcher, uint32_t lines);
TINTRA3_API uint32_t TINTRA3_CALL ChangeImageWidth(CColorMatcher* matcher, uint32_t width);
TINTRA3_API uint32_t TINTRA3_CALL ChangeBufSize(CColorMatcher* matcher, uint32_t size);
/* curves: four buffers of u16 entries; rescaled in place. */
TINTRA3_API uint32_t TINTRA3_CALL Change1DLut(CColorMatcher* matcher, uint16_t side, uint16_t bits,
                                              uint16_t channels, ValueBuffer* curves);
TINTRA3_API uint32_t TINTRA3_CALL Merge1DLut(CColorMatcher* matcher, uint16_t side, uint16_t bits,
                                             uint16_t channels, ValueBuffer* curves);

/* ---- matching selector and pixel-run dispatch --------------------------- */
TINTRA3_API uint32_t TINTRA3_CALL Initialize(MatchingSelector* selector, const char* sourceProfile,
                                             const char* destinationProfile);
TINTRA3_API void TINTRA3_CALL TermMatchingSelector(MatchingSelector* selector);
/* out: at least 256 bytes. Returns 1. */
TINTRA3_API uint32_t TINTRA3_CALL LocateProfile(const char* fileName, char* out);
TINTRA3_API uint32_t TINTRA3_CALL CMatching1(MatchingSelector* selector, const PixelRun* run, uint32_t width,
                                             uint32_t bufferSize, uint16_t bitsIn, uint16_t bitsOut,
                                             uint16_t layout);
TINTRA3_API uint32_t TINTRA3_CALL CMatching2(MatchingSelector* selector, const PixelRun* source,
                                             const PixelRun* destination, uint32_t width, uint32_t bufferSize,
                                             uint32_t destinationBufferSize, uint16_t bitsIn, uint16_t bitsOut,
                                             uint16_t layout);

#ifdef __cplusplus
}
#endif

#endif /* TINTRA3_EXPORTS_H */
