// JRect: an integer rectangle; right and bottom lie one past the last column
// and row, so width() is right - left.
#pragma once

#include <algorithm>
#include <type_traits>

template <class T>
class JRect {
public:
    JRect() : left(0), top(0), right(0), bottom(0) {}
    JRect(T l, T t, T r, T b) : left(l), top(t), right(r), bottom(b) {}

    T width() const { return right - left; }
    T height() const { return bottom - top; }
    // No overflow check. For integers the product is formed in 64 bits and
    // wrapped back to T, so an oversized rectangle gives a wrong area rather
    // than undefined behaviour.
    T area() const
    {
        if constexpr (std::is_integral_v<T>)
            return static_cast<T>(static_cast<long long>(width()) * static_cast<long long>(height()));
        else
            return width() * height();
    }

    void scale(T s)
    {
        left *= s;
        top *= s;
        right *= s;
        bottom *= s;
    }

    void offset(T dx, T dy)
    {
        left += dx;
        right += dx;
        top += dy;
        bottom += dy;
    }

    // Strict: rectangles that only touch along an edge do not intersect, and
    // an empty rectangle intersects nothing.
    bool intersects(const JRect& o) const
    {
        return std::max(left, o.left) < std::min(right, o.right) &&
               std::max(top, o.top) < std::min(bottom, o.bottom);
    }

    T left, top, right, bottom;
};
