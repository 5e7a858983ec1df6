#include "SyntheticScene.h"

#include <cmath>
#include <limits>
#include <vector>

#include "CameraFromRecord.h"

namespace StereoMaps {
namespace {

using Vec2 = AR::Math::Vector<double, 2>;
using Vec3 = AR::Math::Vector<double, 3>;

double dot3(const double* a, const double* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

/// A textured rectangle (or an unbounded plane when the half extents are
/// infinite) in camera 0's frame.
struct Panel {
  double centre[3];
  double u[3];  // unit, in the plane
  double v[3];  // unit, in the plane, perpendicular to u
  double halfU, halfV;
  double square;  // checker size in metres; stripes when `stripes` is set
  bool stripes;
  unsigned char dark, light;
};

std::vector<Panel> makeScene() {
  const double inf = std::numeric_limits<double>::infinity();
  const double c = std::cos(0.6), s = std::sin(0.6);
  const double tilt = std::sqrt(0.5);
  return {
      // Back wall at 5 m.
      {{0, 0, 5.0}, {1, 0, 0}, {0, 1, 0}, inf, inf, 0.4, false, 70, 190},
      // Floor 1.2 m below the camera, from the camera to the wall.
      {{0, 1.2, 3.0}, {1, 0, 0}, {0, 0, 1}, inf, 2.0, 0.4, false, 40, 140},
      // A board turned 34 degrees about the vertical, left, at about 2 m.
      {{-0.65, -0.1, 2.0}, {c, 0, s}, {0, 1, 0}, 0.45, 0.55, 0.1, false, 20, 235},
      // A striped board leaning back, right, at 3 m.
      {{0.8, 0.1, 3.0}, {1, 0, 0}, {0, tilt, -tilt}, 0.6, 0.5, 0.08, true, 30, 220},
      // A small fine checkerboard close by, at 1.1 m.
      {{0.12, -0.3, 1.1}, {1, 0, 0}, {0, 1, 0}, 0.2, 0.12, 0.04, false, 0, 255},
  };
}

unsigned char shade(const Panel& p, double a, double b) {
  long ia = static_cast<long>(std::floor(a / p.square));
  long ib = static_cast<long>(std::floor(b / p.square));
  bool on = p.stripes ? (ia & 1) != 0 : ((ia + ib) & 1) != 0;
  return on ? p.light : p.dark;
}

/// Grey value seen along the ray origin + lambda * dir (camera 0's frame), or
/// -1 when the ray hits nothing.
int trace(const std::vector<Panel>& scene, const double* origin, const double* dir) {
  double best = std::numeric_limits<double>::infinity();
  int value = -1;
  for (const Panel& p : scene) {
    double n[3] = {p.u[1] * p.v[2] - p.u[2] * p.v[1], p.u[2] * p.v[0] - p.u[0] * p.v[2],
                   p.u[0] * p.v[1] - p.u[1] * p.v[0]};
    const double denom = dot3(n, dir);
    if (std::fabs(denom) < 1e-12) continue;
    double rel[3] = {p.centre[0] - origin[0], p.centre[1] - origin[1], p.centre[2] - origin[2]};
    const double lambda = dot3(n, rel) / denom;
    if (!(lambda > 0.0) || lambda >= best) continue;
    double hit[3] = {origin[0] + lambda * dir[0] - p.centre[0], origin[1] + lambda * dir[1] - p.centre[1],
                     origin[2] + lambda * dir[2] - p.centre[2]};
    const double a = dot3(hit, p.u), b = dot3(hit, p.v);
    if (std::fabs(a) > p.halfU || std::fabs(b) > p.halfV) continue;
    // Keep the texture coordinates bounded before they become integers.
    if (std::fabs(a) > 1e6 || std::fabs(b) > 1e6) continue;
    best = lambda;
    value = shade(p, a, b);
  }
  return value;
}

}  // namespace

cv::Mat renderTrackingCamera(const Rig& rig, int index, std::string& error) {
  const CameraCalibrationMRV& rec = rig.device.cameras[index];
  AR::CV::Camera<double> camera;
  const bool ok = cameraFromRecord(rec, camera);
  if (!ok || rec.width <= 0 || rec.height <= 0) {
    error = "camera " + std::to_string(index) + " cannot be initialised for rendering";
    return cv::Mat();
  }
  // Pose of this camera relative to camera 0: cam_i <- device <- cam_0.
  const Pose camFromCam0 =
      compose(fromPoseRecord(rec.pose), inverse(fromPoseRecord(rig.device.cameras[0].pose)));
  // Rays start at the camera centre, in camera 0's frame.
  const Pose cam0FromCam = inverse(camFromCam0);
  const double* origin = cam0FromCam.t;

  const std::vector<Panel> scene = makeScene();
  cv::Mat image(rec.height, rec.width, CV_8UC1, cv::Scalar(0));
  const double offsets[2] = {-0.25, 0.25};
  for (int y = 0; y < rec.height; ++y) {
    unsigned char* row = image.ptr<unsigned char>(y);
    for (int x = 0; x < rec.width; ++x) {
      int sum = 0, hits = 0;
      for (double oy : offsets)
        for (double ox : offsets) {
          Vec2 ideal;
          if (!camera.tryPixel2ideal(Vec2(x + ox, y + oy), ideal)) continue;
          const double rayCam[3] = {ideal(0), ideal(1), 1.0};
          double dir[3];
          for (int r = 0; r < 3; ++r)
            dir[r] = cam0FromCam.R[r * 3 + 0] * rayCam[0] + cam0FromCam.R[r * 3 + 1] * rayCam[1] +
                     cam0FromCam.R[r * 3 + 2] * rayCam[2];
          const int v = trace(scene, origin, dir);
          if (v >= 0) {
            sum += v;
            ++hits;
          }
        }
      row[x] = static_cast<unsigned char>(hits ? (sum + hits / 2) / hits : 0);
    }
  }
  return image;
}

}  // namespace StereoMaps
