#include "AR/Math/SO3.h"

namespace AR {
namespace Math {

// Compiles every member in both precisions and exports them.
template class SO3<float>;
template class SO3<double>;

}  // namespace Math
}  // namespace AR
