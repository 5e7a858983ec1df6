#pragma once

// Internal pieces of the per-method filter, shared with its tests.

#include "AR/Common/LogFilter.h"

namespace AR {
namespace Common {

/// Removes `node` from the children of `parentNode`. A node that is not a
/// child of that parent means the tree is inconsistent: it is reported and
/// false returned.
bool detachChildNode(LogFilterNode& parentNode, LogFilterNode& node);

}  // namespace Common
}  // namespace AR
