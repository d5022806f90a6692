// The rectangle of the imaging and window calls, by position and size.
#pragma once

#include "kq/types.h"

// `T` is long or double. A width or height of 0 or below is empty.
template <class T>
struct KQRectT {
    T x, y, width, height;   // an aggregate: KQRectT<long>{0, 0, 10, 10}

    // From two opposite corners, either first; both corners are inside, so width = larger - smaller + 1 in both
    // instances.
    void SetRB(T left, T top, T right, T bottom);

    // The smallest rectangle that holds this one and `other`. An empty side gives the other side.
    void Union(const KQRectT& other);

    // The smallest rectangle that holds this one and the point, which is taken as a right and bottom edge: a point on
    // the far side adds one less than on the near side. An empty rectangle becomes (x, y, 1, 1).
    void Union(T px, T py);

    // Cuts this rectangle down to what it shares with `other`. Returns 1; or 0 with width and height 0 when either is
    // empty or they do not overlap (touching edges do not). `x` may then have been set, when only y failed.
    int Intersect(const KQRectT& other);

    // Whether either size is not above 0.
    bool Empty() const { return !(width > 0) || !(height > 0); }
};

extern template struct KQ_API KQRectT<long>;
extern template struct KQ_API KQRectT<double>;
