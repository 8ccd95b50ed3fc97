// JImageLib: process-wide image values shared by every layer.
#pragma once

namespace JImageLib {

// Channel order of every YCrCb triple, and of the per-channel arrays of
// settings and noise maps. Y is 0..1; Cr and Cb are offset so that a neutral
// grey has Cr = Cb = 0.5.
enum YCrCbIndex {
    Y = 0,
    Cr = 1,
    Cb = 2,
};

}  // namespace JImageLib
