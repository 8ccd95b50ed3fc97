#include "base/rational.h"

#include <climits>
#include <cmath>

JRational::JRational(double x)
{
    // Not-a-number and infinities have no fraction; they give 0/1 as well
    // rather than a search that never gets close.
    if (std::fabs(x) <= 1e-20 || !std::isfinite(x))
        return;
    const bool negative = x < 0.0;
    if (negative)
        x = -x;

    long long lowNum = 0, lowDen = 1;
    long long highNum = 1, highDen = 0;
    double bestError = INFINITY;
    long long bestNum = 0, bestDen = 1;
    while (bestError > 0.0001) {
        const long long n = lowNum + highNum;
        const long long d = lowDen + highDen;
        if (n > INT_MAX || d > INT_MAX)
            break;
        const double value = static_cast<double>(n) / static_cast<double>(d);
        const double error = std::fabs(value - x) / x;
        if (error < bestError) {
            bestError = error;
            bestNum = n;
            bestDen = d;
        }
        if (value < x) {
            lowNum = n;
            lowDen = d;
        } else {
            highNum = n;
            highDen = d;
        }
    }
    num_ = static_cast<int>(negative ? -bestNum : bestNum);
    denom_ = static_cast<int>(bestDen);
}
