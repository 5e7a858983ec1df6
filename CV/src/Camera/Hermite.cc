#include "AR/CV/Camera/Hermite.h"

namespace AR {
namespace CV {

// Every member compiles in both precisions; the fitting templates are
// instantiated for the camera's function objects where the camera uses them.
template class HermiteSplineInterpolation<float>;
template class HermiteSplineInterpolation<double>;

}  // namespace CV
}  // namespace AR
