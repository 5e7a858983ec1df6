#pragma once

#include <cstdint>
#include <string>

#include "AR/Common/Macros.h"

/// The six lens distortion models. The numeric values are stored in
/// calibration records and compared, so they are fixed.
///
/// Meaning of the radial coefficients k0..k5 per model:
/// - LINEAR: none, no distortion.
/// - RADIAL_2_PARAMETERS: k0, k1 of the rational polynomial; k2..k5 zero.
/// - RADIAL_3_PARAMETERS: k0, k1, k2; k3..k5 zero.
/// - RADIAL_6_PARAMETERS: k0, k1, k2 numerator, k3, k4, k5 denominator.
/// - FISHEYE_1_PARAMETER: k0 is the field-of-view parameter omega (radians).
/// - FISHEYE_4_PARAMETERS: k0..k3 are the odd-power coefficients in the
///   incidence angle (equidistant model).
enum DistortionModel : uint32_t {
  LINEAR = 0,
  RADIAL_2_PARAMETERS = 1,
  RADIAL_3_PARAMETERS = 2,
  RADIAL_6_PARAMETERS = 3,
  FISHEYE_1_PARAMETER = 4,
  FISHEYE_4_PARAMETERS = 5,
};

namespace CamModel {

/// The model's name, identical to its enumerator ("LINEAR",
/// "RADIAL_2_PARAMETERS", ...). Aborts the process on a value outside 0..5.
AR_EXPORT std::string modelName(DistortionModel model);

/// How many of the six radial coefficients the model uses (0, 2, 3, 6, 1, 4
/// in enumeration order); the rest must be zero. Aborts on a value outside 0..5.
AR_EXPORT int maxNumRadialDistortionCoeffs(DistortionModel model);

}  // namespace CamModel
