// The DirectShow filter interface; the library only takes and releases it.
#pragma once

#include "platform/standin/unknwn.h"

inline constexpr IID IID_IBaseFilter = {
    0x56a86895, 0x0ad4, 0x11ce, {0xb0, 0x3a, 0x00, 0x20, 0xaf, 0x0b, 0xa7, 0x70}};

struct IBaseFilter : IUnknown {};
STANDIN_INTERFACE_ID(IBaseFilter);
