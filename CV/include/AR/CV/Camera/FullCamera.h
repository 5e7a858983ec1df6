#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "AR/CV/Camera/CamImageId.h"
#include "AR/CV/Camera/Camera.h"
#include "AR/Common/Macros.h"
#include "AR/Common/RefCounter.h"
#include "AR/Common/SmallVector.h"
#include "AR/Math/SE3.h"
#include "CameraModel/CameraModel.h"

namespace tinyxml2 {
class XMLDocument;
class XMLElement;
}  // namespace tinyxml2

namespace AR {
namespace CV {

/// Linear and angular velocity of a camera during one exposure (six
/// components). Kept as plain data for rolling-shutter consumers.
template <typename PREC>
struct CameraVelocity {
  AR::Math::Vector<PREC, 3> linear;
  AR::Math::Vector<PREC, 3> angular;
};

/// Description of a rolling-shutter sensor. No computation in this library
/// reads it; it is carried so that a calibration file round-trips intact.
template <typename PREC>
struct RollingShutterCorrector {
  static constexpr int MAX_VELOCITIES = 8;

  RollingShutterCorrector() { resetVelocities(); }

  /// Back to a single all-zero velocity.
  void resetVelocities() {
    velocities.clear();
    velocities.push_back(CameraVelocity<PREC>());
  }

  bool isRollingShutter = false;
  /// Seconds per image row.
  PREC lineTime = PREC(0);
  /// Row at which the image time stamp applies (half the image height).
  PREC referenceRow = PREC(0);
  AR::Common::SmallVector<CameraVelocity<PREC>, MAX_VELOCITIES> velocities;
};

/// One camera of a rig: shared intrinsic camera, pose relative to the rig's
/// reference frame, identity, rolling-shutter description, sensor crop and
/// time offset.
///
/// The intrinsic camera is immutable once initialised and shared between
/// copies; `init` never modifies it in place but makes a new one, so copies
/// made earlier keep theirs.
template <typename PREC>
class AR_EXPORT FullCamera {
 public:
  using SE3 = AR::Math::SE3<PREC>;
  using Vec2 = AR::Math::Vector<PREC, 2>;
  using Vec3 = AR::Math::Vector<PREC, 3>;
  using IntrinsicsPtr = AR::Common::RefCounted<Camera<PREC>>;

  /// An uninitialised camera with this id, no intrinsics, identity pose and
  /// default rolling-shutter data, capture details and delta.
  explicit FullCamera(const CamImageId& id = CamImageId());

  /// Initialises intrinsics, pose and the remaining data. Returns false when
  /// the intrinsic camera cannot be built from `model` (the id is taken even
  /// then). Re-initialising an initialised camera is reported but done.
  bool init(const CamModel::CameraModel<PREC>& model, const SE3& camReferenceToLocal,
            const CamImageId& id, bool isRollingShutter, PREC lineTime,
            const CaptureDetails& captureDetails, double delta);

  /// Name not empty, intrinsics present and initialised.
  bool isInitialized() const;

  /// Stores the pose that maps rig-reference points into this camera's frame.
  void setExtrinsics(const SE3& camReferenceToLocal);
  const SE3& getCamReferenceToLocal() const;
  /// The inverse pose: this camera's frame to the rig's reference frame.
  SE3 getLocalToCamReference() const;
  /// camReferenceToLocal composed with `worldInCamReference`.
  SE3 getWorldInCamLocal(const SE3& worldInCamReference) const;

  const CamImageId& getCamId() const { return mCamId; }
  void setCamId(const CamImageId& id) { mCamId = id; }
  /// Name characters without the terminator.
  std::string_view getName() const { return mCamId.getName(); }
  std::string getNameStr() const { return mCamId.getNameStr(); }

  const Camera<PREC>& getIntrinsics() const;
  const IntrinsicsPtr& getIntrinsicsPtr() const;
  bool hasIntrinsics() const { return mCamera != nullptr; }
  /// Shares `camera` (no copy is made).
  void setIntrinsics(IntrinsicsPtr& camera) { mCamera = camera; }

  RollingShutterCorrector<PREC>& getRSCorrector() { return mRSCorrector; }
  const RollingShutterCorrector<PREC>& getRSCorrector() const { return mRSCorrector; }

  const CaptureDetails& getCaptureDetails() const { return mCaptureDetails; }
  void setCaptureDetails(const CaptureDetails& details) { mCaptureDetails = details; }
  /// Time offset of this camera in seconds.
  double getDelta() const { return mDelta; }
  void setDelta(double delta) { mDelta = delta; }

  /// Projects a point given in the rig's reference frame to a pixel of this
  /// camera. False when the point is less than 0.01 in front of the camera
  /// or outside the valid distortion range (pixel untouched then).
  bool projectCameraToDevicePix(const Vec3& pointInCamReference, Vec2& pixel) const;

  /// Writes this camera as a "Camera" element of the calibration file,
  /// created in `doc` and owned by it until inserted. `writeExtrinsics` adds
  /// the "Pose" element, `writeTiming` the "RollingShutter", "CaptureDetails"
  /// and "TimeAlignment" elements; `index` >= 0 is written as attribute
  /// "index". Returns null when the camera has no intrinsics.
  tinyxml2::XMLElement* toXMLNode(tinyxml2::XMLDocument& doc, bool writeExtrinsics,
                                  typename Camera<PREC>::XMLFormat format, bool writeTiming,
                                  int index) const;

 private:
  IntrinsicsPtr mCamera;
  RollingShutterCorrector<PREC> mRSCorrector;
  SE3 mCamReferenceToLocal;
  CamImageId mCamId;
  CaptureDetails mCaptureDetails;
  double mDelta = 0.0;
};

}  // namespace CV
}  // namespace AR
