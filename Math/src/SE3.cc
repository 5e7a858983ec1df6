#include "AR/Math/SE3.h"

namespace AR {
namespace Math {

// Compiles every member in both precisions and exports them.
template class SE3<float>;
template class SE3<double>;

}  // namespace Math
}  // namespace AR
