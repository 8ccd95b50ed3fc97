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

/* Layout checks: the records cross the border by address, so their layout
 * is part of the interface. */
#if defined(__cplusplus)
#define DN_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define DN_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif
#ifdef DN_STATIC_ASSERT
DN_STATIC_ASSERT(sizeof(float) == 4 && sizeof(int32_t) == 4, "4-byte fields");
DN_STATIC_ASSERT(offsetof(DnFilterParams, profilePath) == 0, "DnFilterParams: path first");
DN_STATIC_ASSERT(offsetof(DnFilterParams, buildProfile) == sizeof(const char*), "DnFilterParams: no gap after the path");
DN_STATIC_ASSERT(offsetof(DnFilterParams, lumStrength) == sizeof(const char*) + 8, "DnFilterParams: settings block");
DN_STATIC_ASSERT(offsetof(DnFilterParams, sharpenRadius) == sizeof(const char*) + 36, "DnFilterParams: settings block");
DN_STATIC_ASSERT(offsetof(DnFilterParams, lowFrequency) == sizeof(const char*) + 44, "DnFilterParams: settings block");
DN_STATIC_ASSERT(offsetof(DnFilterParams, height) == sizeof(const char*) + 64, "DnFilterParams: seventeen 4-byte fields");
#if defined(__x86_64__) || defined(_M_X64) || defined(__aarch64__)
DN_STATIC_ASSERT(sizeof(DnFilterParams) == 80, "DnFilterParams: 80 bytes on a 64-bit system");
#elif defined(__i386__) || defined(_M_IX86) || defined(__arm__)
DN_STATIC_ASSERT(sizeof(DnFilterParams) == 72, "DnFilterParams: 72 bytes on a 32-bit system");
#endif
DN_STATIC_ASSERT(offsetof(DnNoiseSample, y) == 16, "DnNoiseSample: colour after the patch");
DN_STATIC_ASSERT(offsetof(DnNoiseSample, r) == 28, "DnNoiseSample: RGB after YCrCb");
DN_STATIC_ASSERT(offsetof(DnNoiseSample, labL) == 40, "DnNoiseSample: Lab after RGB");
DN_STATIC_ASSERT(offsetof(DnNoiseSample, noiseY) == 52, "DnNoiseSample: noise after Lab");
DN_STATIC_ASSERT(offsetof(DnNoiseSample, noiseCb) == 92, "DnNoiseSample: Cb noise last");
DN_STATIC_ASSERT(sizeof(DnNoiseSample) == 112, "DnNoiseSample: 28 words");
#undef DN_STATIC_ASSERT
#endif

/* Reads (get) or receives (put) row y, columns xStart..xEnd inclusive, as
 * packed RGBX pixels: 4 * (xEnd - xStart + 1) values. The get callback fills
 * the buffer; the put callback must not write to it. The buffer belongs to
 * the library and is valid only during the call. Called from the library's
 * worker threads as well as the calling thread, one call at a time per
 * reading or writing stage; different rows may be requested concurrently. */
typedef void (*DnGetScanlineCallback)(void* hostContext, int y, int xStart, int xEnd, unsigned short* pixels);
typedef void (*DnPutScanlineCallback)(void* hostContext, int y, int xStart, int xEnd, unsigned short* pixels);

/* Progress: the step text (valid during the call) and the fraction done of
 * that step. A non-zero answer cancels the job (not an error: the job still
 * returns 0). Called on the thread that called the entry point. May be
 * NULL. */
typedef int (*DnProgressCallback)(void* hostContext, const char* stepText, float fraction);

/* One call per sample, index 0 .. count - 1, on the calling thread; the
 * record belongs to the library and is valid only during the call. The
 * answer is ignored. */
typedef int (*DnSampleCallback)(void* hostContext, int count, int index, const DnNoiseSample* sample);

/*
 * DnRemoveNoise2: denoises the rectangle left..right-1, top..bottom-1 of the
 * host image in place: pixels are read with getCallback and the results
 * handed to putCallback.
 *   hostContext     passed unchanged to every callback.
 *   params          required; read, never written. Its width and height give
 *                   the image size; threads the number of worker threads (0:
 *                   the calling thread computes everything).
 *   profileData     the profile, first rule that applies: the block
 *                   (profileData, profileLength) when profileData is non-NULL
 *                   and profileLength > 0; the file params->profilePath when
 *                   params->buildProfile is 0 and the path is non-NULL; else
 *                   a profile measured from the image itself (on
 *                   params->threads threads, the calling thread among
 *                   them, at most 4; 0 or 1: the calling thread alone). With
 *                   params->saveProfile set and a path given, the profile
 *                   used is then saved there. The block stays the caller's.
 *   statusCallback  may be NULL.
 * Returns 0 when the run finished or was cancelled through statusCallback,
 * 1 on failure (one line on standard output). Rows already handed to
 * putCallback before a failure stay written.
 * DnRemoveNoise is the same with no profile block (NULL, 0).
 */
DN_API int DnRemoveNoise(void* hostContext, DnFilterParams* params, int left, int top, int right, int bottom,
                         DnGetScanlineCallback getCallback, DnPutScanlineCallback putCallback,
                         DnProgressCallback statusCallback);
DN_API int DnRemoveNoise2(void* hostContext, DnFilterParams* params, int left, int top, int right, int bottom,
                          const unsigned char* profileData, int profileLength,
                          DnGetScanlineCallback getCallback, DnPutScanlineCallback putCallback,
                          DnProgressCallback statusCallback);

/*
 * DnBuildProfile, DnBuildProfile2: measure a noise profile from the whole
 * width x height image, read with getCallback (no put callback is used).
 * flag > 0 relaxes the search for flat patches. DnBuildProfile saves the
 * profile as a file at path (no file is written when path is NULL);
 * DnBuildProfile2 stores a new block in *outData and its size in bytes in
 * *outLength (nothing when either pointer is NULL). The block is the
 * caller's from then on and is released with DnFreeMemory.
 * The image is searched on one thread per processor, the calling thread
 * among them, at most 4; getCallback is then entered from those threads, one
 * call at a time. The profile is the same whatever the number of threads.
 * statusCallback may be NULL. Returns 0, or 1 on failure.
 */
DN_API int DnBuildProfile(void* hostContext, const char* path, DnGetScanlineCallback getCallback, int width,
                          int height, int flag, DnProgressCallback statusCallback);
DN_API int DnBuildProfile2(void* hostContext, unsigned char** outData, int* outLength,
                           DnGetScanlineCallback getCallback, int width, int height, int flag,
                           DnProgressCallback statusCallback);

/*
 * DnReadProfile: loads the profile file at path and stores in *outData a new
 * block holding the profile written again in the current profile format
 * (not the file's own bytes), and its size in *outLength; the caller
 * releases it with DnFreeMemory. Writes the settings stored in the profile,
 * on the host scales, into the settings block of *outParams (lumStrength ..
 * lowFrequency); the other fields are left untouched. A NULL output pointer
 * skips that output. Returns 0, or 1 on failure (then nothing is stored).
 */
DN_API int DnReadProfile(const char* path, unsigned char** outData, int* outLength, DnFilterParams* outParams);

/*
 * DnWriteProfile: loads a profile from the block (data, length), replaces
 * the settings stored in it with the settings block of *params (required,
 * only read) and saves it as a file at path. The block stays the caller's.
 * Returns 0, or 1 on failure.
 */
DN_API int DnWriteProfile(const char* path, const unsigned char* data, int length, DnFilterParams* params);

/*
 * DnReadProfileSamples, DnReadProfileSamples2: load a profile and call
 * sampleCallback once for each of its samples, in order; a profile without
 * samples makes no call. DnReadProfileSamples reads the file at path;
 * DnReadProfileSamples2 reads the block (data, length) when data is non-NULL
 * and length >= 1, and otherwise fails (it has no file to read).
 * Returns 0, or 1 on failure.
 */
DN_API int DnReadProfileSamples(void* hostContext, const char* path, DnSampleCallback sampleCallback);
DN_API int DnReadProfileSamples2(void* hostContext, const unsigned char* data, int length,
                                 DnSampleCallback sampleCallback);

/* Releases a block from DnBuildProfile2 or DnReadProfile; NULL is ignored. */
DN_API void DnFreeMemory(void* block);

/*
 * Process-wide tuning, read by every later denoise. Not synchronised with a
 * running job: set them between jobs.
 * DnSetStripWidth: the widest strip in pixels processed at once (default
 *   3400); not checked; returns 0.
 * DnSetRowsPerThread: rows per worker request (-1, the default: chosen from
 *   the image height); not checked; returns 0. A denoise may overwrite it.
 * DnSetDenoiseLevels: wavelet levels, 2..5, or -1 (the default: chosen from
 *   the settings); returns 0. Any other value is refused with 1 and changes
 *   nothing.
 */
DN_API int DnSetStripWidth(int pixels);
DN_API int DnSetRowsPerThread(int rows);
DN_API int DnSetDenoiseLevels(int levels);

#ifdef __cplusplus
}
#endif

#endif /* MURMEX_MURMEX_H */
