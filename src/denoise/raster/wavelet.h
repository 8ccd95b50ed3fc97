// buildIncrWavelet: the undecimated (a trous) multi-scale decomposition of a
// plane, made of incremental nodes. For level k = 0 .. levels - 1, with
// src = input for k = 0 and smooth[k - 1] after, and spacing s = 2^k:
//   smooth[k]  = JIncrRaster_DirectedBlur(src, s)
//   details[k] = JIncrRaster_Subtract(src, smooth[k])
// so input = smooth[levels - 1] + details[0] + ... + details[levels - 1], and
// every plane has the input's size.
#pragma once

#include <atomic>

class JIncrRaster;

// Fills details[0 .. levels - 1] and smooth[0 .. levels - 1] with new nodes
// that the caller owns (and deletes, along with the arrays). Creates nothing
// when levels <= 0. From level 30 on a spacing's margin 2s + 4 no longer
// fits in an int: the smoothing node throws JEx, and the nodes built so far
// are deleted and their entries set to null.
void buildIncrWavelet(JIncrRaster* input, int levels, JIncrRaster** details, JIncrRaster** smooth);

// The smoothing kernel buildIncrWavelet uses: 0, the default, selects
// JIncrRaster_DirectedBlur; 1..10 select JIncrRaster_FlexBlur with that value
// as its selector; anything else counts as 0. Nothing in the engine changes it:
// it is a process-wide experiment switch, kept deliberately. Atomic because
// graphs may be built on several threads while a test flips it.
extern std::atomic<int> waveletSmoothingKernel;
