// The table of the reference moves.
#include "Source/Pixels.h"

namespace kq {

namespace {

template <Form source>
PixelMove MoveTo(Form target) {
    switch (target) {
    case Form::Argb: return MovePixel<source, Form::Argb>;
    case Form::Rgb555: return MovePixel<source, Form::Rgb555>;
    case Form::Bgr: return MovePixel<source, Form::Bgr>;
    case Form::Bgrx: return MovePixel<source, Form::Bgrx>;
    default: return nullptr;
    }
}

}   // namespace

PixelMove PlainMove(Form source, Form target) {
    switch (source) {
    case Form::Argb: return MoveTo<Form::Argb>(target);
    case Form::Rgb555: return MoveTo<Form::Rgb555>(target);
    case Form::Bgr: return MoveTo<Form::Bgr>(target);
    case Form::Bgrx: return MoveTo<Form::Bgrx>(target);
    case Form::Byte: return target == Form::Byte ? MovePixel<Form::Byte, Form::Byte> : nullptr;
    }
    return nullptr;
}

}   // namespace kq
