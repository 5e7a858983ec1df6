#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "AR/CV/Camera/CamImageId.h"
#include "AR/CV/Camera/FullCamera.h"
#include "AR/Common/ArrayView.h"
#include "AR/Common/Macros.h"

namespace AR {
namespace CV {

/// Calibration of a camera rig: the cameras in the order they were added,
/// and the device identifier. Cameras are addressed by CamImageId.
///
/// Derives from std::vector, so index access, iteration, size, at, push_back
/// and emplace_back are the vector's.
template <typename PREC>
class AR_EXPORT FullStereoCameraCalibration : public std::vector<FullCamera<PREC>> {
 public:
  using Base = std::vector<FullCamera<PREC>>;
  using CamIdView = AR::Common::ArrayView<const CamImageId>;

  FullStereoCameraCalibration() = default;
  FullStereoCameraCalibration(const FullStereoCameraCalibration&) = default;
  FullStereoCameraCalibration(FullStereoCameraCalibration&&) = default;
  FullStereoCameraCalibration& operator=(const FullStereoCameraCalibration&) = default;
  FullStereoCameraCalibration& operator=(FullStereoCameraCalibration&&) = default;

  /// True for an empty list or when any id is a "default_cam_" placeholder.
  static bool noCameraIdsProvided(const CamIdView& camIds);

  /// Appends uninitialised cameras named "default_cam_<i>" until there are
  /// `count`; existing cameras are kept.
  void setupEmptyCalibrationWithDefaultIds(size_t count);

  /// When empty, appends one uninitialised camera per id in order; in every
  /// case reports each id that no camera has.
  void trySetupEmptyCalibration(const CamIdView& camIds);

  /// The cameras whose id is listed, in this calibration's order, with the
  /// same device UID; the whole calibration for an empty list. A size
  /// mismatch (an unknown id) is reported and the subset returned as is.
  FullStereoCameraCalibration selectCameras(const CamIdView& camIds) const;

  /// The first camera with this id. An unknown id is logged and reported;
  /// the result is then an uninitialised camera with an empty id (test with
  /// isInitialized() or getCamId().empty()), never a position past the end.
  /// That camera belongs to the calling thread and is reset on every miss,
  /// so writing to it changes nothing that matters.
  const FullCamera<PREC>& operator[](const CamImageId& camId) const;
  FullCamera<PREC>& operator[](const CamImageId& camId);
  using Base::operator[];

  /// The cameras' ids, cached on first use. The cache is not refreshed when
  /// cameras change later; each mismatch is reported.
  const std::vector<CamImageId>& getCamIds() const;

  /// False for an empty calibration; otherwise true if every camera is.
  bool isInitialized() const;

  const std::string& getDeviceUID() const { return mDeviceUID; }
  void setDeviceUID(const std::string& uid) { mDeviceUID = uid; }

 private:
  std::string mDeviceUID;
  mutable std::vector<CamImageId> mCamIdCache;
};

}  // namespace CV
}  // namespace AR
