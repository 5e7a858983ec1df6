/* Compiled as C: the record header, its compile-time layout checks included, must be valid C. */
#include "StereoRectifyWrapper.h"
