/*
 * Murmex: photographic noise reduction.
 *
 * The one header a host needs. The library measures a camera's noise as a
 * noise profile (a .dnp file or a memory block) from flat patches it finds in
 * an image, and removes noise from 16-bit RGBX images with a filter whose
 * strength follows that profile.
 *
 * Conventions
 * - Functions that return an int return 0 for success and 1 for failure.
 *   On failure the library prints one line to standard output, beginning
 *   "Murmex error: ", "Murmex exception: " or "Murmex unknown error".
 * - Pixels cross the border as packed 16-bit RGBX scanlines (red, green,
 *   blue, x; native byte order; full scale 65535). A scanline request names
 *   row y and the columns xStart..xEnd, both inclusive.
 * - Callbacks may be entered from the library's worker threads (scanline
 *   callbacks) and from the calling thread (progress).
 * - Blocks returned by DnBuildProfile2 and DnReadProfile are released with
 *   DnFreeMemory.
 * - One job at a time: the three tuning values are process-wide.
 */
#ifndef MURMEX_MURMEX_H
#define MURMEX_MURMEX_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(MURMEX_BUILDING_LIBRARY)
#define DN_API __attribute__((visibility("default")))
#else
#define DN_API
#endif

/*
 * Filter parameters, passed by pointer.
 *
 * Layout on a 64-bit system: the profile path is a pointer of 8 bytes at
 * offset 0, followed by seventeen 4-byte fields at offsets 8, 12, ..., 72;
 * the record is 80 bytes with 4 bytes of tail padding. On a 32-bit system
 * every field is 4 bytes and the record is 72 bytes.
 *
 * The settings block (lumStrength .. lowFrequency) is given on the host's
 * scales:
 *   strengths, smoothnesses, contrasts   0 .. 10 .. 20 (10 = the default)
 *   sharpenAmount                        0 .. 200 .. 400
 *   sharpenRadius                        0.4 .. 1.7 .. 3.0
 * Values outside a scale are not clamped: they extrapolate.
 */
typedef struct DnFilterParams {
    const char* profilePath; /* noise-profile file, or NULL */
    int32_t buildProfile;    /* non-zero: measure a profile from the image itself */
    int32_t saveProfile;     /* non-zero: save the profile used to profilePath */
    float lumStrength;
    float lumSmoothness;
    float lumContrast;
    float chromaStrength;
    float chromaSmoothness;
    float chromaContrast;
    float sharpenAmount;
    float sharpenRadius;
    int32_t suppressHalos;   /* boolean */
    int32_t lowFrequency;    /* boolean: also filter the coarsest noise */
    int32_t threads;         /* worker threads; 0 computes on the calling thread */
    int32_t turbo;           /* boolean: faster, slightly coarser */
    int32_t background;      /* boolean: run the workers at lower priority */
    int32_t width;           /* image width in pixels */
    int32_t height;          /* image height in pixels */
} DnFilterParams;

/*
 * The host scales of the settings block, one row per float field: the
 * field's offset in DnFilterParams, its scale (low, middle, high) and a
 * short description. The library converts with these rows; hosts can build
 * their options, help and output from them. The middle of each scale maps
 * onto the setting's default.
 */
typedef struct DnHostScale {
    const char* name;        /* short option-style name, e.g. "lum-strength" */
    size_t offset;           /* offsetof(DnFilterParams, field) */
    float low, middle, high;
    const char* description;
} DnHostScale;

enum { DnHostScaleCount = 8 };

static const DnHostScale DnHostScales[DnHostScaleCount] = {
    {"lum-strength", offsetof(DnFilterParams, lumStrength), 0.0f, 10.0f, 20.0f, "luminance noise reduction strength"},
    {"lum-smoothness", offsetof(DnFilterParams, lumSmoothness), 0.0f, 10.0f, 20.0f, "luminance smoothness"},
    {"lum-contrast", offsetof(DnFilterParams, lumContrast), 0.0f, 10.0f, 20.0f, "luminance contrast"},
    {"chroma-strength", offsetof(DnFilterParams, chromaStrength), 0.0f, 10.0f, 20.0f, "chroma noise reduction strength"},
    {"chroma-smoothness", offsetof(DnFilterParams, chromaSmoothness), 0.0f, 10.0f, 20.0f, "chroma smoothness"},
    {"chroma-contrast", offsetof(DnFilterParams, chromaContrast), 0.0f, 10.0f, 20.0f, "chroma contrast"},
    {"sharpen-amount", offsetof(DnFilterParams, sharpenAmount), 0.0f, 200.0f, 400.0f, "sharpening amount"},
    {"sharpen-radius", offsetof(DnFilterParams, sharpenRadius), 0.4f, 1.7f, 3.0f, "sharpening radius in pixels"},
};

/* The float field of params that row i of DnHostScales describes. */
static inline float* DnHostScaleField(DnFilterParams* params, int i)
{
    return (float*)((char*)params + DnHostScales[i].offset);
}

/*
 * One noise sample of a profile: 28 consecutive 32-bit words, copied bit for
 * bit from the profile. Noise values are per wavelet level, 0 the finest;
 * -1.0 means not measured.
 */
typedef struct DnNoiseSample {
    int32_t left, top, right, bottom; /* patch; right and bottom exclusive */
    float y, cr, cb;                  /* colour as Y, Cr, Cb (0..1, neutral chroma 0.5) */
    float r, g, b;                    /* the same colour as R, G, B (0..1) */
    float labL, labA, labB;           /* the same colour as CIE L*a*b* */
    float noiseY[5];
    float noiseCr[5];
    float noiseCb[5];
} DnNoiseSample;

/* Reads (get) or receives (put) row y, columns xStart..xEnd inclusive, as
 * packed RGBX pixels. The put callback must not write to the pixels. */
typedef void (*DnGetScanlineCallback)(void* hostContext, int y, int xStart, int xEnd, unsigned short* pixels);
typedef void (*DnPutScanlineCallback)(void* hostContext, int y, int xStart, int xEnd, unsigned short* pixels);

/* Progress: the step text and the fraction done. A non-zero answer cancels
 * the job (not an error: the job still returns 0). May be NULL. */
typedef int (*DnProgressCallback)(void* hostContext, const char* stepText, float fraction);

/* One call per sample, index 0 .. count - 1; the record is valid only
 * during the call. The answer is ignored. */
typedef int (*DnSampleCallback)(void* hostContext, int count, int index, const DnNoiseSample* sample);

/* Denoises the rectangle left..right-1, top..bottom-1 of the host image in
 * place. The profile comes from, first that applies: profileData (when
 * profileLength > 0), the file params->profilePath (when buildProfile is 0),
 * or a measurement of the image itself. */
DN_API int DnRemoveNoise(void* hostContext, DnFilterParams* params, int left, int top, int right, int bottom,
                         DnGetScanlineCallback getCallback, DnPutScanlineCallback putCallback,
                         DnProgressCallback statusCallback);
DN_API int DnRemoveNoise2(void* hostContext, DnFilterParams* params, int left, int top, int right, int bottom,
                          const unsigned char* profileData, int profileLength,
                          DnGetScanlineCallback getCallback, DnPutScanlineCallback putCallback,
                          DnProgressCallback statusCallback);

/* Measures a noise profile from the whole image and saves it at path
 * (DnBuildProfile) or into a new block (DnBuildProfile2). A flag above 0
 * relaxes the search for flat patches. */
DN_API int DnBuildProfile(void* hostContext, const char* path, DnGetScanlineCallback getCallback, int width,
                          int height, int flag, DnProgressCallback statusCallback);
DN_API int DnBuildProfile2(void* hostContext, unsigned char** outData, int* outLength,
                           DnGetScanlineCallback getCallback, int width, int height, int flag,
                           DnProgressCallback statusCallback);

/* Loads the profile file at path, hands back its serialised form as a new
 * block and writes its stored settings into the settings block of
 * outParams (the other fields are left untouched). */
DN_API int DnReadProfile(const char* path, unsigned char** outData, int* outLength, DnFilterParams* outParams);

/* Loads a profile from the block, replaces its stored settings with the
 * settings block of params and saves it as a file at path. */
DN_API int DnWriteProfile(const char* path, const unsigned char* data, int length, DnFilterParams* params);

/* Loads a profile (from the file, or from the block when length > 0) and
 * calls sampleCallback once for each of its samples. */
DN_API int DnReadProfileSamples(void* hostContext, const char* path, DnSampleCallback sampleCallback);
DN_API int DnReadProfileSamples2(void* hostContext, const unsigned char* data, int length,
                                 DnSampleCallback sampleCallback);

/* Releases a block from DnBuildProfile2 or DnReadProfile; NULL is ignored. */
DN_API void DnFreeMemory(void* block);

/* Process-wide tuning. Strip width in pixels (default 3400); rows per worker
 * request (-1: automatic); wavelet levels 2..5 (-1: automatic; any other
 * value is refused with 1). */
DN_API int DnSetStripWidth(int pixels);
DN_API int DnSetRowsPerThread(int rows);
DN_API int DnSetDenoiseLevels(int levels);

#ifdef __cplusplus
}
#endif

#endif /* MURMEX_MURMEX_H */
