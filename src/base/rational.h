// JRational: a fraction of two 32-bit integers approximating a double.
//
// JRational(x) searches the Stern-Brocot tree from the bounds 0/1 and 1/0,
// keeping the mediant with the smallest relative error |value - x| / x, and
// stops as soon as that error is at most 0.0001. |x| <= 1e-20 gives 0/1, and
// so do infinities and NaN; a negative x gives the fraction of -x with its
// numerator negated. When the next mediant would not fit in 32 bits (|x|
// beyond 2^31, or so small that 1/n is still too far from it) the best
// fraction found so far is kept. The search takes one step per tree level:
// about 1/|x| steps for a tiny x.
#pragma once

class JRational {
public:
    explicit JRational(double x);

    int num() const { return num_; }
    int denom() const { return denom_; }

private:
    int num_ = 0;
    int denom_ = 1;
};
