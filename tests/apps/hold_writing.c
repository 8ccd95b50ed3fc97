// Preloaded into the program by the interrupt tests that signal it while it
// writes its output. The program calls malloc_trim once in its "Writing"
// stage, after the rows and before the output takes its place; here that
// call first waits (up to a minute, or until a signal handler returns), so
// that the test finds the program in that stage however fast the rows were
// written. Without it the stage can be over within a few milliseconds: the
// rows go to the file while the library works.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>
#include <time.h>

int malloc_trim(size_t pad)
{
    const struct timespec wait = {60, 0};
    nanosleep(&wait, NULL);
    int (*next)(size_t) = (int (*)(size_t))dlsym(RTLD_NEXT, "malloc_trim");
    return next ? next(pad) : 0;
}
