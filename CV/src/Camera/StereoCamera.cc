#include "AR/CV/Camera/StereoCamera.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "AR/Common/Logger.h"
#include "AR/Math/MathDebugging.h"

namespace AR {
namespace CV {

namespace {

constexpr const char* kSource = "CV/src/Camera/StereoCamera";

/// Prefix that marks placeholder ids made by setupEmptyCalibrationWithDefaultIds.
constexpr const char* kDefaultCamPrefix = "default_cam_";

}  // namespace

// ---------------------------------------------------------------------------
// FullCamera

template <typename PREC>
FullCamera<PREC>::FullCamera(const CamImageId& id) : mCamId(id) {
  // The identity goes through the same re-orthogonalisation (made as an SO3
  // from a matrix) as every other stored rotation.
  mCamReferenceToLocal = SE3(AR::Math::SO3<PREC>(AR::Math::Matrix<PREC, 3, 3>::identity()), Vec3());
}

template <typename PREC>
bool FullCamera<PREC>::init(const CamModel::CameraModel<PREC>& model,
                            const SE3& camReferenceToLocal, const CamImageId& id,
                            bool isRollingShutter, PREC lineTime,
                            const CaptureDetails& captureDetails, double delta) {
  static constexpr const char* kFunction =
      "bool AR::CV::FullCamera<PREC>::init(const CamModel::CameraModel<PREC>&, const "
      "AR::Math::SE3<PREC>&, const AR::CV::CamImageId&, bool, PREC, const "
      "AR::CV::CaptureDetails&, double)";
  if (isInitialized()) AR::Common::logError("!isInitialized()", kSource, kFunction, __LINE__);

  mCamId = id;

  // A fresh camera, never the shared one: copies of this FullCamera keep the
  // intrinsics they had.
  mCamera = AR::Common::makeRefCounted<Camera<PREC>>();
  if (!mCamera->init(model)) return false;
  if (!mCamera->isInitialized())
    AR::Common::logError("mCamera->isInitialized()", kSource, kFunction, __LINE__);

  mRSCorrector.isRollingShutter = isRollingShutter;
  mRSCorrector.lineTime = lineTime;
  mRSCorrector.referenceRow = PREC(0.5) * model.size(1);
  mRSCorrector.resetVelocities();

  setExtrinsics(camReferenceToLocal);
  mCaptureDetails = captureDetails;
  mDelta = delta;

  if (!isInitialized()) AR::Common::logError("isInitialized()", kSource, kFunction, __LINE__);
  return true;
}

template <typename PREC>
bool FullCamera<PREC>::isInitialized() const {
  return !mCamId.empty() && mCamera != nullptr && mCamera->isInitialized();
}

template <typename PREC>
void FullCamera<PREC>::setExtrinsics(const SE3& camReferenceToLocal) {
  if (!isInitialized())
    AR::Common::logError("isInitialized()", kSource,
                         "void AR::CV::FullCamera<PREC>::setExtrinsics(const AR::Math::SE3<PREC>&)",
                         __LINE__);
  mCamReferenceToLocal = camReferenceToLocal;
}

template <typename PREC>
const typename FullCamera<PREC>::SE3& FullCamera<PREC>::getCamReferenceToLocal() const {
  if (!isInitialized())
    AR::Common::logError(
        "isInitialized()", kSource,
        "const AR::Math::SE3<PREC>& AR::CV::FullCamera<PREC>::getCamReferenceToLocal() const",
        __LINE__);
  return mCamReferenceToLocal;
}

template <typename PREC>
typename FullCamera<PREC>::SE3 FullCamera<PREC>::getLocalToCamReference() const {
  if (!isInitialized())
    AR::Common::logError(
        "isInitialized()", kSource,
        "AR::Math::SE3<PREC> AR::CV::FullCamera<PREC>::getLocalToCamReference() const", __LINE__);
  return mCamReferenceToLocal.inverse();
}

template <typename PREC>
typename FullCamera<PREC>::SE3 FullCamera<PREC>::getWorldInCamLocal(
    const SE3& worldInCamReference) const {
  return mCamReferenceToLocal * worldInCamReference;
}

template <typename PREC>
const Camera<PREC>& FullCamera<PREC>::getIntrinsics() const {
  if (!isInitialized())
    AR::Common::logError(
        "isInitialized()", kSource,
        "const AR::CV::Camera<PREC>& AR::CV::FullCamera<PREC>::getIntrinsics() const", __LINE__);
  if (mCamera == nullptr) {
    // Dereferencing null would be undefined; an uninitialised camera is the
    // detectable stand-in (its isInitialized() is false).
    static const Camera<PREC> kNoIntrinsics;
    return kNoIntrinsics;
  }
  return *mCamera;
}

template <typename PREC>
const typename FullCamera<PREC>::IntrinsicsPtr& FullCamera<PREC>::getIntrinsicsPtr() const {
  if (!isInitialized())
    AR::Common::logError("isInitialized()", kSource,
                         "const std::shared_ptr<AR::CV::Camera<PREC> >& "
                         "AR::CV::FullCamera<PREC>::getIntrinsicsPtr() const",
                         __LINE__);
  return mCamera;
}

template <typename PREC>
bool FullCamera<PREC>::projectCameraToDevicePix(const Vec3& pointInCamReference,
                                                Vec2& pixel) const {
  static constexpr const char* kFunction =
      "bool AR::CV::FullCamera<PREC>::projectCameraToDevicePix(const AR::Math::Vector<PREC, 3>&, "
      "AR::Math::Vector<PREC, 2>&) const";
  if (!isInitialized()) AR::Common::logError("isInitialized()", kSource, kFunction, __LINE__);
  if (mCamera == nullptr) return false;

  const Vec3 p = mCamReferenceToLocal.rotation().matrix() * pointInCamReference +
                 mCamReferenceToLocal.translation();
  // Points nearer than 1 cm (or behind the camera) do not project; the bound
  // is 0.01 in the camera's own precision.
  if (p(2) < PREC(0.01)) return false;

  const PREC invZ = PREC(1) / p(2);
  const PREC x = p(0) * invZ;
  const PREC y = p(1) * invZ;
  const PREC rSq = x * x + y * y;

  PREC f = PREC(0);
  if (!mCamera->getDistortionSpline().evaluate(rSq, f)) return false;

  const CamModel::CameraModel<PREC>& model = mCamera->getCamModel();
  const PREC p1 = model.tangentialDistortionCoeffs(0);
  const PREC p2 = model.tangentialDistortionCoeffs(1);
  PREC xd;
  PREC yd;
  if (p1 == PREC(0) && p2 == PREC(0)) {
    xd = x * f;
    yd = y * f;
  } else {
    xd = x * f + PREC(2) * p1 * x * y + p2 * (rSq + PREC(2) * x * x);
    yd = y * f + p1 * (rSq + PREC(2) * y * y) + PREC(2) * p2 * x * y;
  }

  const Vec2 camPos(xd * model.focalLength(0) + model.principalPoint(0),
                    yd * model.focalLength(1) + model.principalPoint(1));
  pixel = camPos;
  if (!AR::Math::isGoodVector(camPos, false))
    AR::Common::logError("AR::Math::isGoodVector(camPos)", kSource, kFunction, __LINE__);
  return true;
}

// ---------------------------------------------------------------------------
// FullStereoCameraCalibration

template <typename PREC>
bool FullStereoCameraCalibration<PREC>::noCameraIdsProvided(const CamIdView& camIds) {
  if (camIds.empty()) return true;
  const size_t prefixLength = std::strlen(kDefaultCamPrefix);
  for (const CamImageId& id : camIds) {
    const std::string_view name = id.getCamName().rawName();
    if (name.substr(0, prefixLength) == kDefaultCamPrefix) return true;
  }
  return false;
}

template <typename PREC>
void FullStereoCameraCalibration<PREC>::setupEmptyCalibrationWithDefaultIds(size_t count) {
  for (size_t i = this->size(); i < count; ++i) {
    char name[CamImageId::CamName::CAPACITY];
    std::snprintf(name, sizeof(name), "default_cam_%zu", i);
    this->push_back(FullCamera<PREC>(CamImageId(name)));
  }
}

template <typename PREC>
void FullStereoCameraCalibration<PREC>::trySetupEmptyCalibration(const CamIdView& camIds) {
  if (this->empty())
    for (const CamImageId& camId : camIds) this->push_back(FullCamera<PREC>(camId));

  for (const CamImageId& camId : camIds) {
    if (std::find_if(this->begin(), this->end(), [&camId](const FullCamera<PREC>& cam) {
          return cam.getCamId() == camId;
        }) == this->end())
      AR::Common::logError(
          "find_if(this->begin(), this->end(), [&camId](const FullCamera<PREC> & cam){ return "
          "cam.getCamId() == camId; }) != this->end()",
          kSource,
          "void AR::CV::FullStereoCameraCalibration<PREC>::trySetupEmptyCalibration(const "
          "AR::Common::ArrayView<const AR::CV::CamImageId>&)",
          __LINE__);
  }
}

template <typename PREC>
FullStereoCameraCalibration<PREC> FullStereoCameraCalibration<PREC>::selectCameras(
    const CamIdView& camIds) const {
  if (camIds.empty()) return *this;

  FullStereoCameraCalibration cameraSubset;
  cameraSubset.setDeviceUID(mDeviceUID);
  for (const FullCamera<PREC>& cam : *this) {
    const bool wanted = std::find(camIds.begin(), camIds.end(), cam.getCamId()) != camIds.end();
    if (wanted) cameraSubset.push_back(cam);
  }
  if (!(cameraSubset.size() == camIds.size()))
    AR::Common::logError("cameraSubset.size() == camIds.size()", kSource,
                         "AR::CV::FullStereoCameraCalibration<PREC> "
                         "AR::CV::FullStereoCameraCalibration<PREC>::selectCameras(const "
                         "AR::Common::ArrayView<const AR::CV::CamImageId>&) const",
                         __LINE__);
  return cameraSubset;
}

namespace {

/// Logs and reports a lookup of an id that no camera carries.
void reportMissingCamera(const CamImageId& camId, const char* function, int line) {
  AR::Common::Logger& logger = AR::Common::Logger::getInstance();
  if (logger.getLevel() >= AR::Common::Logger::LEVEL_ERROR) {
    const std::string name(camId.getCamName().rawName());
    logger.logEx2(AR::Common::Logger::LEVEL_ERROR, kSource, function, line,
                  "camId %s not found in FullStereoCameraCalibration", name.c_str());
  }
  AR::Common::logError("0", kSource, function, line);
}

/// The stand-in returned for an unknown id: an uninitialised camera with an
/// empty id, private to the calling thread and reset on every use, so
/// callers can detect it and writes through it reach nothing shared.
template <typename PREC>
FullCamera<PREC>& missingCamera() {
  thread_local FullCamera<PREC> camera;
  camera = FullCamera<PREC>();
  return camera;
}

}  // namespace

template <typename PREC>
const FullCamera<PREC>& FullStereoCameraCalibration<PREC>::operator[](
    const CamImageId& camId) const {
  for (const FullCamera<PREC>& cam : *this)
    if (cam.getCamId() == camId) return cam;
  reportMissingCamera(camId,
                      "const AR::CV::FullCamera<PREC>& "
                      "AR::CV::FullStereoCameraCalibration<PREC>::operator[](const "
                      "AR::CV::CamImageId&) const",
                      __LINE__);
  return missingCamera<PREC>();
}

template <typename PREC>
FullCamera<PREC>& FullStereoCameraCalibration<PREC>::operator[](const CamImageId& camId) {
  for (FullCamera<PREC>& cam : *this)
    if (cam.getCamId() == camId) return cam;
  reportMissingCamera(camId,
                      "AR::CV::FullCamera<PREC>& "
                      "AR::CV::FullStereoCameraCalibration<PREC>::operator[](const "
                      "AR::CV::CamImageId&)",
                      __LINE__);
  return missingCamera<PREC>();
}

template <typename PREC>
const std::vector<CamImageId>& FullStereoCameraCalibration<PREC>::getCamIds() const {
  std::vector<CamImageId>& camIdVec = mCamIdCache;
  if (camIdVec.empty())
    for (const FullCamera<PREC>& cam : *this) camIdVec.push_back(cam.getCamId());

  // A cache filled before cameras were added, removed or renamed is stale;
  // report every position where it disagrees (never read past either end).
  const size_t n = std::max(camIdVec.size(), this->size());
  for (size_t i = 0; i < n; ++i) {
    const bool same =
        i < this->size() && i < camIdVec.size() && this->at(i).getCamId() == camIdVec[i];
    if (!same)
      AR::Common::logError("this->at(i).getCamId() == camIdVec[i]", kSource,
                           "const std::vector<AR::CV::CamImageId>& "
                           "AR::CV::FullStereoCameraCalibration<PREC>::getCamIds() const",
                           __LINE__);
  }
  return camIdVec;
}

template <typename PREC>
bool FullStereoCameraCalibration<PREC>::isInitialized() const {
  if (this->empty()) return false;
  for (const FullCamera<PREC>& cam : *this)
    if (!cam.isInitialized()) return false;
  return true;
}

template class AR_EXPORT FullCamera<float>;
template class AR_EXPORT FullCamera<double>;
template class AR_EXPORT FullStereoCameraCalibration<float>;
template class AR_EXPORT FullStereoCameraCalibration<double>;

}  // namespace CV
}  // namespace AR
