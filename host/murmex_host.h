/*
 * The shared host library for hosts written in C (the GIMP plug-in): the
 * profile library and its automatic match, measured and loaded profiles,
 * default settings, the engine's progress texts in the user's words, and
 * the engine calls with their error line turned into a message.
 *
 * Conventions
 * - Functions that can fail return 0 (or NULL) and store a message of one
 *   line in *error when error is not NULL; the caller frees it with
 *   murmex_host_free. Strings returned by the library are freed the same way.
 * - Every function is called from the host's own thread; the scanline
 *   callbacks handed to the engine are entered from its worker threads as
 *   murmex/murmex.h describes.
 */
#ifndef MURMEX_HOST_H
#define MURMEX_HOST_H

#include <murmex/murmex.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Releases a string or block returned by this library; NULL is ignored. */
void murmex_host_free(void* block);

/* The settings used when nothing else supplies any: the middle of every host
 * scale, no sharpening, halo suppression on, the low-frequency filter off.
 * Writes the settings block of *params only. */
void murmex_host_default_settings(DnFilterParams* params);

/* The user's words for one of the engine's step texts; never NULL. */
char* murmex_host_step_text(const char* engine_step_text);

/* ---- Camera data -------------------------------------------------------- */

/* What a profile header and the automatic match take from a photo's EXIF. */
typedef struct MurmexHostCamera MurmexHostCamera;

/* The camera data in an editor's serialised metadata: an XML document of
 * <tag name="Exif.Image.Make">Canon</tag> elements (text escaped as in XML,
 * or base64 with encoding="base64"), the values as EXIF prints them. NULL or
 * a document without EXIF gives a camera without data. Never NULL. */
MurmexHostCamera* murmex_host_camera_from_metadata_xml(const char* xml);
void murmex_host_camera_free(MurmexHostCamera* camera);

/* "Canon EOS 5D at ISO 1600", or "a photo without camera data". */
char* murmex_host_camera_describe(const MurmexHostCamera* camera);

/* ---- Profiles ----------------------------------------------------------- */

typedef struct MurmexHostProfile MurmexHostProfile;

/* The profile library's directory: $MURMEX_PROFILES, else
 * $XDG_DATA_HOME/murmex/profiles, else ~/.local/share/murmex/profiles. NULL
 * (with *error) when none can be named. */
char* murmex_host_library_directory(char** error);

/* Loads the .dnp file at path. */
MurmexHostProfile* murmex_host_profile_load(const char* path, char** error);

/* The library's profile for camera (same maker and model, nearest ISO),
 * loaded. NULL with *error left NULL when the library has none; NULL with
 * *error set when the matching file does not load. */
MurmexHostProfile* murmex_host_profile_match(const MurmexHostCamera* camera, char** error);

/* Measures a profile from the whole width x height image read through get
 * (DnBuildProfile2; relaxed is its flag). name is the image's name for
 * messages. NULL with *error left NULL when progress cancelled the job. */
MurmexHostProfile* murmex_host_profile_measure(void* host_context, DnGetScanlineCallback get, int width, int height,
                                               int relaxed, DnProgressCallback progress, const char* name,
                                               char** error);

void murmex_host_profile_free(MurmexHostProfile* profile);

/* The serialised profile, as DnRemoveNoise2 takes it. */
const unsigned char* murmex_host_profile_data(const MurmexHostProfile* profile);
int murmex_host_profile_length(const MurmexHostProfile* profile);
/* The file it was loaded from, or NULL when it was measured. */
const char* murmex_host_profile_path(const MurmexHostProfile* profile);
/* Its number of noise samples. */
int murmex_host_profile_sample_count(const MurmexHostProfile* profile);

/* Where murmex_host_profile_save stores a profile of camera's photo of
 * width x height pixels when given no path: its place in the profile
 * library. */
char* murmex_host_profile_library_path(const MurmexHostCamera* camera, int width, int height, char** error);

/* Saves profile with its header filled from camera (megapixels from width x
 * height) and the default settings, through a temporary file renamed over
 * path; a NULL or empty path stores it in the profile library, creating its
 * folders. Returns the path written, or NULL. */
char* murmex_host_profile_save(const MurmexHostProfile* profile, const MurmexHostCamera* camera, int width,
                               int height, const char* path, char** error);

/* ---- Noise removal ------------------------------------------------------ */

/* DnRemoveNoise2 over the rectangle left..right-1, top..bottom-1 of the
 * params->width x params->height image, with the profile's block. name is
 * the image's name for messages. Returns 1 when the run finished or was
 * cancelled through progress, 0 on failure. */
int murmex_host_denoise(void* host_context, const DnFilterParams* params, int left, int top, int right, int bottom,
                        const MurmexHostProfile* profile, DnGetScanlineCallback get, DnPutScanlineCallback put,
                        DnProgressCallback progress, const char* name, char** error);

/* ---- Automatic settings -------------------------------------------------- */

/* Chooses the settings for the width x height image read through get (on
 * the calling thread only) and its profile, as `murmex denoise --settings
 * auto` does: writes the settings block of *params (the eight host scales
 * and the two switches); its other fields are left as they are. Returns 1,
 * or 0 with *error when the profile cannot be read. */
int murmex_host_auto_settings(void* host_context, DnGetScanlineCallback get, int width, int height,
                              const MurmexHostProfile* profile, DnFilterParams* params, char** error);

#ifdef __cplusplus
}
#endif

#endif /* MURMEX_HOST_H */
