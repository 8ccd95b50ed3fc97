#include "base/utils.h"

#include <sched.h>

#include <cmath>
#include <cstring>

unsigned int swap32(unsigned int v)
{
    return (v >> 24) | ((v >> 8) & 0x0000ff00u) | ((v << 8) & 0x00ff0000u) | (v << 24);
}

float swapf32(float v)
{
    unsigned int bits;
    std::memcpy(&bits, &v, sizeof bits);
    bits = swap32(bits);
    float r;
    std::memcpy(&r, &bits, sizeof r);
    return r;
}

void move32(const void* src, void* dst, size_t n)
{
    std::memcpy(dst, src, n * 4);
}

int roundToNearest(float x)
{
    if (x >= 0.0f)
        return static_cast<int>(std::floor(x + 0.5f));
    return static_cast<int>(std::ceil(x - 0.5f));
}

void yield()
{
    sched_yield();
}
