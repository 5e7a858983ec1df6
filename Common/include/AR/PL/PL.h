#pragma once

/// The platform layer: the few operating-system services the library uses,
/// as plain `ar*` functions so that porting means reimplementing one folder.
#include "AR/PL/PLError.h"
#include "AR/PL/PLFile.h"
#include "AR/PL/PLLog.h"
#include "AR/PL/PLMemory.h"
#include "AR/PL/PLMutex.h"
#include "AR/PL/PLTime.h"
