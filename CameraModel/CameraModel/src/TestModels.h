#pragma once

// Realistic lens models shared by the distortion model tests: a 640x480
// wide-angle tracking camera with one set of coefficients per model.

#include <string>
#include <vector>

#include "CameraModel/CameraModel.h"

namespace CamModelTest {

/// The model with the given coefficients and both limits at 81.
template <typename PREC>
CamModel::CameraModel<PREC> makeModel(DistortionModel model, const std::vector<double>& k) {
  CamModel::CameraModel<PREC> m;
  m.size = AR::Math::Vector<PREC, 2>(640, 480);
  m.principalPoint = AR::Math::Vector<PREC, 2>(320.5, 240.25);
  m.focalLength = AR::Math::Vector<PREC, 2>(280, 281);
  for (size_t i = 0; i < k.size() && i < 6; ++i) m.radialDistortionCoeffs(int(i)) = PREC(k[i]);
  m.model = model;
  return m;
}

struct ModelCase {
  DistortionModel model;
  std::vector<double> k;
};

/// One calibrated-looking coefficient set per model.
inline std::vector<ModelCase> realisticModels() {
  return {{LINEAR, {}},
          {RADIAL_2_PARAMETERS, {-0.28, 0.07}},
          {RADIAL_3_PARAMETERS, {-0.3, 0.1, -0.015}},
          {RADIAL_6_PARAMETERS, {0.35, -0.04, 0.002, 0.7, 0.03, -0.001}},
          {FISHEYE_1_PARAMETER, {0.92}},
          {FISHEYE_4_PARAMETERS, {-0.012, 0.004, -0.0012, 0.0002}}};
}

}  // namespace CamModelTest
