#include "AR/PL/PLError.h"

namespace {
thread_local int tlsLastError = AR_PL_ERROR_NONE;
}

int arGetLastError(void) { return tlsLastError; }

void arSetLastError(int error) { tlsLastError = error; }
