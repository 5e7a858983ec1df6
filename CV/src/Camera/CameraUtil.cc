#include "AR/CV/Camera/CameraUtil.h"

#include <cfloat>
#include <cmath>

#include "AR/Common/Logger.h"
#include "AR/Math/Constants.h"
#include "CameraModel/CameraModel.h"

namespace AR {
namespace CV {

namespace {

constexpr const char* kSource = "CV/src/Camera/CameraUtil";
constexpr const char* kApproxFunction =
    "AR::Math::Rectangle<float> AR::CV::computeCamCoordApproxBoundaries(const Camera<float>&)";
constexpr const char* kExactFunction =
    "AR::Math::Rectangle<float> AR::CV::computeCamCoordBoundaries(const Camera<float>&, unsigned "
    "int)";

/// Widens the rectangle by the ideal point of pixel (x, y) if it undistorts.
void widen(const AR::CV::Camera<float>& camera, float x, float y, AR::Math::Vec2F& minCorner,
           AR::Math::Vec2F& maxCorner) {
  AR::Math::Vec2F ideal;
  if (!camera.tryPixel2ideal(AR::Math::Vec2F(x, y), ideal)) return;
  for (int c = 0; c < 2; ++c) {
    if (ideal(c) < minCorner(c)) minCorner(c) = ideal(c);
    if (ideal(c) > maxCorner(c)) maxCorner(c) = ideal(c);
  }
}

/// The checks both functions share; each failure is logged and reported as
/// a contract breach, and the caller goes on with what it has.
void checkRectangle(const AR::Math::Vec2F& minCorner, const AR::Math::Vec2F& maxCorner,
                    const char* function) {
  AR::Common::Logger& logger = AR::Common::Logger::getInstance();
  if (maxCorner(0) == -FLT_MAX && maxCorner(1) == -FLT_MAX) {
    if (logger.getLevel() >= AR::Common::Logger::LEVEL_ERROR)
      logger.logEx2(AR::Common::Logger::LEVEL_ERROR, kSource, function, __LINE__,
                    "MapperBridge::computeCamCoordBoundaries: maxCamCoord not found");
    AR::Common::logError("false", kSource, function, __LINE__);
  }
  // The text names the maximum for the minimum too; client log parsers
  // match on it.
  if (minCorner(0) == FLT_MAX && minCorner(1) == FLT_MAX) {
    if (logger.getLevel() >= AR::Common::Logger::LEVEL_ERROR)
      logger.logEx2(AR::Common::Logger::LEVEL_ERROR, kSource, function, __LINE__,
                    "MapperBridge::computeCamCoordBoundaries: maxCamCoord not found");
    AR::Common::logError("false", kSource, function, __LINE__);
  }
  if (minCorner(0) == maxCorner(0) || minCorner(1) == maxCorner(1)) {
    if (logger.getLevel() >= AR::Common::Logger::LEVEL_ERROR)
      logger.logEx2(AR::Common::Logger::LEVEL_ERROR, kSource, function, __LINE__,
                    "MapperBridge::computeCamCoordBoundaries: minCamCoord = (%f, %f), "
                    "maxCamCoord = (%f, %f) - not a rectangle",
                    double(minCorner(0)), double(minCorner(1)), double(maxCorner(0)),
                    double(maxCorner(1)));
    AR::Common::logError("false", kSource, function, __LINE__);
  }
}

}  // namespace

bool radialDistortionModelStringToEnum(const std::string& name, DistortionModel& model) {
  for (uint32_t value = LINEAR; value <= FISHEYE_4_PARAMETERS; ++value) {
    const DistortionModel candidate = static_cast<DistortionModel>(value);
    if (name == CamModel::modelName(candidate)) {
      model = candidate;
      return true;
    }
  }
  if (AR::Common::Logger::getInstance().getLevel() >= AR::Common::Logger::LEVEL_ERROR)
    AR::Common::Logger::getInstance().logEx2(
        AR::Common::Logger::LEVEL_ERROR, kSource,
        "bool AR::CV::radialDistortionModelStringToEnum(const std::string&, DistortionModel&)",
        __LINE__, "Radial distortion model %s not supported (use UPPERCASE).", name.c_str());
  return false;
}

AR::Math::Rectangle<float> computeCamCoordApproxBoundaries(const AR::CV::Camera<float>& camera) {
  const float radius = camera.getFOVPixels();
  const float cx = camera.getPrincipalPoint()(0);
  const float cy = camera.getPrincipalPoint()(1);
  const float w = camera.getSize()(0);
  const float h = camera.getSize()(1);

  AR::Math::Rectangle<float> rect;
  rect.minCorner = AR::Math::Vec2F(FLT_MAX, FLT_MAX);
  rect.maxCorner = AR::Math::Vec2F(-FLT_MAX, -FLT_MAX);

  // Corners, edge midpoints and centre. (w, h) lies one pixel beyond the
  // image and the left edge midpoint is missing: the client this serves
  // expects exactly these samples.
  const float samples[8][2] = {{0.f, 0.f},         {w, h},          {0.f, h - 1.f},
                               {w - 1.f, 0.f},     {w / 2.f, 0.f},  {w / 2.f, h - 1.f},
                               {w - 1.f, h / 2.f}, {w / 2.f, h / 2.f}};
  for (const auto& s : samples) widen(camera, s[0], s[1], rect.minCorner, rect.maxCorner);

  // The valid undistortion circle every 45 degrees (the ninth point closes
  // the circle), where it lies inside the image.
  for (int k = 0; k <= 8; ++k) {
    const float a = float(k) * AR_PI / 4.f;
    const float x = cx + radius * std::cos(a);
    const float y = cy + radius * std::sin(a);
    if (x >= 0.f && x < w && y >= 0.f && y < h) widen(camera, x, y, rect.minCorner, rect.maxCorner);
  }

  checkRectangle(rect.minCorner, rect.maxCorner, kApproxFunction);
  return rect;
}

AR::Math::Rectangle<float> computeCamCoordBoundaries(const AR::CV::Camera<float>& camera,
                                                     unsigned int step) {
  if (step == 0) {
    AR::Common::logError("step > 0", kSource, kExactFunction, __LINE__);
    step = 1;
  }
  const float w = camera.getSize()(0);
  const float h = camera.getSize()(1);

  AR::Math::Rectangle<float> rect;
  rect.minCorner = AR::Math::Vec2F(FLT_MAX, FLT_MAX);
  rect.maxCorner = AR::Math::Vec2F(-FLT_MAX, -FLT_MAX);

  // 64-bit counters cannot wrap around before passing any float extent that
  // an image can have.
  for (unsigned long long y = 0; float(y) < h; y += step)
    for (unsigned long long x = 0; float(x) < w; x += step)
      widen(camera, float(x), float(y), rect.minCorner, rect.maxCorner);

  checkRectangle(rect.minCorner, rect.maxCorner, kExactFunction);
  if (AR::Common::Logger::getInstance().getLevel() >= AR::Common::Logger::LEVEL_DEBUG)
    AR::Common::Logger::getInstance().logEx2(
        AR::Common::Logger::LEVEL_DEBUG, kSource, kExactFunction, __LINE__,
        "MapperBridge::computeCamCoordBoundaries: minCamCoord = (%f, %f), maxCamCoord = (%f, %f)",
        double(rect.minCorner(0)), double(rect.minCorner(1)), double(rect.maxCorner(0)),
        double(rect.maxCorner(1)));
  return rect;
}

}  // namespace CV
}  // namespace AR
