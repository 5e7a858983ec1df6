#include "CustomRectify.h"

#include <cmath>
#include <string>

#include <AR/CV/Image/Image.h>
#include <AR/CV/Stereo/Rectify.h>
#include <AR/Common/ArrayView.h>
#include <AR/Math/SE3.h>

#include "DeviceCalibration.h"
#include "RectifyMap.h"

namespace StereoMaps {
namespace {

constexpr uint32_t kMaxMapSide = 16384;

/// Unit quaternion (x, y, z, w) of a rotation by the trace method, in float
/// like the entry point's, so both write the same record.
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

/// The rectified left camera: its intrinsics, and the pose rectified-from-
/// device = (device-from-camera-0 · S)⁻¹, i.e. orientation Sᵀ·R0 and position
/// Sᵀ·t0.
void writeRectifiedCamera(const AR::CV::Camera<float>& camera, const DeviceFrameParams& frame,
                          const AR::Math::SO3<float>& S, CameraCalibrationMRV& out) {
  const CamModel::CameraModel<float>& model = camera.getCamModel();
  // Target sizes are checked whole numbers well inside int32.
  out.width = int32_t(model.size(0));
  out.height = int32_t(model.size(1));
  out.cx = double(model.principalPoint(0));
  out.cy = double(model.principalPoint(1));
  out.fx = double(model.focalLength(0));
  out.fy = double(model.focalLength(1));
  for (int i = 0; i < 6; ++i) out.k[i] = double(model.radialDistortionCoeffs(i));
  out.p[0] = double(model.tangentialDistortionCoeffs(0));
  out.p[1] = double(model.tangentialDistortionCoeffs(1));
  // The model keeps the feature noise as a variance; the record wants the
  // standard deviation.
  out.noiseX = double(std::sqrt(model.maxValidDistortionRSq));
  out.noiseY = double(std::sqrt(model.maxValidUndistortionRSq));
  out.distortionModel = int32_t(model.model);

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

void buildOne(const AR::CV::FullCamera<float>& source, const AR::CV::FullCamera<float>& target, bool allowOut,
              const AR::Math::SO3<float>& S, int width, int height, float* mapX, float* mapY) {
  const AR::Math::Vec2I size(width, height);
  const uint32_t stride = uint32_t(width) * uint32_t(sizeof(float));
  AR::CV::Image<float> images[2] = {
      AR::CV::Image<float>(mapX, size, stride, AR::Common::OS::getAlignment(mapX)),
      AR::CV::Image<float>(mapY, size, stride, AR::Common::OS::getAlignment(mapY))};
  AR::Common::ArrayView<AR::CV::Image<float>> view(images);
  VIO::setupRectifyMap(source, allowOut, target, S, view);
}

}  // namespace

void rectifyMapSize(const DeviceCalibrationMRV& device, const RectifyTarget& target, int& width, int& height) {
  width = target.width != 0 ? int(target.width) : device.cameras[0].width;
  height = device.cameras[0].height;
}

bool checkRectifyTarget(const DeviceCalibrationMRV& device, const RectifyTarget& target, bool optionNames,
                        std::string& error) {
  const char* disparities = optionNames ? "--disparities" : "num_disparities";
  const char* minDepth = optionNames ? "--min-depth" : "min_depth";
  const char* maxDepth = optionNames ? "--max-depth" : "max_depth";
  const char* width = optionNames ? "--width" : "target_width";
  const int32_t cameraWidth = device.cameras[0].width;
  if (target.numDisparities < 1 || target.numDisparities > kMaxMapSide)
    error = std::string(disparities) + ": must be between 1 and " + std::to_string(kMaxMapSide);
  else if (!std::isfinite(target.minDepth) || target.minDepth < 0.0f)
    error = std::string(minDepth) + ": must be a finite number of metres, 0 or more";
  else if (!std::isfinite(target.maxDepth) || !(target.maxDepth > 0.0f))
    error = std::string(maxDepth) + ": must be a finite number of metres above 0";
  else if (target.minDepth > 0.0f && !(target.minDepth < target.maxDepth))
    error = std::string(minDepth) + ": must be below " + maxDepth + " when depth fitting is on";
  else if (target.width != 0 && (cameraWidth < 1 || target.width > uint32_t(cameraWidth)))
    error = std::string(width) + ": must be between 1 and camera 0's width " + std::to_string(cameraWidth);
  else
    return true;
  return false;
}

bool buildRectifyMaps(const DeviceCalibrationMRV& device, const RectifyTarget& target, bool allowOutOfImage,
                      float* leftX, float* leftY, float* rightX, float* rightY, RectifyResult& result,
                      std::string& error) {
  AR::CV::FullStereoCameraCalibration<float> calibration;
  DeviceFrameParams frame{};
  VIO::deviceToStereoCalibration(&device, calibration, frame);

  AR::Math::Matrix33F identityRotation = AR::Math::Matrix33F::identity();
  AR::Math::enforceRotation(identityRotation);
  const AR::Math::SE3<float> identityPose(AR::Math::SO3<float>::fromOrthonormal(identityRotation),
                                          AR::Math::Vec3F());
  AR::CV::FullStereoCameraCalibration<float> rectified;
  AR::Math::SO3<float> S;
  AR::CV::DepthParams<float> depth;
  const char* refusal = nullptr;
  if (!AR::CV::Internal::tryMakeTargetCalibration<float>(calibration, target.numDisparities, target.minDepth,
                                                         target.maxDepth, target.width, identityPose,
                                                         AR::Math::Vec3F(), rectified, S, depth, refusal)) {
    error = refusal != nullptr ? refusal : "the rectified pair cannot be computed";
    return false;
  }
  // An extreme depth range can leave a target camera without a usable focal
  // length; the map builder needs both cameras.
  if (!rectified[0].isInitialized() || !rectified[1].isInitialized()) {
    error = "the rectified cameras cannot be built for this depth range";
    return false;
  }
  result.depthConstant = depth.constant;
  result.depthOffset = depth.offsetX;
  writeRectifiedCamera(rectified[0].getIntrinsics(), frame, S, result.rectified);

  int width = 0, height = 0;
  rectifyMapSize(device, target, width, height);
  buildOne(calibration[0], rectified[0], allowOutOfImage, S, width, height, leftX, leftY);
  buildOne(calibration[1], rectified[1], allowOutOfImage, S, width, height, rightX, rightY);
  return true;
}

}  // namespace StereoMaps
