#include "Rig.h"

#include <algorithm>
#include <cmath>

namespace StereoMaps {

Pose compose(const Pose& a, const Pose& b) {
  Pose out;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      double sum = 0.0;
      for (int k = 0; k < 3; ++k) sum += a.R[r * 3 + k] * b.R[k * 3 + c];
      out.R[r * 3 + c] = sum;
    }
    double sum = a.t[r];
    for (int k = 0; k < 3; ++k) sum += a.R[r * 3 + k] * b.t[k];
    out.t[r] = sum;
  }
  return out;
}

Pose inverse(const Pose& pose) {
  Pose out;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) out.R[r * 3 + c] = pose.R[c * 3 + r];
  for (int r = 0; r < 3; ++r)
    out.t[r] = -(out.R[r * 3 + 0] * pose.t[0] + out.R[r * 3 + 1] * pose.t[1] + out.R[r * 3 + 2] * pose.t[2]);
  return out;
}

void toPoseRecord(const Pose& pose, XrPosedMRV_t& record) {
  const double* R = pose.R;
  const double trace = R[0] + R[4] + R[8];
  double x, y, z, w;
  // Take the largest of the four squared components as the pivot so the
  // division below never divides by a small number.
  if (trace > 0.0) {
    const double s = 2.0 * std::sqrt(1.0 + trace);
    w = 0.25 * s;
    x = (R[7] - R[5]) / s;
    y = (R[2] - R[6]) / s;
    z = (R[3] - R[1]) / s;
  } else if (R[0] > R[4] && R[0] > R[8]) {
    const double s = 2.0 * std::sqrt(1.0 + R[0] - R[4] - R[8]);
    w = (R[7] - R[5]) / s;
    x = 0.25 * s;
    y = (R[1] + R[3]) / s;
    z = (R[2] + R[6]) / s;
  } else if (R[4] > R[8]) {
    const double s = 2.0 * std::sqrt(1.0 + R[4] - R[0] - R[8]);
    w = (R[2] - R[6]) / s;
    x = (R[1] + R[3]) / s;
    y = 0.25 * s;
    z = (R[5] + R[7]) / s;
  } else {
    const double s = 2.0 * std::sqrt(1.0 + R[8] - R[0] - R[4]);
    w = (R[3] - R[1]) / s;
    x = (R[2] + R[6]) / s;
    y = (R[5] + R[7]) / s;
    z = 0.25 * s;
  }
  const double n = std::sqrt(x * x + y * y + z * z + w * w);
  const double sign = w < 0.0 ? -1.0 : 1.0;
  record.orientation.x = sign * x / n;
  record.orientation.y = sign * y / n;
  record.orientation.z = sign * z / n;
  record.orientation.w = sign * w / n;
  record.position.x = pose.t[0];
  record.position.y = pose.t[1];
  record.position.z = pose.t[2];
}

Pose fromPoseRecord(const XrPosedMRV_t& record) {
  double x = record.orientation.x, y = record.orientation.y, z = record.orientation.z,
         w = record.orientation.w;
  const double n = std::sqrt(x * x + y * y + z * z + w * w);
  Pose p;
  if (n > 0.0) {
    x /= n;
    y /= n;
    z /= n;
    w /= n;
    p.R[0] = 1 - 2 * (y * y + z * z);
    p.R[1] = 2 * (x * y - z * w);
    p.R[2] = 2 * (x * z + y * w);
    p.R[3] = 2 * (x * y + z * w);
    p.R[4] = 1 - 2 * (x * x + z * z);
    p.R[5] = 2 * (y * z - x * w);
    p.R[6] = 2 * (x * z - y * w);
    p.R[7] = 2 * (y * z + x * w);
    p.R[8] = 1 - 2 * (x * x + y * y);
  }
  p.t[0] = record.position.x;
  p.t[1] = record.position.y;
  p.t[2] = record.position.z;
  return p;
}

double baselineMetres(const Rig& rig) {
  // A camera-from-device pose has the camera centre as its inverse's translation.
  const Pose c0 = inverse(fromPoseRecord(rig.device.cameras[0].pose));
  const Pose c1 = inverse(fromPoseRecord(rig.device.cameras[1].pose));
  const double dx = c1.t[0] - c0.t[0], dy = c1.t[1] - c0.t[1], dz = c1.t[2] - c0.t[2];
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

}  // namespace StereoMaps
