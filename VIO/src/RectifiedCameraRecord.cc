// The rectified left camera as a device camera record, shared by the entry
// point and by front ends that build maps for other rectification targets.

#include "RectifiedCameraRecord.h"

#include <cmath>
#include <cstdint>

#include "AR/Math/SE3.h"
#include "EntryPointRules.h"

namespace {

/// Unit quaternion (x, y, z, w) of a rotation matrix by the trace method:
/// from the trace when it is positive, otherwise from the largest diagonal
/// element, so that the square root is always taken of a value of at least 1.
void rotationToQuaternion(const AR::Math::Matrix33F& R, XrQuaterniondMRV_t& q) {
  const float trace = R(0, 0) + R(1, 1) + R(2, 2);
  float x, y, z, w;
  if (trace > 0.0f) {
    const float s = 2.0f * std::sqrt(trace + 1.0f);
    w = s / 4.0f;
    x = (R(2, 1) - R(1, 2)) / s;
    y = (R(0, 2) - R(2, 0)) / s;
    z = (R(1, 0) - R(0, 1)) / s;
  } else if (R(0, 0) > R(1, 1) && R(0, 0) > R(2, 2)) {
    const float s = 2.0f * std::sqrt(1.0f + R(0, 0) - R(1, 1) - R(2, 2));
    w = (R(2, 1) - R(1, 2)) / s;
    x = s / 4.0f;
    y = (R(0, 1) + R(1, 0)) / s;
    z = (R(0, 2) + R(2, 0)) / s;
  } else if (R(1, 1) > R(2, 2)) {
    const float s = 2.0f * std::sqrt(1.0f + R(1, 1) - R(0, 0) - R(2, 2));
    w = (R(0, 2) - R(2, 0)) / s;
    x = (R(0, 1) + R(1, 0)) / s;
    y = s / 4.0f;
    z = (R(1, 2) + R(2, 1)) / s;
  } else {
    const float s = 2.0f * std::sqrt(1.0f + R(2, 2) - R(0, 0) - R(1, 1));
    w = (R(1, 0) - R(0, 1)) / s;
    x = (R(0, 2) + R(2, 0)) / s;
    y = (R(1, 2) + R(2, 1)) / s;
    z = s / 4.0f;
  }
  q.x = double(x);
  q.y = double(y);
  q.z = double(z);
  q.w = double(w);
}

}  // namespace

namespace VIO {

/// Writes the rectified left camera into the caller's record: intrinsics
/// (bytes 64..191) and pose (192..247). Bytes 0..63 and 248..311 belong to
/// the caller and are not touched.
void writeRectifiedCamera(const AR::CV::Camera<float>& camera, const DeviceFrameParams& frame,
                          const AR::Math::SO3<float>& S, CameraCalibrationMRV& out) {
  const CamModel::CameraModel<float>& model = camera.getCamModel();
  int32_t width = 0, height = 0;
  VIO::tryTruncateToInt32(model.size(0), width);
  VIO::tryTruncateToInt32(model.size(1), height);
  out.width = width;
  out.height = height;
  out.cx = double(model.principalPoint(0));
  out.cy = double(model.principalPoint(1));
  out.fx = double(model.focalLength(0));
  out.fy = double(model.focalLength(1));
  for (int i = 0; i < 6; ++i) out.k[i] = double(model.radialDistortionCoeffs(i));
  out.p[0] = double(model.tangentialDistortionCoeffs(0));
  out.p[1] = double(model.tangentialDistortionCoeffs(1));
  // The record carries the feature noise as a standard deviation; the model
  // holds it as a variance in the two fields after the distortion model.
  out.noiseX = double(std::sqrt(model.maxValidDistortionRSq));
  out.noiseY = double(std::sqrt(model.maxValidUndistortionRSq));
  out.distortionModel = int32_t(model.model);

  // Pose: camera 0's inverse pose (device from camera 0) times S is the
  // device-from-rectified transform; the record holds its inverse,
  // rectified-from-device, i.e. orientation S^T R0 and position S^T t0.
  const AR::Math::SO3<float> E =
      AR::Math::SO3<float>::exp(AR::Math::Vec3F(frame.values[21], frame.values[22], frame.values[23]));
  const AR::Math::Vec3F t(frame.values[24], frame.values[25], frame.values[26]);
  AR::Math::Matrix33F R = E.matrix() * S.matrix();
  AR::Math::enforceRotation(R);
  const AR::Math::Matrix33F Rt = R.transpose();
  const AR::Math::Vec3F position = -(Rt * t);
  rotationToQuaternion(Rt, out.pose.orientation);
  out.pose.position.x = double(position(0));
  out.pose.position.y = double(position(1));
  out.pose.position.z = double(position(2));
}

}  // namespace VIO
