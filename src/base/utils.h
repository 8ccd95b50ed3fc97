// Byte-order, copy, rounding and scheduling helpers.
#pragma once

#include <cstddef>

// Reverses the four bytes of a 32-bit word.
unsigned int swap32(unsigned int v);
// Reverses the four bytes of a float's bit pattern.
float swapf32(float v);
// Copies n 32-bit words from src to dst (source first); the ranges must not overlap.
void move32(const void* src, void* dst, size_t n);
// Halves round away from zero: floor(x + 0.5) for x >= 0, ceil(x - 0.5) below.
int roundToNearest(float x);
// Gives the processor to any other ready thread.
void yield();
