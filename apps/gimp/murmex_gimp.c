/*
 * Murmex inside GIMP 2.10: the plug-in's GIMP glue.
 *
 * Two procedures: plug-in-murmex-denoise (Filters > Enhance > Murmex Noise
 * Reduction...) and plug-in-murmex-profile (Filters > Enhance > Murmex
 * Measure Noise Profile...). Everything that is not GIMP's business (the
 * profile library, profile files and headers, settings, progress texts,
 * engine errors) lives in the shared host library behind host/murmex_host.h.
 *
 * Pixels: the drawable is read once through its GEGL buffer as 16-bit
 * R'G'B' or R'G'B'A, whatever the image's precision (GEGL converts, grey
 * included), into a packed buffer that the engine's scanline callbacks copy
 * from; results go to a second buffer, then into the shadow buffer, which
 * GIMP merges through the selection as one undo step. The callbacks run on
 * the engine's worker threads: they only copy memory and never call libgimp.
 * Progress reaches GIMP from the engine's calling thread, which is this one.
 */
#include <string.h>

#include <libgimp/gimp.h>
#include <libgimp/gimpui.h>

#include <murmex/murmex.h>

#include "host/murmex_host.h"

#define DENOISE_PROC "plug-in-murmex-denoise"
#define PROFILE_PROC "plug-in-murmex-profile"
#define PLUG_IN_BINARY "murmex"
#define PLUG_IN_ROLE "murmex-denoise"
#define DENOISE_TITLE "Murmex Noise Reduction"

/* Pixels around the visible part of the preview that the engine reads as
 * context, so that the preview matches the full run away from the image's
 * edges. */
#define PREVIEW_MARGIN 64
/* The preview's largest side in screen pixels. */
#define PREVIEW_SIZE 360

/* ---- Values ------------------------------------------------------------- */

/* The last values, kept by GIMP between runs (gimp_get_data/gimp_set_data):
 * a plain record, since DnFilterParams holds a pointer. */
typedef struct {
    gchar profile[1024]; /* "" or "auto", "measure", or a .dnp path */
    gfloat settings[DnHostScaleCount];
    gint32 suppress_halos;
    gint32 low_frequency;
} DenoiseValues;

static void default_values(DenoiseValues* v)
{
    DnFilterParams p;
    memset(v, 0, sizeof *v);
    memset(&p, 0, sizeof p);
    murmex_host_default_settings(&p);
    for (int i = 0; i < DnHostScaleCount; ++i)
        v->settings[i] = *DnHostScaleField(&p, i);
    v->suppress_halos = p.suppressHalos;
    v->low_frequency = p.lowFrequency;
    g_strlcpy(v->profile, "auto", sizeof v->profile);
}

static void params_from_values(DnFilterParams* p, const DenoiseValues* v, int width, int height)
{
    memset(p, 0, sizeof *p);
    for (int i = 0; i < DnHostScaleCount; ++i)
        *DnHostScaleField(p, i) = v->settings[i];
    p->suppressHalos = v->suppress_halos ? 1 : 0;
    p->lowFrequency = v->low_frequency ? 1 : 0;
    p->threads = (int32_t)g_get_num_processors();
    p->width = width;
    p->height = height;
}

static gboolean is_auto(const gchar* profile)
{
    return profile[0] == '\0' || strcmp(profile, "auto") == 0;
}

/* ---- Pixels ------------------------------------------------------------- */

/* The drawable's pixels as the engine reads them, and the result rectangle
 * it writes. */
typedef struct {
    guint16* src;      /* width x height, packed, channels per pixel */
    int width, height;
    int channels;      /* 3, or 4 with alpha */
    guint16* dst;      /* the result rectangle, same layout */
    int rx, ry, rw, rh;
} Pixels;

static const Babl* pixels_format(int channels)
{
    return babl_format(channels == 4 ? "R'G'B'A u16" : "R'G'B' u16");
}

static void get_scanline(void* context, int y, int x0, int x1, unsigned short* out)
{
    const Pixels* px = context;
    const int ch = px->channels;
    const guint16* in = px->src + ((gsize)y * px->width + x0) * ch;
    for (int x = x0; x <= x1; ++x, in += ch, out += 4) {
        out[0] = in[0];
        out[1] = in[1];
        out[2] = in[2];
        out[3] = 65535; /* the engine's X channel, unused: not the alpha */
    }
}

static void put_scanline(void* context, int y, int x0, int x1, unsigned short* in)
{
    const Pixels* px = context;
    const int ch = px->channels;
    if (y < px->ry || y >= px->ry + px->rh)
        return;
    const int from = MAX(x0, px->rx), to = MIN(x1, px->rx + px->rw - 1);
    in += (gsize)(from - x0) * 4;
    guint16* out = px->dst + ((gsize)(y - px->ry) * px->rw + (from - px->rx)) * ch;
    const guint16* alpha = px->src + ((gsize)y * px->width + from) * ch + 3;
    for (int x = from; x <= to; ++x, in += 4, out += ch, alpha += ch) {
        out[0] = in[0];
        out[1] = in[1];
        out[2] = in[2];
        if (ch == 4)
            out[3] = *alpha;
    }
}

/* Reads the whole drawable. FALSE with *error when memory runs out. */
static gboolean pixels_read(Pixels* px, gint32 drawable, char** error)
{
    memset(px, 0, sizeof *px);
    px->width = gimp_drawable_width(drawable);
    px->height = gimp_drawable_height(drawable);
    px->channels = gimp_drawable_has_alpha(drawable) ? 4 : 3;
    px->src = g_try_malloc((gsize)px->width * px->height * px->channels * sizeof(guint16));
    if (!px->src) {
        *error = g_strdup_printf("not enough memory for %d x %d pixels", px->width, px->height);
        return FALSE;
    }
    GeglBuffer* buffer = gimp_drawable_get_buffer(drawable);
    gegl_buffer_get(buffer, GEGL_RECTANGLE(0, 0, px->width, px->height), 1.0, pixels_format(px->channels), px->src,
                    GEGL_AUTO_ROWSTRIDE, GEGL_ABYSS_NONE);
    g_object_unref(buffer);
    return TRUE;
}

/* Makes room for a result rectangle. */
static gboolean pixels_set_result(Pixels* px, int x, int y, int w, int h, char** error)
{
    g_free(px->dst);
    px->rx = x;
    px->ry = y;
    px->rw = w;
    px->rh = h;
    px->dst = g_try_malloc((gsize)w * h * px->channels * sizeof(guint16));
    if (!px->dst) {
        *error = g_strdup_printf("not enough memory for %d x %d pixels", w, h);
        return FALSE;
    }
    return TRUE;
}

static void pixels_free(Pixels* px)
{
    g_free(px->src);
    g_free(px->dst);
    memset(px, 0, sizeof *px);
}

/* ---- Progress ----------------------------------------------------------- */

typedef struct {
    gchar* step; /* the engine's step text last shown */
} Progress;

static int progress_report(void* context, const char* step_text, float fraction)
{
    Progress* p = context;
    if (step_text && g_strcmp0(step_text, p->step) != 0) {
        g_free(p->step);
        p->step = g_strdup(step_text);
        char* text = murmex_host_step_text(step_text);
        gimp_progress_set_text(text);
        murmex_host_free(text);
    }
    gimp_progress_update(CLAMP(fraction, 0.0f, 1.0f));
    return 0; /* GIMP cancels by ending the plug-in */
}

/* The scanline and progress callbacks share one context. */
typedef struct {
    Pixels pixels;
    Progress progress;
    /* Microseconds spent reading the drawable, in the engine, and writing
     * and merging the result: the plug-in's own cost is the first and last
     * (bench/gimp-overhead.sh shows them with MURMEX_GIMP_TIMES set). */
    gint64 read_us, engine_us, write_us;
} Job;

static void job_get(void* c, int y, int x0, int x1, unsigned short* px) { get_scanline(&((Job*)c)->pixels, y, x0, x1, px); }
static void job_put(void* c, int y, int x0, int x1, unsigned short* px) { put_scanline(&((Job*)c)->pixels, y, x0, x1, px); }
static int job_progress(void* c, const char* text, float f) { return progress_report(&((Job*)c)->progress, text, f); }

static void job_free(Job* job)
{
    pixels_free(&job->pixels);
    g_free(job->progress.step);
    job->progress.step = NULL;
}

/* ---- Profiles ----------------------------------------------------------- */

static MurmexHostCamera* image_camera(gint32 image)
{
    GimpMetadata* metadata = gimp_image_get_metadata(image);
    gchar* xml = metadata ? gimp_metadata_serialize(metadata) : NULL;
    MurmexHostCamera* camera = murmex_host_camera_from_metadata_xml(xml);
    g_free(xml);
    if (metadata)
        g_object_unref(metadata);
    return camera;
}

static gchar* image_name(gint32 image)
{
    gchar* name = gimp_image_get_name(image);
    return name ? name : g_strdup("the image");
}

/* The profile that the profile argument names for the job's drawable:
 * a file, the library's match (else a measured one) for "auto", a measured
 * one for "measure". NULL with *error on failure. */
static MurmexHostProfile* resolve_profile(const gchar* profile, gint32 image, Job* job, char** error)
{
    if (!is_auto(profile) && strcmp(profile, "measure") != 0)
        return murmex_host_profile_load(profile, error);
    if (is_auto(profile)) {
        MurmexHostCamera* camera = image_camera(image);
        MurmexHostProfile* matched = murmex_host_profile_match(camera, error);
        murmex_host_camera_free(camera);
        if (matched || *error)
            return matched;
    }
    gchar* name = image_name(image);
    gimp_progress_init("Measuring the noise profile");
    MurmexHostProfile* measured = murmex_host_profile_measure(job, job_get, job->pixels.width, job->pixels.height, 0,
                                                              job_progress, name, error);
    g_free(name);
    return measured;
}

/* ---- Denoising ---------------------------------------------------------- */

/* Denoises the selected part of the drawable, whose pixels job holds, and
 * merges the result through the shadow buffer. Leaves the drawable
 * untouched on failure. */
static gboolean denoise_drawable(gint32 image, gint32 drawable, const DenoiseValues* v,
                                 const MurmexHostProfile* profile, Job* job, char** error)
{
    int x, y, w, h;
    if (!gimp_drawable_mask_intersect(drawable, &x, &y, &w, &h))
        return TRUE; /* the selection misses this drawable */
    if (!pixels_set_result(&job->pixels, x, y, w, h, error))
        return FALSE;

    DnFilterParams params;
    params_from_values(&params, v, job->pixels.width, job->pixels.height);
    gchar* name = image_name(image);
    gimp_progress_init("Murmex noise reduction");
    const gint64 start = g_get_monotonic_time();
    const int ok = murmex_host_denoise(job, &params, x, y, x + w, y + h, profile, job_get, job_put, job_progress, name,
                                       error);
    const gint64 engine_done = g_get_monotonic_time();
    job->engine_us = engine_done - start;
    g_free(name);
    if (!ok)
        return FALSE;

    GeglBuffer* shadow = gimp_drawable_get_shadow_buffer(drawable);
    gegl_buffer_set(shadow, GEGL_RECTANGLE(x, y, w, h), 0, pixels_format(job->pixels.channels), job->pixels.dst,
                    GEGL_AUTO_ROWSTRIDE);
    g_object_unref(shadow); /* flushes the shadow to GIMP */
    gimp_drawable_merge_shadow(drawable, TRUE);
    gimp_drawable_update(drawable, x, y, w, h);
    job->write_us = g_get_monotonic_time() - engine_done;
    gimp_progress_update(1.0);
    return TRUE;
}

/* ---- Automatic settings -------------------------------------------------- */

/* Stores the settings chosen for the job's drawable and profile in *v. */
static gboolean choose_settings(DenoiseValues* v, const MurmexHostProfile* profile, Job* job, char** error)
{
    DnFilterParams params;
    params_from_values(&params, v, job->pixels.width, job->pixels.height);
    if (!murmex_host_auto_settings(job, job_get, job->pixels.width, job->pixels.height, profile, &params, error))
        return FALSE;
    for (int i = 0; i < DnHostScaleCount; ++i)
        v->settings[i] = *DnHostScaleField(&params, i);
    v->suppress_halos = params.suppressHalos;
    v->low_frequency = params.lowFrequency;
    return TRUE;
}

/* ---- The dialog --------------------------------------------------------- */

enum { PROFILE_AUTO, PROFILE_MEASURE, PROFILE_FILE };

typedef struct {
    DenoiseValues* values;
    gint32 image, drawable;
    Job* job;                    /* the drawable's pixels, read once */
    GtkWidget* dialog;
    GtkWidget* preview;
    GtkWidget* mode;             /* the profile chooser */
    GtkWidget* file;             /* its .dnp file button */
    GtkWidget* profile_line;     /* which profile is in use */
    GtkAdjustment* scales[DnHostScaleCount]; /* the sliders' values */
    GtkWidget* halos;            /* the two switches */
    GtkWidget* low;
    MurmexHostProfile* matched;  /* the library's match, loaded once */
    gboolean match_tried;
    MurmexHostProfile* measured; /* measured once per dialog */
    MurmexHostProfile* loaded;   /* the chosen file's */
    gchar* loaded_path;
    gchar* failure;              /* why the current choice has no profile */
    gboolean rendering;          /* a preview render is running */
    gboolean cancel;             /* a value changed: stop the render in progress */
    gboolean rerender;           /* the preview was invalidated meanwhile: render again */
    gboolean closing;            /* the dialog got its answer */
    gboolean auto_pending;       /* "Auto" was pressed during a render */
} Dialog;

static int dialog_mode(Dialog* d)
{
    return gtk_combo_box_get_active(GTK_COMBO_BOX(d->mode));
}

static void set_failure(Dialog* d, char* error)
{
    g_free(d->failure);
    d->failure = g_strdup(error);
    murmex_host_free(error);
}

/* The profile of the current choice, loading or measuring it the first time
 * it is asked for. */
static const MurmexHostProfile* dialog_profile(Dialog* d)
{
    char* error = NULL;
    const int mode = dialog_mode(d);
    g_clear_pointer(&d->failure, g_free);
    if (mode == PROFILE_FILE) {
        gchar* path = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(d->file));
        if (!path) {
            d->failure = g_strdup("choose a .dnp profile file");
            return NULL;
        }
        if (g_strcmp0(path, d->loaded_path) != 0) {
            murmex_host_profile_free(d->loaded);
            g_free(d->loaded_path);
            d->loaded = murmex_host_profile_load(path, &error);
            d->loaded_path = g_strdup(path);
            if (!d->loaded)
                set_failure(d, error);
        } else if (!d->loaded) {
            d->failure = g_strdup_printf("cannot load profile %s", path);
        }
        g_free(path);
        return d->loaded;
    }
    if (mode == PROFILE_AUTO && !d->match_tried) {
        MurmexHostCamera* camera = image_camera(d->image);
        d->matched = murmex_host_profile_match(camera, &error);
        murmex_host_camera_free(camera);
        d->match_tried = TRUE;
        if (error) {
            set_failure(d, error);
            return NULL;
        }
    }
    if (mode == PROFILE_AUTO && d->matched)
        return d->matched;
    if (!d->measured) {
        gchar* name = image_name(d->image);
        gimp_progress_init("Measuring the noise profile");
        d->measured = murmex_host_profile_measure(d->job, job_get, d->job->pixels.width, d->job->pixels.height, 0,
                                                  job_progress, name, &error);
        gimp_progress_end();
        g_free(name);
        if (!d->measured)
            set_failure(d, error);
    }
    return d->measured;
}

static void update_profile_line(Dialog* d, const MurmexHostProfile* profile)
{
    gchar* text;
    if (!profile) {
        text = g_strdup_printf("No profile: %s", d->failure ? d->failure : "none chosen");
    } else {
        const int n = murmex_host_profile_sample_count(profile);
        const char* path = murmex_host_profile_path(profile);
        gchar* base = path ? g_path_get_basename(path) : NULL;
        if (!path)
            text = g_strdup_printf("Profile measured from this image, %d sample%s", n, n == 1 ? "" : "s");
        else if (profile == d->matched)
            text = g_strdup_printf("Library profile %s, %d sample%s", base, n, n == 1 ? "" : "s");
        else
            text = g_strdup_printf("Profile %s, %d sample%s", base, n, n == 1 ? "" : "s");
        g_free(base);
    }
    gtk_label_set_text(GTK_LABEL(d->profile_line), text);
    g_free(text);
}

/* Moves the sliders and switches to the settings chosen for the image and
 * profile; each move invalidates the preview as a slider move by hand does. */
static void apply_auto_settings(Dialog* d, const MurmexHostProfile* profile)
{
    DenoiseValues chosen = *d->values;
    char* error = NULL;
    if (!choose_settings(&chosen, profile, d->job, &error)) {
        set_failure(d, error);
        gtk_label_set_text(GTK_LABEL(d->profile_line), d->failure);
        return;
    }
    for (int i = 0; i < DnHostScaleCount; ++i)
        gtk_adjustment_set_value(d->scales[i], chosen.settings[i]);
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(d->halos), chosen.suppress_halos != 0);
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(d->low), chosen.low_frequency != 0);
}

/* The preview's progress callback: keeps the dialog alive while the engine
 * works, and cancels the render when a value changed meanwhile. */
static int preview_progress(void* context, const char* step_text, float fraction)
{
    Dialog* d = context;
    (void)step_text;
    (void)fraction;
    while (gtk_events_pending())
        gtk_main_iteration();
    return d->cancel || d->rerender || d->closing;
}

typedef struct {
    Pixels pixels; /* the visible area and its margin */
    Dialog* dialog;
} PreviewJob;

static void preview_get(void* c, int y, int x0, int x1, unsigned short* px) { get_scanline(&((PreviewJob*)c)->pixels, y, x0, x1, px); }
static void preview_put(void* c, int y, int x0, int x1, unsigned short* px) { put_scanline(&((PreviewJob*)c)->pixels, y, x0, x1, px); }
static int preview_status(void* c, const char* text, float f) { return preview_progress(((PreviewJob*)c)->dialog, text, f); }

/* Denoises the visible area of the preview (reading a margin around it) and
 * draws it. Returns FALSE when cancelled or failed. */
static gboolean render_visible(Dialog* d, const MurmexHostProfile* profile)
{
    const Pixels* all = &d->job->pixels;
    int vx, vy, vw, vh;
    gimp_preview_get_position(GIMP_PREVIEW(d->preview), &vx, &vy);
    gimp_preview_get_size(GIMP_PREVIEW(d->preview), &vw, &vh);
    const int x0 = MAX(0, vx - PREVIEW_MARGIN), y0 = MAX(0, vy - PREVIEW_MARGIN);
    const int x1 = MIN(all->width, vx + vw + PREVIEW_MARGIN), y1 = MIN(all->height, vy + vh + PREVIEW_MARGIN);
    const int ch = all->channels;

    PreviewJob pj;
    memset(&pj, 0, sizeof pj);
    pj.dialog = d;
    pj.pixels.width = x1 - x0;
    pj.pixels.height = y1 - y0;
    pj.pixels.channels = ch;
    pj.pixels.src = g_malloc((gsize)pj.pixels.width * pj.pixels.height * ch * sizeof(guint16));
    for (int y = y0; y < y1; ++y)
        memcpy(pj.pixels.src + (gsize)(y - y0) * pj.pixels.width * ch, all->src + ((gsize)y * all->width + x0) * ch,
               (gsize)pj.pixels.width * ch * sizeof(guint16));
    char* error = NULL;
    gboolean drawn = FALSE;
    if (pixels_set_result(&pj.pixels, vx - x0, vy - y0, vw, vh, &error)) {
        DnFilterParams params;
        params_from_values(&params, d->values, pj.pixels.width, pj.pixels.height);
        const int ok = murmex_host_denoise(&pj, &params, vx - x0, vy - y0, vx - x0 + vw, vy - y0 + vh, profile,
                                           preview_get, preview_put, preview_status, "the preview", &error);
        if (!ok) {
            set_failure(d, error);
            error = NULL;
            gtk_label_set_text(GTK_LABEL(d->profile_line), d->failure);
        } else if (!preview_progress(d, NULL, 1.0f)) {
            /* The preview draws 8-bit pixels of the drawable's own type. */
            const gboolean grey = gimp_drawable_is_gray(d->drawable);
            const Babl* to = babl_format(grey ? (ch == 4 ? "Y'A u8" : "Y' u8") : (ch == 4 ? "R'G'B'A u8" : "R'G'B' u8"));
            const int bpp = babl_format_get_bytes_per_pixel(to);
            guchar* shown = g_malloc((gsize)vw * vh * bpp);
            babl_process(babl_fish(pixels_format(ch), to), pj.pixels.dst, shown, (long)vw * vh);
            gimp_preview_draw_buffer(GIMP_PREVIEW(d->preview), shown, vw * bpp);
            g_free(shown);
            drawn = TRUE;
        }
    }
    murmex_host_free(error);
    pixels_free(&pj.pixels);
    return drawn;
}

static void preview_invalidated(Dialog* d)
{
    if (d->rendering) {
        d->rerender = TRUE; /* the running render sees it and stops */
        return;
    }
    d->rendering = TRUE;
    do {
        d->cancel = FALSE;
        d->rerender = FALSE;
        const MurmexHostProfile* profile = dialog_profile(d);
        update_profile_line(d, profile);
        if (d->auto_pending && profile) {
            apply_auto_settings(d, profile);
            d->cancel = FALSE; /* the render below already has the new values */
        }
        d->auto_pending = FALSE;
        if (profile)
            render_visible(d, profile);
    } while (d->rerender && !d->closing);
    d->rendering = FALSE;
}

/* A new value stops a preview render in progress at once; the preview then
 * renders again when it is invalidated. */
static void values_changed(Dialog* d)
{
    d->cancel = d->rendering;
    gimp_preview_invalidate(GIMP_PREVIEW(d->preview));
}

static void dialog_answered(Dialog* d)
{
    d->closing = TRUE;
}

static void value_changed(GtkAdjustment* adjustment, gfloat* value)
{
    *value = (gfloat)gtk_adjustment_get_value(adjustment);
}

static void switch_toggled(GtkToggleButton* button, gint32* value)
{
    *value = gtk_toggle_button_get_active(button) ? 1 : 0;
}

static void mode_changed(GtkComboBox* combo, Dialog* d)
{
    gtk_widget_set_sensitive(d->file, gtk_combo_box_get_active(combo) == PROFILE_FILE);
    values_changed(d);
}

static void file_chosen(GtkFileChooserButton* button, Dialog* d)
{
    (void)button;
    if (dialog_mode(d) == PROFILE_FILE)
        values_changed(d);
    else
        gtk_combo_box_set_active(GTK_COMBO_BOX(d->mode), PROFILE_FILE);
}

/* "Auto": the settings chosen for this image and the profile in use. During
 * a preview render the profile may be in use by it: the render stops and
 * the choice is made before the next one. */
static void auto_clicked(GtkButton* button, Dialog* d)
{
    (void)button;
    if (d->rendering) {
        d->auto_pending = TRUE;
        d->rerender = TRUE;
        return;
    }
    const MurmexHostProfile* profile = dialog_profile(d);
    update_profile_line(d, profile);
    if (profile)
        apply_auto_settings(d, profile);
}

/* Asks where to save a profile of the image's camera; its place in the
 * profile library is the default. NULL when the user cancels. */
static gchar* profile_path_dialog(GtkWindow* parent, const MurmexHostCamera* camera, int width, int height)
{
    GtkWidget* chooser = gtk_file_chooser_dialog_new("Save Noise Profile", parent, GTK_FILE_CHOOSER_ACTION_SAVE,
                                                     "_Cancel", GTK_RESPONSE_CANCEL, "_Save", GTK_RESPONSE_ACCEPT,
                                                     NULL);
    gtk_file_chooser_set_do_overwrite_confirmation(GTK_FILE_CHOOSER(chooser), TRUE);
    char* error = NULL;
    char* suggested = murmex_host_profile_library_path(camera, width, height, &error);
    if (suggested) {
        gchar* dir = g_path_get_dirname(suggested);
        gchar* base = g_path_get_basename(suggested);
        g_mkdir_with_parents(dir, 0755);
        gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(chooser), dir);
        gtk_file_chooser_set_current_name(GTK_FILE_CHOOSER(chooser), base);
        g_free(dir);
        g_free(base);
    }
    murmex_host_free(suggested);
    murmex_host_free(error);
    gchar* path = NULL;
    if (gtk_dialog_run(GTK_DIALOG(chooser)) == GTK_RESPONSE_ACCEPT)
        path = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(chooser));
    gtk_widget_destroy(chooser);
    return path;
}

/* "Save profile...": stores the profile in use, with its header from the
 * image's EXIF, where the user chooses (the library's place by default). */
static void save_clicked(GtkButton* button, Dialog* d)
{
    (void)button;
    if (d->rendering)
        return;
    const MurmexHostProfile* profile = dialog_profile(d);
    update_profile_line(d, profile);
    if (!profile)
        return;
    MurmexHostCamera* camera = image_camera(d->image);
    const int width = gimp_image_width(d->image), height = gimp_image_height(d->image);
    gchar* path = profile_path_dialog(GTK_WINDOW(d->dialog), camera, width, height);
    if (path) {
        char* error = NULL;
        char* written = murmex_host_profile_save(profile, camera, width, height, path, &error);
        if (!written)
            gimp_message(error);
        murmex_host_free(written);
        murmex_host_free(error);
        g_free(path);
    }
    murmex_host_camera_free(camera);
}

static gchar* scale_label(int i)
{
    gchar* label = g_strdup(DnHostScales[i].description);
    label[0] = g_ascii_toupper(label[0]);
    return label;
}

/* Runs the dialog; on OK leaves the chosen values in *v and the profile to
 * use in *profile (owned by the caller). */
static gboolean denoise_dialog(gint32 image, gint32 drawable, DenoiseValues* v, Job* job, MurmexHostProfile** profile)
{
    gimp_ui_init(PLUG_IN_BINARY, FALSE);

    Dialog d;
    memset(&d, 0, sizeof d);
    d.values = v;
    d.image = image;
    d.drawable = drawable;
    d.job = job;

    d.dialog = gimp_dialog_new(DENOISE_TITLE, PLUG_IN_ROLE, NULL, 0, gimp_standard_help_func, DENOISE_PROC,
                               "_Cancel", GTK_RESPONSE_CANCEL, "_OK", GTK_RESPONSE_OK, NULL);
    gtk_dialog_set_alternative_button_order(GTK_DIALOG(d.dialog), GTK_RESPONSE_OK, GTK_RESPONSE_CANCEL, -1);
    gimp_window_set_transient(GTK_WINDOW(d.dialog));

    GtkWidget* vbox = gtk_vbox_new(FALSE, 12);
    gtk_container_set_border_width(GTK_CONTAINER(vbox), 12);
    gtk_box_pack_start(GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(d.dialog))), vbox, TRUE, TRUE, 0);

    /* The preview opens on the middle of the image, where the subject
     * usually is. */
    gtk_rc_parse_string("style \"murmex-preview\" { GimpPreview::size = " G_STRINGIFY(PREVIEW_SIZE) " }\n"
                        "widget \"*.murmex-preview\" style \"murmex-preview\"\n");
    d.preview = gimp_drawable_preview_new_from_drawable_id(drawable);
    gtk_widget_set_name(d.preview, "murmex-preview");
    gimp_scrolled_preview_set_position(GIMP_SCROLLED_PREVIEW(d.preview), (job->pixels.width - PREVIEW_SIZE) / 2,
                                       (job->pixels.height - PREVIEW_SIZE) / 2);
    gtk_box_pack_start(GTK_BOX(vbox), d.preview, TRUE, TRUE, 0);

    /* The profile: chooser, file, what is in use, saving it. */
    GtkWidget* frame = gimp_frame_new("Noise profile");
    gtk_box_pack_start(GTK_BOX(vbox), frame, FALSE, FALSE, 0);
    GtkWidget* pbox = gtk_vbox_new(FALSE, 6);
    gtk_container_add(GTK_CONTAINER(frame), pbox);
    GtkWidget* row = gtk_hbox_new(FALSE, 6);
    gtk_box_pack_start(GTK_BOX(pbox), row, FALSE, FALSE, 0);
    d.mode = gtk_combo_box_text_new();
    gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(d.mode), "Automatic");
    gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(d.mode), "Measure from this image");
    gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(d.mode), "Profile file");
    gtk_box_pack_start(GTK_BOX(row), d.mode, FALSE, FALSE, 0);
    d.file = gtk_file_chooser_button_new("Choose a Noise Profile", GTK_FILE_CHOOSER_ACTION_OPEN);
    GtkFileFilter* filter = gtk_file_filter_new();
    gtk_file_filter_set_name(filter, "Noise profiles (*.dnp)");
    gtk_file_filter_add_pattern(filter, "*.dnp");
    gtk_file_filter_add_pattern(filter, "*.DNP");
    gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(d.file), filter);
    gtk_box_pack_start(GTK_BOX(row), d.file, TRUE, TRUE, 0);
    int mode = is_auto(v->profile) ? PROFILE_AUTO : strcmp(v->profile, "measure") == 0 ? PROFILE_MEASURE : PROFILE_FILE;
    if (mode == PROFILE_FILE)
        gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(d.file), v->profile);
    else {
        char* error = NULL;
        char* dir = murmex_host_library_directory(&error);
        if (dir && g_file_test(dir, G_FILE_TEST_IS_DIR))
            gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(d.file), dir);
        murmex_host_free(dir);
        murmex_host_free(error);
    }
    gtk_combo_box_set_active(GTK_COMBO_BOX(d.mode), mode);
    gtk_widget_set_sensitive(d.file, mode == PROFILE_FILE);
    row = gtk_hbox_new(FALSE, 6);
    gtk_box_pack_start(GTK_BOX(pbox), row, FALSE, FALSE, 0);
    d.profile_line = gtk_label_new("");
    gtk_misc_set_alignment(GTK_MISC(d.profile_line), 0.0, 0.5);
    gtk_label_set_ellipsize(GTK_LABEL(d.profile_line), PANGO_ELLIPSIZE_MIDDLE);
    gtk_box_pack_start(GTK_BOX(row), d.profile_line, TRUE, TRUE, 0);
    GtkWidget* save = gtk_button_new_with_mnemonic("_Save profile…");
    gtk_box_pack_end(GTK_BOX(row), save, FALSE, FALSE, 0);

    /* The settings, one slider per host scale, and the two switches. */
    frame = gimp_frame_new("Settings");
    gtk_box_pack_start(GTK_BOX(vbox), frame, FALSE, FALSE, 0);
    GtkWidget* sbox = gtk_vbox_new(FALSE, 6);
    gtk_container_add(GTK_CONTAINER(frame), sbox);
    GtkWidget* table = gtk_table_new(DnHostScaleCount, 3, FALSE);
    gtk_table_set_col_spacings(GTK_TABLE(table), 6);
    gtk_table_set_row_spacings(GTK_TABLE(table), 4);
    gtk_box_pack_start(GTK_BOX(sbox), table, FALSE, FALSE, 0);
    for (int i = 0; i < DnHostScaleCount; ++i) {
        const DnHostScale* s = &DnHostScales[i];
        const gboolean fine = s->high - s->low < 10.0f;
        gchar* label = scale_label(i);
        gchar* tip = g_strdup_printf("%s: %g to %g, middle %g", label, s->low, s->high, s->middle);
        GtkObject* adj = gimp_scale_entry_new(GTK_TABLE(table), 0, i, label, 200, 6, v->settings[i], s->low, s->high,
                                              fine ? 0.05 : (s->high > 100.0f ? 5.0 : 0.5),
                                              fine ? 0.5 : (s->high > 100.0f ? 50.0 : 2.0), fine ? 2 : 1, TRUE, 0.0,
                                              0.0, tip, NULL);
        g_free(label);
        g_free(tip);
        d.scales[i] = GTK_ADJUSTMENT(adj);
        g_signal_connect(adj, "value-changed", G_CALLBACK(value_changed), &v->settings[i]);
        g_signal_connect_swapped(adj, "value-changed", G_CALLBACK(values_changed), &d);
    }
    GtkWidget* halos = d.halos = gtk_check_button_new_with_mnemonic("Suppress _halos");
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(halos), v->suppress_halos);
    gtk_box_pack_start(GTK_BOX(sbox), halos, FALSE, FALSE, 0);
    g_signal_connect(halos, "toggled", G_CALLBACK(switch_toggled), &v->suppress_halos);
    g_signal_connect_swapped(halos, "toggled", G_CALLBACK(values_changed), &d);
    row = gtk_hbox_new(FALSE, 6);
    gtk_box_pack_start(GTK_BOX(sbox), row, FALSE, FALSE, 0);
    GtkWidget* low = d.low = gtk_check_button_new_with_mnemonic("Filter _low-frequency noise");
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(low), v->low_frequency);
    gtk_box_pack_start(GTK_BOX(row), low, FALSE, FALSE, 0);
    g_signal_connect(low, "toggled", G_CALLBACK(switch_toggled), &v->low_frequency);
    g_signal_connect_swapped(low, "toggled", G_CALLBACK(values_changed), &d);
    GtkWidget* automatic = gtk_button_new_with_mnemonic("_Auto");
    gimp_help_set_help_data(automatic, "Choose the settings for this image from its noise and the noise profile",
                            NULL);
    gtk_box_pack_end(GTK_BOX(row), automatic, FALSE, FALSE, 0);
    g_signal_connect(automatic, "clicked", G_CALLBACK(auto_clicked), &d);

    g_signal_connect_swapped(d.preview, "invalidated", G_CALLBACK(preview_invalidated), &d);
    g_signal_connect(d.mode, "changed", G_CALLBACK(mode_changed), &d);
    g_signal_connect(d.file, "file-set", G_CALLBACK(file_chosen), &d);
    g_signal_connect(save, "clicked", G_CALLBACK(save_clicked), &d);
    g_signal_connect_swapped(d.dialog, "response", G_CALLBACK(dialog_answered), &d);

    gtk_widget_show_all(d.dialog);
    const gboolean ok = gimp_dialog_run(GIMP_DIALOG(d.dialog)) == GTK_RESPONSE_OK;
    d.closing = TRUE;

    *profile = NULL;
    if (ok) {
        const MurmexHostProfile* chosen = dialog_profile(&d);
        /* "Auto" pressed during a render that OK then ended: choose now. */
        char* error = NULL;
        if (chosen && d.auto_pending && !choose_settings(v, chosen, job, &error)) {
            set_failure(&d, error);
            chosen = NULL;
        }
        if (!chosen)
            gimp_message(d.failure);
        else if (chosen == d.matched)
            *profile = g_steal_pointer(&d.matched);
        else if (chosen == d.measured)
            *profile = g_steal_pointer(&d.measured);
        else
            *profile = g_steal_pointer(&d.loaded);
        const int chosen_mode = dialog_mode(&d);
        if (chosen_mode == PROFILE_FILE && d.loaded_path)
            g_strlcpy(v->profile, d.loaded_path, sizeof v->profile);
        else
            g_strlcpy(v->profile, chosen_mode == PROFILE_MEASURE ? "measure" : "auto", sizeof v->profile);
    }
    gtk_widget_destroy(d.dialog);
    murmex_host_profile_free(d.matched);
    murmex_host_profile_free(d.measured);
    murmex_host_profile_free(d.loaded);
    g_free(d.loaded_path);
    g_free(d.failure);
    return ok && *profile;
}

/* ---- plug-in-murmex-denoise ---------------------------------------------- */

enum { DENOISE_FIXED_ARGS = 4, DENOISE_ARGS = DENOISE_FIXED_ARGS + DnHostScaleCount + 3 };

static void run_denoise(gint nparams, const GimpParam* param, GimpPDBStatusType* status)
{
    const GimpRunMode run_mode = param[0].data.d_int32;
    const gint32 image = param[1].data.d_image;
    const gint32 drawable = param[2].data.d_drawable;

    DenoiseValues v;
    default_values(&v);
    gboolean choose = FALSE; /* the settings are chosen for the image */
    switch (run_mode) {
    case GIMP_RUN_INTERACTIVE:
    case GIMP_RUN_WITH_LAST_VALS:
        gimp_get_data(DENOISE_PROC, &v);
        v.profile[sizeof v.profile - 1] = '\0';
        break;
    case GIMP_RUN_NONINTERACTIVE:
        if (nparams != DENOISE_ARGS) {
            *status = GIMP_PDB_CALLING_ERROR;
            return;
        }
        g_strlcpy(v.profile, param[3].data.d_string ? param[3].data.d_string : "", sizeof v.profile);
        for (int i = 0; i < DnHostScaleCount; ++i) {
            const gdouble value = param[DENOISE_FIXED_ARGS + i].data.d_float;
            if (!(value >= DnHostScales[i].low && value <= DnHostScales[i].high)) {
                *status = GIMP_PDB_CALLING_ERROR;
                return;
            }
            v.settings[i] = (gfloat)value;
        }
        v.suppress_halos = param[DENOISE_ARGS - 3].data.d_int32 ? 1 : 0;
        v.low_frequency = param[DENOISE_ARGS - 2].data.d_int32 ? 1 : 0;
        choose = param[DENOISE_ARGS - 1].data.d_int32 != 0;
        break;
    }

    gegl_init(NULL, NULL);
    Job job;
    memset(&job, 0, sizeof job);
    char* error = NULL;
    MurmexHostProfile* profile = NULL;
    const gint64 start = g_get_monotonic_time();
    gboolean ok = pixels_read(&job.pixels, drawable, &error);
    job.read_us = g_get_monotonic_time() - start;
    if (ok && run_mode == GIMP_RUN_INTERACTIVE) {
        if (!denoise_dialog(image, drawable, &v, &job, &profile)) {
            *status = GIMP_PDB_CANCEL;
            job_free(&job);
            return;
        }
    } else if (ok) {
        profile = resolve_profile(v.profile, image, &job, &error);
        ok = profile != NULL;
        if (ok && choose)
            ok = choose_settings(&v, profile, &job, &error);
    }
    if (ok)
        ok = denoise_drawable(image, drawable, &v, profile, &job, &error);
    gimp_progress_end();
    if (ok) {
        if (run_mode != GIMP_RUN_NONINTERACTIVE)
            gimp_displays_flush();
        gimp_set_data(DENOISE_PROC, &v, sizeof v);
        if (g_getenv("MURMEX_GIMP_TIMES"))
            g_printerr("murmex: %d x %d pixels: reading %.3f s, engine %.3f s, writing and merging %.3f s\n",
                       job.pixels.width, job.pixels.height, job.read_us / 1e6, job.engine_us / 1e6,
                       job.write_us / 1e6);
    } else {
        gimp_message(error ? error : "Murmex noise reduction stopped");
        *status = GIMP_PDB_EXECUTION_ERROR;
    }
    murmex_host_free(error);
    murmex_host_profile_free(profile);
    job_free(&job);
}

/* ---- plug-in-murmex-profile ---------------------------------------------- */

static void run_profile(gint nparams, const GimpParam* param, GimpPDBStatusType* status, gchar** written_path)
{
    const GimpRunMode run_mode = param[0].data.d_int32;
    const gint32 image = param[1].data.d_image;
    const gint32 drawable = param[2].data.d_drawable;
    if (run_mode == GIMP_RUN_NONINTERACTIVE && nparams != 5) {
        *status = GIMP_PDB_CALLING_ERROR;
        return;
    }

    MurmexHostCamera* camera = image_camera(image);
    const int width = gimp_image_width(image), height = gimp_image_height(image);
    gchar* path = NULL;
    gint32 relaxed = 0;
    if (run_mode == GIMP_RUN_NONINTERACTIVE) {
        path = g_strdup(param[3].data.d_string ? param[3].data.d_string : "");
        relaxed = param[4].data.d_int32 ? 1 : 0;
    } else {
        gimp_ui_init(PLUG_IN_BINARY, FALSE);
        path = profile_path_dialog(NULL, camera, width, height);
        if (!path) {
            *status = GIMP_PDB_CANCEL;
            murmex_host_camera_free(camera);
            return;
        }
    }

    gegl_init(NULL, NULL);
    Job job;
    memset(&job, 0, sizeof job);
    char* error = NULL;
    char* written = NULL;
    MurmexHostProfile* profile = NULL;
    int x, y, w, h;
    if (!gimp_drawable_mask_intersect(drawable, &x, &y, &w, &h)) {
        error = g_strdup("the selection does not touch the layer: nothing to measure");
    } else if (pixels_read(&job.pixels, drawable, &error)) {
        /* Measure the selection's bounds only: a packed copy of them. */
        Pixels* px = &job.pixels;
        if (w != px->width || h != px->height) {
            for (int row = 0; row < h; ++row)
                memmove(px->src + (gsize)row * w * px->channels, px->src + ((gsize)(y + row) * px->width + x) * px->channels,
                        (gsize)w * px->channels * sizeof(guint16));
            px->width = w;
            px->height = h;
        }
        gchar* name = image_name(image);
        gimp_progress_init("Measuring the noise profile");
        profile = murmex_host_profile_measure(&job, job_get, w, h, relaxed, job_progress, name, &error);
        g_free(name);
        if (profile)
            written = murmex_host_profile_save(profile, camera, width, height, path, &error);
    }
    gimp_progress_end();
    if (written) {
        if (run_mode == GIMP_RUN_INTERACTIVE) {
            const int n = murmex_host_profile_sample_count(profile);
            gchar* text = g_strdup_printf("Saved the noise profile %s (%d sample%s)", written, n, n == 1 ? "" : "s");
            gimp_message(text);
            g_free(text);
        }
        *written_path = g_strdup(written);
    } else {
        gimp_message(error ? error : "no profile was measured");
        *status = GIMP_PDB_EXECUTION_ERROR;
    }
    murmex_host_free(written);
    murmex_host_free(error);
    murmex_host_profile_free(profile);
    murmex_host_camera_free(camera);
    job_free(&job);
    g_free(path);
}

/* ---- Registration --------------------------------------------------------- */

static void query(void)
{
    static GimpParamDef denoise_args[DENOISE_ARGS];
    denoise_args[0] = (GimpParamDef){GIMP_PDB_INT32, "run-mode", "The run mode { RUN-INTERACTIVE (0), RUN-NONINTERACTIVE (1) }"};
    denoise_args[1] = (GimpParamDef){GIMP_PDB_IMAGE, "image", "Input image"};
    denoise_args[2] = (GimpParamDef){GIMP_PDB_DRAWABLE, "drawable", "Input drawable"};
    denoise_args[3] = (GimpParamDef){GIMP_PDB_STRING, "profile",
                                     "Noise profile: \"auto\" (or empty) for the profile library's match for the "
                                     "image's camera and ISO, else one measured from the image; \"measure\" to "
                                     "measure one from the image; otherwise the path of a .dnp file"};
    for (int i = 0; i < DnHostScaleCount; ++i) {
        const DnHostScale* s = &DnHostScales[i];
        gchar* name = g_strdup(s->name);
        gchar* text = g_strdup_printf("%s, %g to %g (middle %g)", s->description, s->low, s->high, s->middle);
        denoise_args[DENOISE_FIXED_ARGS + i] = (GimpParamDef){GIMP_PDB_FLOAT, name, text};
    }
    denoise_args[DENOISE_ARGS - 3] = (GimpParamDef){GIMP_PDB_INT32, "suppress-halos", "Suppress halos (TRUE or FALSE)"};
    denoise_args[DENOISE_ARGS - 2] = (GimpParamDef){GIMP_PDB_INT32, "low-frequency",
                                                    "Also filter the coarsest noise (TRUE or FALSE)"};
    denoise_args[DENOISE_ARGS - 1] =
        (GimpParamDef){GIMP_PDB_INT32, "auto-settings",
                       "TRUE to choose all the settings for the image from its noise and the profile (the "
                       "settings given above are then not used), FALSE to use them"};
    gimp_install_procedure(DENOISE_PROC, "Remove noise with a measured noise profile",
                           "Removes photographic noise with a multi-scale filter whose strength follows a noise "
                           "profile: the profile library's profile for the image's camera and ISO, one measured from "
                           "the image, or a .dnp file. With a selection, only the selection changes.",
                           "Murmex", "Murmex", "2026", "Murmex _Noise Reduction…", "RGB*, GRAY*", GIMP_PLUGIN,
                           DENOISE_ARGS, 0, denoise_args, NULL);
    gimp_plugin_menu_register(DENOISE_PROC, "<Image>/Filters/Enhance");

    static const GimpParamDef profile_args[] = {
        {GIMP_PDB_INT32, "run-mode", "The run mode { RUN-INTERACTIVE (0), RUN-NONINTERACTIVE (1) }"},
        {GIMP_PDB_IMAGE, "image", "Input image"},
        {GIMP_PDB_DRAWABLE, "drawable", "Input drawable (its selected part is measured)"},
        {GIMP_PDB_STRING, "filename", "The .dnp file to write; empty to store it in the profile library"},
        {GIMP_PDB_INT32, "relaxed", "Accept less uniform patches (TRUE or FALSE)"},
    };
    static const GimpParamDef profile_results[] = {
        {GIMP_PDB_STRING, "filename", "The profile file written"},
    };
    gimp_install_procedure(PROFILE_PROC, "Measure a noise profile from the image",
                           "Measures a noise profile from flat patches of the drawable (of the selection when there "
                           "is one), fills its header from the image's Exif data and saves it as a .dnp file or "
                           "into the profile library.",
                           "Murmex", "Murmex", "2026", "Murmex _Measure Noise Profile…", "RGB*, GRAY*", GIMP_PLUGIN,
                           G_N_ELEMENTS(profile_args), G_N_ELEMENTS(profile_results), profile_args, profile_results);
    gimp_plugin_menu_register(PROFILE_PROC, "<Image>/Filters/Enhance");
}

static void run(const gchar* name, gint nparams, const GimpParam* param, gint* nreturn_vals, GimpParam** return_vals)
{
    static GimpParam values[2];
    static gchar* written_path;
    GimpPDBStatusType status = GIMP_PDB_SUCCESS;
    *nreturn_vals = 1;
    *return_vals = values;
    if (nparams < 3) {
        status = GIMP_PDB_CALLING_ERROR;
    } else if (strcmp(name, DENOISE_PROC) == 0) {
        run_denoise(nparams, param, &status);
    } else if (strcmp(name, PROFILE_PROC) == 0) {
        run_profile(nparams, param, &status, &written_path);
        if (status == GIMP_PDB_SUCCESS) {
            *nreturn_vals = 2;
            values[1].type = GIMP_PDB_STRING;
            values[1].data.d_string = written_path;
        }
    } else {
        status = GIMP_PDB_CALLING_ERROR;
    }
    values[0].type = GIMP_PDB_STATUS;
    values[0].data.d_status = status;
}

const GimpPlugInInfo PLUG_IN_INFO = {NULL, NULL, query, run};

MAIN()
