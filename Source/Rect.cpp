// Rectangles by position and size.
#include "kq/rect.h"

#include <algorithm>

template <class T>
void KQRectT<T>::SetRB(T left, T top, T right, T bottom) {
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
    x = left;
    y = top;
    width = right - left + 1;
    height = bottom - top + 1;
}

template <class T>
void KQRectT<T>::Union(const KQRectT& other) {
    if (other.Empty()) return;
    if (Empty()) {
        *this = other;
        return;
    }
    T right = std::max(x + width, other.x + other.width);
    T bottom = std::max(y + height, other.y + other.height);
    x = std::min(x, other.x);
    y = std::min(y, other.y);
    width = right - x;
    height = bottom - y;
}

template <class T>
void KQRectT<T>::Union(T px, T py) {
    if (Empty()) {
        *this = {px, py, 1, 1};
        return;
    }
    T right = std::max(x + width, px);
    T bottom = std::max(y + height, py);
    x = std::min(x, px);
    y = std::min(y, py);
    width = right - x;
    height = bottom - y;
}

template <class T>
int KQRectT<T>::Intersect(const KQRectT& other) {
    T left = std::max(x, other.x), right = std::min(x + width, other.x + other.width);
    T top = std::max(y, other.y), bottom = std::min(y + height, other.y + other.height);
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
    width = right - left;
    height = bottom - top;
    return 1;
}

template class KQRectT<long>;
template class KQRectT<double>;
