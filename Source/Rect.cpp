// Rectangles by position and size.
#include "kq/rect.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace {

// Whole numbers wrap at the ends of their range, as they do in the records that hold them.
template <class T>
T Sum(T a, T b) {
    if constexpr (std::is_integral_v<T>)
        return T(std::make_unsigned_t<T>(a) + std::make_unsigned_t<T>(b));
    else
        return a + b;
}

template <class T>
T Difference(T a, T b) {
    if constexpr (std::is_integral_v<T>)
        return T(std::make_unsigned_t<T>(a) - std::make_unsigned_t<T>(b));
    else
        return a - b;
}

}   // namespace

template <class T>
void KQRectT<T>::SetRB(T left, T top, T right, T bottom) {
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
    x = left;
    y = top;
    width = Sum(Difference(right, left), T(1));
    height = Sum(Difference(bottom, top), T(1));
}

template <class T>
void KQRectT<T>::Union(const KQRectT& other) {
    if (Empty()) {
        *this = other;
        return;
    }
    if (other.Empty()) return;
    T right = std::max(Sum(x, width), Sum(other.x, other.width));
    T bottom = std::max(Sum(y, height), Sum(other.y, other.height));
    x = std::min(x, other.x);
    y = std::min(y, other.y);
    width = Difference(right, x);
    height = Difference(bottom, y);
}

template <class T>
void KQRectT<T>::Union(T px, T py) {
    if (Empty()) {
        *this = {px, py, 1, 1};
        return;
    }
    T right = std::max(Sum(x, width), px);
    T bottom = std::max(Sum(y, height), py);
    x = std::min(x, px);
    y = std::min(y, py);
    width = Difference(right, x);
    height = Difference(bottom, y);
}

template <class T>
int KQRectT<T>::Intersect(const KQRectT& other) {
    T left = std::max(x, other.x), right = std::min(Sum(x, width), Sum(other.x, other.width));
    T top = std::max(y, other.y), bottom = std::min(Sum(y, height), Sum(other.y, other.height));
    if (Empty() || other.Empty() || !(right > left)) {
        width = height = 0;
        return 0;
    }
    x = left;
    if (!(bottom > top)) {
        width = height = 0;
        return 0;
    }
    y = top;
    width = Difference(right, left);
    height = Difference(bottom, top);
    return 1;
}

template struct KQRectT<long>;
template struct KQRectT<double>;
