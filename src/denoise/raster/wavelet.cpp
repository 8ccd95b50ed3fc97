#include "denoise/raster/wavelet.h"

#include <cstdint>

#include "denoise/raster/directed_blur.h"
#include "denoise/raster/flex_blur.h"
#include "denoise/raster/subtract.h"

std::atomic<int> waveletSmoothingKernel{0};

void buildIncrWavelet(JIncrRaster* input, int levels, JIncrRaster** details, JIncrRaster** smooth)
{
    const int kernel = waveletSmoothingKernel.load(std::memory_order_relaxed);
    int k = 0;
    try {
        for (; k < levels; ++k) {
            JIncrRaster* src = k == 0 ? input : smooth[k - 1];
            // 2^k as a 32-bit int: from k = 32 on the bit is shifted out and
            // the spacing is 0; at k = 31 it wraps to a negative value, which
            // the smoothing nodes reject.
            const int spacing = k < 32 ? static_cast<int>(static_cast<uint32_t>(1) << k) : 0;
            smooth[k] = nullptr;
            if (kernel >= 1 && kernel <= 10)
                smooth[k] = new JIncrRaster_FlexBlur(*src, spacing, kernel);
            else
                smooth[k] = new JIncrRaster_DirectedBlur(*src, spacing);
            details[k] = new JIncrRaster_Subtract(*src, *smooth[k]);
        }
    } catch (...) {
        // The caller cannot tell how far the arrays were filled: undo this level
        // and the ones before it.
        for (int j = k; j >= 0; --j) {
            if (j < k)
                delete details[j];
            delete smooth[j];
            details[j] = nullptr;
            smooth[j] = nullptr;
        }
        throw;
    }
}
