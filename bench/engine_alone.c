/*
 * The engine alone through the C interface, as the reference for the Python
 * module's overhead (bench/python_overhead.py): denoises a packed 16-bit RGBX
 * image held in memory with memcpy scanline callbacks, the cheapest a host
 * can be, and prints the seconds of each DnRemoveNoise2 call: elapsed, and
 * processor time of all threads.
 *
 * usage: murmex_engine_alone IMAGE.rgb16 WIDTH HEIGHT PROFILE.dnp THREADS RUNS [OUT.rgb16]
 *   IMAGE.rgb16 is packed native-endian 16-bit RGB; the settings are the
 *   defaults (the middle of every scale, no sharpening); OUT.rgb16 receives
 *   the result of the last run, as RGB.
 */
#define _POSIX_C_SOURCE 199309L
#include <murmex/murmex.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef struct {
    const unsigned short* in;
    unsigned short* out;
    int width;
} Buffers;

static void get(void* c, int y, int x0, int x1, unsigned short* px)
{
    const Buffers* b = c;
    memcpy(px, b->in + ((size_t)y * b->width + x0) * 4, (size_t)(x1 - x0 + 1) * 8);
}

static void put(void* c, int y, int x0, int x1, unsigned short* px)
{
    const Buffers* b = c;
    memcpy(b->out + ((size_t)y * b->width + x0) * 4, px, (size_t)(x1 - x0 + 1) * 8);
}

static double seconds(clockid_t clock)
{
    struct timespec t;
    clock_gettime(clock, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

int main(int argc, char** argv)
{
    if (argc < 7) {
        fprintf(stderr, "usage: %s IMAGE.rgb16 WIDTH HEIGHT PROFILE.dnp THREADS RUNS [OUT.rgb16]\n", argv[0]);
        return 2;
    }
    const int width = atoi(argv[2]), height = atoi(argv[3]), threads = atoi(argv[5]), runs = atoi(argv[6]);
    const size_t pixels = (size_t)width * height;
    unsigned short* rgb = malloc(pixels * 6);
    unsigned short* in = malloc(pixels * 8);
    unsigned short* out = malloc(pixels * 8);
    FILE* f = fopen(argv[1], "rb");
    if (!rgb || !in || !out || !f || fread(rgb, 6, pixels, f) != pixels) {
        fprintf(stderr, "cannot read %s\n", argv[1]);
        return 1;
    }
    fclose(f);
    for (size_t i = 0; i < pixels; ++i) {
        memcpy(in + i * 4, rgb + i * 3, 6);
        in[i * 4 + 3] = 0;
    }

    unsigned char* profile = NULL;
    int profileLength = 0;
    if (DnReadProfile(argv[4], &profile, &profileLength, NULL) != 0)
        return 1;

    DnFilterParams p;
    memset(&p, 0, sizeof p);
    for (int i = 0; i < DnHostScaleCount; ++i)
        *DnHostScaleField(&p, i) =
            strcmp(DnHostScales[i].name, "sharpen-amount") == 0 ? DnHostScales[i].low : DnHostScales[i].middle;
    p.suppressHalos = 1;
    p.threads = threads;
    p.width = width;
    p.height = height;

    Buffers b = {in, out, width};
    for (int run = 0; run < runs; ++run) {
        const double wall = seconds(CLOCK_MONOTONIC), cpu = seconds(CLOCK_PROCESS_CPUTIME_ID);
        if (DnRemoveNoise2(&b, &p, 0, 0, width, height, profile, profileLength, get, put, NULL) != 0)
            return 1;
        printf("%.3f %.3f\n", seconds(CLOCK_MONOTONIC) - wall, seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu);
        fflush(stdout);
    }
    DnFreeMemory(profile);

    if (argc > 7) {
        for (size_t i = 0; i < pixels; ++i)
            memcpy(rgb + i * 3, out + i * 4, 6);
        f = fopen(argv[7], "wb");
        if (!f || fwrite(rgb, 6, pixels, f) != pixels || fclose(f) != 0) {
            fprintf(stderr, "cannot write %s\n", argv[7]);
            return 1;
        }
    }
    free(rgb);
    free(in);
    free(out);
    return 0;
}
