/*
 * A host written in C, using only the installed header and library: it
 * measures a noise profile from a synthetic noisy image, reads it back,
 * changes its settings, removes noise with worker threads and a progress
 * callback, cancels a run, and feeds the library a corrupt profile.
 *
 *   murmex_c_host <scratch directory>
 *
 * Prints "FAIL: ..." for every failed check and, at the end, either
 * "murmex_c_host: all checks passed" or the number of failures.
 */
#include <murmex/murmex.h>

#include <math.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int failures = 0;

#define CHECK(cond)                                                       \
    do {                                                                  \
        if (!(cond)) {                                                    \
            printf("FAIL: %s (line %d)\n", #cond, __LINE__);              \
            failures++;                                                   \
        }                                                                 \
    } while (0)

/* ---- The image ---------------------------------------------------------- */

enum { W = 512, H = 384, PATCH = 128 };

typedef struct Image {
    int width, height;
    uint16_t* pixels; /* RGBX */
    atomic_int puts;
    atomic_int rowsWritten;
} Image;

/* A small seeded generator (xorshift32) and Box-Muller normal values, so the
 * image is the same on every run. */
static uint32_t rngState;

static double uniform01(void)
{
    rngState ^= rngState << 13;
    rngState ^= rngState >> 17;
    rngState ^= rngState << 5;
    return ((double)rngState + 1.0) / 4294967297.0;
}

static double normal(void)
{
    const double u = uniform01(), v = uniform01();
    return sqrt(-2.0 * log(u)) * cos(6.283185307179586 * v);
}

static uint16_t clamp16(double v)
{
    if (v < 0.0)
        return 0;
    if (v > 65535.0)
        return 65535;
    return (uint16_t)(v + 0.5);
}

/* Twelve flat patches of different colours with Gaussian noise of the given
 * deviation on each of R, G and B. */
static void makeNoisyPatches(Image* img, double sigma, uint32_t seed)
{
    static const double colours[12][3] = {
        {52000, 50000, 47000}, {9000, 9000, 9000},    {30000, 30000, 30000}, {20000, 42000, 20000},
        {45000, 15000, 12000}, {12000, 18000, 44000}, {40000, 38000, 9000},  {25000, 12000, 30000},
        {60000, 60000, 60000}, {16000, 30000, 36000}, {36000, 24000, 16000}, {4000, 4000, 6000},
    };
    rngState = seed;
    img->width = W;
    img->height = H;
    img->pixels = malloc(sizeof(uint16_t) * 4 * W * H);
    atomic_init(&img->puts, 0);
    atomic_init(&img->rowsWritten, 0);
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++) {
            const double* c = colours[(y / PATCH) * (W / PATCH) + x / PATCH];
            uint16_t* p = img->pixels + 4 * ((size_t)y * W + x);
            for (int k = 0; k < 3; k++)
                p[k] = clamp16(c[k] + sigma * normal());
            p[3] = 65535;
        }
}

static void getScanline(void* ctx, int y, int x0, int x1, unsigned short* px)
{
    Image* img = ctx;
    memcpy(px, img->pixels + 4 * ((size_t)y * img->width + x0), sizeof(uint16_t) * 4 * (size_t)(x1 - x0 + 1));
}

static void putScanline(void* ctx, int y, int x0, int x1, unsigned short* px)
{
    Image* img = ctx;
    memcpy(img->pixels + 4 * ((size_t)y * img->width + x0), px, sizeof(uint16_t) * 4 * (size_t)(x1 - x0 + 1));
    atomic_fetch_add(&img->puts, 1);
    atomic_fetch_add(&img->rowsWritten, 1);
}

/* Variance of channel c over the interior of the patch at (px, py). */
static double patchVariance(const Image* img, int c, int px, int py)
{
    double sum = 0, sq = 0;
    int n = 0;
    for (int y = py * PATCH + 24; y < (py + 1) * PATCH - 24; y++)
        for (int x = px * PATCH + 24; x < (px + 1) * PATCH - 24; x++) {
            const double v = img->pixels[4 * ((size_t)y * img->width + x) + c];
            sum += v;
            sq += v * v;
            n++;
        }
    return sq / n - (sum / n) * (sum / n);
}

/* ---- Progress ------------------------------------------------------------ */

typedef struct Progress {
    int calls;
    int cancelAtCall; /* -1: never */
    char firstStep[256];
    float lastFraction;
    int decreased;
} Progress;

static int onProgress(void* ctx, const char* step, float fraction)
{
    Progress* p = ctx;
    if (p->calls == 0)
        snprintf(p->firstStep, sizeof p->firstStep, "%s", step);
    else if (fraction < p->lastFraction)
        p->decreased = 1;
    p->lastFraction = fraction;
    return p->calls++ == p->cancelAtCall ? 1 : 0;
}

typedef struct ProgressHost {
    Image* image;
    Progress progress;
} ProgressHost;

/* The same context serves the scanline and the progress callbacks. */
static void getViaHost(void* ctx, int y, int x0, int x1, unsigned short* px)
{
    getScanline(((ProgressHost*)ctx)->image, y, x0, x1, px);
}

static void putViaHost(void* ctx, int y, int x0, int x1, unsigned short* px)
{
    putScanline(((ProgressHost*)ctx)->image, y, x0, x1, px);
}

static int progressViaHost(void* ctx, const char* step, float fraction)
{
    return onProgress(&((ProgressHost*)ctx)->progress, step, fraction);
}

/* ---- Samples -------------------------------------------------------------- */

enum { MAX_SAMPLES = 128 };

typedef struct Samples {
    int calls;
    int count;
    int orderOk;
    DnNoiseSample records[MAX_SAMPLES];
} Samples;

static int onSample(void* ctx, int count, int index, const DnNoiseSample* record)
{
    Samples* s = ctx;
    if (index != s->calls)
        s->orderOk = 0;
    s->count = count;
    if (s->calls < MAX_SAMPLES)
        s->records[s->calls] = *record;
    s->calls++;
    return 0;
}

static void initSamples(Samples* s)
{
    memset(s, 0, sizeof *s);
    s->orderOk = 1;
}

/* ---- Parameters ----------------------------------------------------------- */

static DnFilterParams middles(void)
{
    DnFilterParams p;
    memset(&p, 0, sizeof p);
    for (int i = 0; i < DnHostScaleCount; i++)
        *DnHostScaleField(&p, i) = DnHostScales[i].middle;
    p.suppressHalos = 1;
    p.width = W;
    p.height = H;
    return p;
}

/* The settings blocks agree within tolerance (relative to the scale's
 * width; 0 asks for identical values). */
static int sameSettings(const DnFilterParams* a, const DnFilterParams* b, float tolerance)
{
    for (int i = 0; i < DnHostScaleCount; i++) {
        const float x = *DnHostScaleField((DnFilterParams*)a, i);
        const float y = *DnHostScaleField((DnFilterParams*)b, i);
        const float span = DnHostScales[i].high - DnHostScales[i].low;
        if (tolerance == 0.0f ? x != y : fabsf(x - y) > tolerance * span) {
            printf("%s: %.9g against %.9g\n", DnHostScales[i].name, x, y);
            return 0;
        }
    }
    return a->suppressHalos == b->suppressHalos && a->lowFrequency == b->lowFrequency;
}

/* ---- Standard output capture --------------------------------------------- */

/* Runs a denoise with a corrupt profile block while standard output goes to
 * a temporary file, and returns the entry point's result; the captured text
 * is left in out. */
static int removeNoiseCapturingStdout(Image* img, char* out, size_t outSize)
{
    static const unsigned char junk[24] = {0xde, 0xad, 0xbe, 0xef, 0, 0, 0, 20, 1, 2, 3, 4,
                                           5,    6,    7,    8,    9, 9, 9, 9,  9, 9, 9, 9};
    DnFilterParams p = middles();
    FILE* capture = tmpfile();
    if (!capture)
        return -1;
    fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    dup2(fileno(capture), STDOUT_FILENO);
    const int rc = DnRemoveNoise2(img, &p, 0, 0, W, H, junk, (int)sizeof junk, getScanline, putScanline, NULL);
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    rewind(capture);
    const size_t n = fread(out, 1, outSize - 1, capture);
    out[n] = '\0';
    fclose(capture);
    return rc;
}

/* ---- The checks ----------------------------------------------------------- */

int main(int argc, char** argv)
{
    const char* dir = argc > 1 ? argv[1] : ".";
    char path[4096];
    snprintf(path, sizeof path, "%s/host-profile.dnp", dir);
    remove(path);

    /* Tuning values. */
    CHECK(DnSetDenoiseLevels(1) == 1);
    CHECK(DnSetDenoiseLevels(6) == 1);
    CHECK(DnSetDenoiseLevels(-1) == 0);
    CHECK(DnSetStripWidth(3400) == 0);
    CHECK(DnSetRowsPerThread(-1) == 0);
    DnFreeMemory(NULL);

    /* 1. Measure a profile from the image. */
    Image img;
    makeNoisyPatches(&img, 1200.0, 2024u);
    unsigned char* profile = NULL;
    int profileLength = 0;
    CHECK(DnBuildProfile2(&img, &profile, &profileLength, getScanline, W, H, 0, NULL) == 0);
    CHECK(profile != NULL && profileLength > 0);
    CHECK(atomic_load(&img.puts) == 0);
    if (!profile)
        return 1;

    /* 2. Its samples, twice from the block: identical, word for word. */
    Samples first, second;
    initSamples(&first);
    initSamples(&second);
    CHECK(DnReadProfileSamples2(NULL, profile, profileLength, NULL) == 0);
    CHECK(DnReadProfileSamples2(&first, profile, profileLength, onSample) == 0);
    CHECK(DnReadProfileSamples2(&second, profile, profileLength, onSample) == 0);
    CHECK(first.calls >= 4 && first.calls <= 72);
    CHECK(first.count == first.calls && first.orderOk);
    CHECK(second.calls == first.calls);
    CHECK(memcmp(first.records, second.records, sizeof(DnNoiseSample) * (size_t)first.calls) == 0);
    for (int i = 0; i < first.calls && i < MAX_SAMPLES; i++) {
        CHECK(first.records[i].noiseY[0] > 0.0f);
        CHECK(first.records[i].y >= 0.0f && first.records[i].y <= 1.0f);
    }

    /* 3. Into a file with the middle settings; read back on the host scales. */
    DnFilterParams mid = middles();
    CHECK(DnWriteProfile(path, profile, profileLength, &mid) == 0);
    DnFilterParams back;
    memset(&back, 0, sizeof back);
    back.width = 77;
    unsigned char* block = NULL;
    int blockLength = 0;
    CHECK(DnReadProfile(path, &block, &blockLength, &back) == 0);
    CHECK(block != NULL && blockLength > 0);
    CHECK(sameSettings(&back, &mid, 0.0f)); /* the middles come back exactly */
    CHECK(back.width == 77);

    /* The file's samples are the block's. */
    Samples fromFile;
    initSamples(&fromFile);
    CHECK(DnReadProfileSamples(&fromFile, path, onSample) == 0);
    CHECK(fromFile.calls == first.calls);
    CHECK(memcmp(fromFile.records, first.records, sizeof(DnNoiseSample) * (size_t)first.calls) == 0);

    /* 4. Change the settings and read them back: equal up to the rounding of
     * two single-precision conversions. */
    DnFilterParams changed = middles();
    changed.lumStrength = 15.0f;
    changed.lumSmoothness = 5.0f;
    changed.chromaStrength = 20.0f;
    changed.chromaContrast = 0.0f;
    changed.sharpenAmount = 100.0f;
    changed.sharpenRadius = 0.4f;
    changed.suppressHalos = 0;
    changed.lowFrequency = 1;
    CHECK(DnWriteProfile(path, block, blockLength, &changed) == 0);
    DnFreeMemory(block);
    memset(&back, 0, sizeof back);
    CHECK(DnReadProfile(path, NULL, NULL, &back) == 0);
    CHECK(sameSettings(&back, &changed, 1e-5f));

    /* 5. Remove noise in place with worker threads and progress. */
    double before[3];
    for (int c = 0; c < 3; c++)
        before[c] = patchVariance(&img, c, 1, 1);
    ProgressHost host;
    memset(&host, 0, sizeof host);
    host.image = &img;
    host.progress.cancelAtCall = -1;
    DnFilterParams run = middles();
    run.threads = 2;
    CHECK(DnRemoveNoise2(&host, &run, 0, 0, W, H, profile, profileLength, getViaHost, putViaHost,
                         progressViaHost) == 0);
    CHECK(host.progress.calls >= 2);
    CHECK(strncmp(host.progress.firstStep, "Removing noise: ", 16) == 0);
    CHECK(!host.progress.decreased);
    CHECK(host.progress.lastFraction == 1.0f);
    CHECK(atomic_load(&img.rowsWritten) == H);
    for (int c = 0; c < 3; c++)
        CHECK(patchVariance(&img, c, 1, 1) < before[c]);

    /* 6. Cancel a second run from the callback: 0, and not every row. */
    Image second_img;
    makeNoisyPatches(&second_img, 1200.0, 77u);
    ProgressHost cancelHost;
    memset(&cancelHost, 0, sizeof cancelHost);
    cancelHost.image = &second_img;
    cancelHost.progress.cancelAtCall = 1; /* call 0 names the step */
    DnSetRowsPerThread(16);
    CHECK(DnRemoveNoise2(&cancelHost, &run, 0, 0, W, H, profile, profileLength, getViaHost, putViaHost,
                         progressViaHost) == 0);
    DnSetRowsPerThread(-1);
    CHECK(atomic_load(&second_img.rowsWritten) > 0);
    CHECK(atomic_load(&second_img.rowsWritten) < H);

    /* 7. A corrupt profile: 1 and the error line on standard output. */
    char captured[4096];
    const int putsBefore = atomic_load(&second_img.puts);
    CHECK(removeNoiseCapturingStdout(&second_img, captured, sizeof captured) == 1);
    CHECK(strncmp(captured, "Murmex error: ", 14) == 0);
    CHECK(strchr(captured, '\n') == captured + strlen(captured) - 1);
    CHECK(atomic_load(&second_img.puts) == putsBefore);

    /* A missing block: the empty path fails to open. */
    CHECK(DnReadProfileSamples2(NULL, NULL, 0, onSample) == 1);

    DnFreeMemory(profile);
    free(img.pixels);
    free(second_img.pixels);
    remove(path);

    if (failures == 0) {
        printf("murmex_c_host: all checks passed\n");
        return 0;
    }
    printf("murmex_c_host: %d checks failed\n", failures);
    return 1;
}
