#pragma once

#include <cstddef>
#include <cstdint>

#include "AR/CV/Camera/Hermite.h"
#include "AR/Common/Macros.h"
#include "AR/Math/Matrix.h"
#include "AR/Math/Vector.h"
#include "CameraModel/CameraModel.h"

namespace tinyxml2 {
class XMLDocument;
class XMLElement;
}  // namespace tinyxml2

namespace AR {
namespace CV {

/// Flat, fixed-layout record of a camera's intrinsics for an interface
/// description layer. Every floating value is a double whatever precision the
/// camera runs in; the layout (128 bytes, 8-byte aligned) is fixed:
/// width @0, height @4, principalPoint @8, focalLength @24,
/// radialDistortion @40, tangentialDistortion @88, distortionLimit @104,
/// undistortionLimit @112, distortionModel @120, padding @124.
struct CameraIntrinsicsIDL {
  /// Image size in pixels, truncated toward zero (saturated, NaN gives 0).
  int32_t width;
  int32_t height;
  double principalPoint[2];
  /// The model's focal length (not the corrected one).
  double focalLength[2];
  double radialDistortion[6];
  double tangentialDistortion[2];
  /// Largest ideal-plane radius for which distortion is valid.
  double distortionLimit;
  /// Largest distorted radius (ideal-plane units) for which undistortion is valid.
  double undistortionLimit;
  /// The `DistortionModel` value.
  uint32_t distortionModel;
  uint32_t padding;
};

/// Modes of the older combined 8-element distortion vector.
enum OLD_DISTORTION_MODE : int {
  OLD_DISTORTION_NONE = 0,
  OLD_DISTORTION_FOV = 1,
  OLD_DISTORTION_RADIAL_2 = 2,
  OLD_DISTORTION_RADIAL_2_TANGENTIAL = 3,
  OLD_DISTORTION_RADIAL_3 = 4,
  OLD_DISTORTION_RADIAL_3_TANGENTIAL = 5,
  OLD_DISTORTION_RADIAL_6 = 6,
  OLD_DISTORTION_RADIAL_6_TANGENTIAL = 7,
  OLD_DISTORTION_FISHEYE_4 = 8,
};

/// Converts a model's coefficients to the older combined 8-element vector.
/// Radial models give (k0, k1, p1, p2, k2, k3, k4, k5) and mode 2/4/6 (3/5/7
/// with tangential terms); FISHEYE_1_PARAMETER gives (omega, 0, p1, p2, 0...)
/// and mode 1; FISHEYE_4_PARAMETERS gives (k0, k1, k2, k3, 0...) and mode 8;
/// LINEAR gives (0, 0, p1, p2, 0...) and mode 0. A used coefficient that is
/// exactly 0 is written as 1e-8 so that the old format never reads it as
/// absent. An out-of-range model is reported and gives mode 0.
template <typename PREC>
AR_EXPORT void getOldDistortionVec(DistortionModel model,
                                   const AR::Math::Vector<PREC, 2>& tangential,
                                   const AR::Math::Vector<PREC, 6>& radial,
                                   AR::Math::Vector<PREC, 8>& out8, OLD_DISTORTION_MODE& oldMode);

/// The intrinsic camera: a validated lens model plus Hermite splines of its
/// distortion factor (over the ideal squared radius) and undistortion factor
/// (over the distorted squared radius), both over the model's valid ranges.
///
/// Coordinates:
/// - pixel p in the image;
/// - distorted normalised q = (p - principalPoint) / focalLength, with the
///   model's focal length;
/// - ideal normalised x: q with the lens distortion removed, i.e. the image
///   plane of a pinhole camera at depth 1.
///
/// Every conversion that can leave the valid range is a `try*` function that
/// returns false instead of extrapolating; its output is unspecified then.
/// Conversions allocate nothing and cost one or two spline lookups (at most
/// ten with tangential distortion). After `init` the camera is immutable and
/// may be used from any number of threads.
template <typename PREC>
class AR_EXPORT Camera {
 public:
  using Vec2 = AR::Math::Vector<PREC, 2>;
  using Vec3 = AR::Math::Vector<PREC, 3>;
  using Vec6 = AR::Math::Vector<PREC, 6>;
  using Mat2 = AR::Math::Matrix<PREC, 2, 2>;
  using Model = CamModel::CameraModel<PREC>;
  using Spline = HermiteSplineInterpolation<PREC>;

  /// Which attributes `toXMLNode` writes.
  enum XMLFormat : int {
    /// "model", "radial_distortion", the two limits, "tangential_distortion".
    XML_FORMAT_CURRENT = 0,
    /// "radial_distortion_8" and "fish_eye".
    XML_FORMAT_OLD = 1,
    /// Both of the above.
    XML_FORMAT_BOTH = 2,
  };

  /// An uninitialised camera; it must be initialised before use.
  Camera() = default;

  /// Validates `model`, copies it and fits both splines over the model's
  /// valid ranges (which the caller has set up, see
  /// CameraModel::setupValidDistortionRange). Returns false, logged at error
  /// level, when the model is invalid or a spline cannot reach its accuracy
  /// (0.01 for RADIAL_6_PARAMETERS, 0.002 otherwise); the camera is then
  /// left uninitialised and must not be used. May be called again to
  /// re-initialise.
  bool init(const Model& model);

  /// Builds a model from raw parameters with both limits at 81 (a radius of
  /// 9), narrows them with setupValidDistortionRange (which prints the two
  /// validity lines) and continues as init(model).
  bool init(const Vec2& size, const Vec2& focalLength, const Vec2& principalPoint,
            const Vec6& radial, const Vec2& tangential, DistortionModel model);

  /// Both splines fitted and the model valid (an invalid model prints its
  /// validation message).
  bool isInitialized() const;

  /// Pixel to ideal point: pixelToDistorted, then tryUndistort.
  bool tryPixel2ideal(const Vec2& pixel, Vec2& ideal) const;
  /// Ideal point to pixel: tryDistort, then focal length and principal point.
  bool tryIdeal2pixel(const Vec2& ideal, Vec2& pixel) const;
  /// Applies radial and tangential distortion. False when |ideal|^2 is
  /// outside [0, maxValidDistortionRSq).
  bool tryDistort(const Vec2& ideal, Vec2& distorted) const;
  /// Removes distortion: the symmetric shortcut without tangential terms,
  /// the iterative inverse otherwise.
  bool tryUndistort(const Vec2& distorted, Vec2& ideal) const;
  /// Radial-only inverse: one lookup of the undistortion spline. False when
  /// |distorted|^2 is outside [0, maxValidUndistortionRSq).
  bool tryUndistortSymmetric(const Vec2& distorted, Vec2& ideal) const;
  /// Inverse with tangential terms: fixed-point iteration that removes the
  /// tangential offset of the current estimate, then the radial part. False
  /// when a lookup leaves the range or the estimate has not settled (squared
  /// change below 1e-10) within 10 lookups.
  bool tryUndistortTangential(const Vec2& distorted, Vec2& ideal) const;
  /// (pixel - principalPoint) / focalLength, with the model's focal length.
  Vec2 pixelToDistorted(const Vec2& pixel) const;

  /// Projects a point in camera coordinates (z forward) to a pixel. False
  /// for points less than 0.01 in front of the camera (or behind it) and
  /// outside the valid distortion range.
  bool tryProjectToPix(const Vec3& point, Vec2& pixel) const;
  /// The point at depth `depth` (z) on the ray through `pixel`. A depth that
  /// is not positive is reported and used anyway.
  bool tryUnprojectFromPix(const Vec2& pixel, Vec3& point, PREC depth) const;

  /// tryPixel2ideal plus the covariance of the ideal point for an isotropic
  /// pixel covariance `variance` * I.
  bool tryUndistortFeatMeasCov(const Vec2& pixel, PREC variance, Vec2& ideal,
                               Mat2& idealCov) const;
  /// tryPixel2ideal plus idealCov = J pixelCov J^T, with J the Jacobian of
  /// the pixel-to-ideal map from one-sided differences of 0.1 pixel.
  bool tryUndistortFeatMeasCov(const Vec2& pixel, const Mat2& pixelCov, Vec2& ideal,
                               Mat2& idealCov) const;

  /// Full angle in radians seen across `extentPixels` centred on the
  /// principal point (using fx), capped by the valid undistortion range.
  PREC getFOV(PREC extentPixels) const;
  /// Radius of valid undistortion in pixels, with the mean focal length.
  PREC getFOVPixels() const;

  const Model& getCamModel() const { return camModel; }
  DistortionModel getRadialDistortionModel() const { return camModel.model; }
  const Vec2& getSize() const { return camModel.size; }
  const Vec2& getPrincipalPoint() const { return camModel.principalPoint; }
  /// The model's focal length.
  const Vec2& getOriginalFocalLength() const { return camModel.focalLength; }
  /// Focal length times the distortion factor at radius 0: the pixel scale
  /// near the principal point (differs from the model's for the
  /// field-of-view fisheye).
  const Vec2& getCorrectedFocalLengthVec() const { return correctedFocalLength; }
  /// Mean of the two corrected focal length components.
  PREC getCorrectedFocalLength() const {
    return (correctedFocalLength(0) + correctedFocalLength(1)) / PREC(2);
  }
  /// Component-wise inverse of the corrected focal length.
  const Vec2& getInvFocalLengthVec() const { return invFocalLength; }
  /// Mean of the two inverse corrected focal length components.
  PREC getInvFocalLength() const { return (invFocalLength(0) + invFocalLength(1)) / PREC(2); }
  /// Component-wise inverse of the model's focal length.
  const Vec2& getInvModelFocalLengthVec() const { return invModelFocalLength; }
  const Vec6& getRadialDistortionCoeffs() const { return camModel.radialDistortionCoeffs; }
  const Vec2& getTangentialDistortionCoeffs() const {
    return camModel.tangentialDistortionCoeffs;
  }
  /// Distortion factor over the ideal squared radius, [0, maxValidDistortionRSq).
  const Spline& getDistortionSpline() const { return distortionSpline; }
  /// Undistortion factor over the distorted squared radius,
  /// [0, maxValidUndistortionRSq).
  const Spline& getUndistortionSpline() const { return undistortionSpline; }

  /// A new "Calibration" element created in (and owned by) `doc`, not yet
  /// inserted anywhere. Attributes "size", "principal_point" and
  /// "focal_length" (each element "%.8g " in turn) and, by `format`, the old
  /// form ("radial_distortion_8", and "fish_eye"="true" for the 4-parameter
  /// fisheye) and/or the current form ("model", "radial_distortion",
  /// "distortion_limit", "undistortion_limit", and "tangential_distortion"
  /// when a tangential coefficient is non-zero).
  tinyxml2::XMLElement* toXMLNode(tinyxml2::XMLDocument& doc, const XMLFormat& format) const;

  /// The intrinsics as a flat record, see CameraIntrinsicsIDL.
  CameraIntrinsicsIDL toIDL() const;

 private:
  Model camModel;
  Spline distortionSpline;
  Spline undistortionSpline;
  Vec2 correctedFocalLength;
  Vec2 invFocalLength;
  Vec2 invModelFocalLength;
};

extern template class Camera<float>;
extern template class Camera<double>;

}  // namespace CV
}  // namespace AR
