// The vector kernel must give the scalar maps bit for bit, with the same log,
// on every instruction-set target this machine can run.

#include <gtest/gtest.h>
#include <hwy/highway.h>
#include <hwy/targets.h>

#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "RectifyMap.h"
#include "UndistortMap.h"
#include "VSTMap.h"

namespace {

using AR::CV::Camera;
using AR::CV::FullCamera;
using AR::CV::Image;
using AR::Math::Vec2F;
using AR::Math::Vec2I;
using AR::Math::Vec3F;
using Images = std::array<Image<float>, 2>;

struct Lens {
  const char* name;
  DistortionModel model;
  std::array<float, 6> k;
};

const Lens kLenses[] = {
    {"Linear", LINEAR, {0, 0, 0, 0, 0, 0}},
    {"Radial2", RADIAL_2_PARAMETERS, {-0.28f, 0.07f, 0, 0, 0, 0}},
    {"Radial3", RADIAL_3_PARAMETERS, {-0.3f, 0.1f, -0.015f, 0, 0, 0}},
    {"Radial6", RADIAL_6_PARAMETERS, {0.42f, -0.03f, 0.002f, 0.75f, 0.04f, 0.001f}},
    {"Fisheye1", FISHEYE_1_PARAMETER, {0.92f, 0, 0, 0, 0, 0}},
    {"Fisheye4", FISHEYE_4_PARAMETERS, {-0.012f, 0.003f, -0.0006f, 0.0001f, 0, 0}},
};

// 157 columns leave a tail after whole vectors of 4, 8 or 16 lanes.
constexpr int kWidth = 157, kHeight = 41;

CamModel::CameraModel<float> model(const Lens& lens, Vec2F size, float focal, Vec2F principal,
                                   bool tangential) {
  CamModel::CameraModel<float> m;
  m.size = size;
  m.focalLength = Vec2F(focal, focal * 1.01f);
  m.principalPoint = principal;
  for (int i = 0; i < 6; ++i) m.radialDistortionCoeffs(i) = lens.k[size_t(i)];
  m.tangentialDistortionCoeffs = tangential ? Vec2F(4e-4f, -3e-4f) : Vec2F();
  m.model = lens.model;
  m.maxValidDistortionRSq = 81.0f;
  m.maxValidUndistortionRSq = 81.0f;
  m.setupValidDistortionRange();
  return m;
}

Images makeImages(Vec2I size) { return Images{Image<float>(size), Image<float>(size)}; }

/// First differing float of two images, as text ("" when bit-identical).
std::string firstDifference(const Image<float>& a, const Image<float>& b) {
  if (a.size() != b.size()) return "sizes differ";
  for (int y = 0; y < a.height(); ++y)
    for (int x = 0; x < a.width(); ++x)
      if (std::memcmp(&a.at(x, y), &b.at(x, y), sizeof(float)) != 0)
        return "(" + std::to_string(x) + ", " + std::to_string(y) + "): " + std::to_string(a.at(x, y)) +
               " vs " + std::to_string(b.at(x, y));
  return "";
}

/// Runs `build` with the scalar kernel and then with the vector kernel on
/// every target the CPU supports; maps (and what `extra` collects) and logs
/// must match exactly.
void expectIdentical(const std::function<std::vector<const Image<float>*>(VIO::MapKernel)>& build) {
  AR::Test::LogCapture scalarLog;
  const std::vector<const Image<float>*> reference = build(VIO::MapKernel::Scalar);
  const std::vector<std::string> scalarMessages = scalarLog.messages();
  // Copies: `build` may return images it reuses.
  std::vector<Image<float>> expected;
  for (const Image<float>* image : reference) {
    expected.emplace_back(image->size());
    for (int y = 0; y < image->height(); ++y)
      for (int x = 0; x < image->width(); ++x) expected.back().at(x, y) = image->at(x, y);
  }
  for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::SetSupportedTargetsForTest(target);
    SCOPED_TRACE(hwy::TargetName(target));
    AR::Test::LogCapture log;
    const std::vector<const Image<float>*> maps = build(VIO::MapKernel::Vector);
    ASSERT_EQ(maps.size(), expected.size());
    for (size_t i = 0; i < maps.size(); ++i) EXPECT_EQ(firstDifference(expected[i], *maps[i]), "") << "image " << i;
    EXPECT_EQ(log.messages(), scalarMessages);
  }
  hwy::SetSupportedTargetsForTest(0);
}

struct Case {
  const Lens* lens;
  bool tangential;
  bool allowOutOfImage;
};

void PrintTo(const Case& c, std::ostream* os) {
  *os << c.lens->name << (c.tangential ? " tangential" : "") << (c.allowOutOfImage ? " allowOutOfImage" : "");
}

std::vector<Case> allCases() {
  std::vector<Case> cases;
  for (const Lens& lens : kLenses)
    for (bool tangential : {false, true})
      for (bool allowOut : {false, true}) cases.push_back({&lens, tangential, allowOut});
  return cases;
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
  return std::string(info.param.lens->name) + (info.param.tangential ? "Tangential" : "") +
         (info.param.allowOutOfImage ? "AllowOut" : "");
}

class MapKernelIdentity : public testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    AR::Common::Logger::getInstance().setLevel(AR::Common::Logger::LEVEL_DEBUG);
    const Case& c = GetParam();
    ASSERT_TRUE(source_.init(model(*c.lens, Vec2F(float(kWidth), float(kHeight)), 60.0f,
                                   Vec2F(80.3f, 19.6f), c.tangential)));
  }
  Camera<float> source_;
};

// Target pixels more than 9 focal lengths from its centre cannot be made
// ideal (logged, previous ideal point reused, from the middle of the row on
// both sides); the source is turned by 50 degrees so that rays also go behind
// it, leave its distortion range or its image.
TEST_P(MapKernelIdentity, Rectify) {
  const Case& c = GetParam();
  const Lens linear = kLenses[0];
  FullCamera<float> source, target;
  const AR::Math::SE3<float> turned(AR::Math::SO3<float>::exp(Vec3F(0.1f, 0.87f, 0.05f)), Vec3F());
  ASSERT_TRUE(source.init(source_.getCamModel(), turned, AR::CV::CamImageId("s"), false, 0.0f,
                          AR::CV::CaptureDetails(), 0.0));
  ASSERT_TRUE(target.init(model(linear, Vec2F(float(kWidth), float(kHeight)), 8.0f, Vec2F(78.0f, 20.5f), false),
                          AR::Math::SE3<float>(), AR::CV::CamImageId("t"), false, 0.0f,
                          AR::CV::CaptureDetails(), 0.0));
  Images maps = makeImages(Vec2I(kWidth, kHeight));
  AR::Common::ArrayView<Image<float>> view(maps);
  expectIdentical([&](VIO::MapKernel kernel) {
    VIO::setupRectifyMap(source, c.allowOutOfImage, target, AR::Math::SO3<float>(), view, kernel);
    return std::vector<const Image<float>*>{&maps[0], &maps[1]};
  });
}

// A field-of-view factor below 1 widens the view beyond the lens's valid range.
TEST_P(MapKernelIdentity, Undistort) {
  Images maps = makeImages(Vec2I(kWidth, kHeight));
  AR::Common::ArrayView<Image<float>> view(maps);
  expectIdentical([&](VIO::MapKernel kernel) {
    VIO::setupUndistortMap(source_, GetParam().allowOutOfImage, 0.45f, view, kernel);
    return std::vector<const Image<float>*>{&maps[0], &maps[1]};
  });
}

// The eye looks 40 degrees away from the camera and sees pixels beyond its
// own valid radius (logged); the plane points are compared too.
TEST_P(MapKernelIdentity, SeeThrough) {
  Camera<float> eye;
  ASSERT_TRUE(eye.init(model(kLenses[0], Vec2F(float(kWidth), float(kHeight)), 9.0f, Vec2F(70.0f, 20.0f), false)));
  const AR::Math::SE3<float> eyeTransform(AR::Math::SO3<float>::exp(Vec3F(0.05f, 0.7f, -0.02f)),
                                          Vec3F(0.03f, -0.01f, 0.02f));
  Images maps = makeImages(Vec2I(kWidth, kHeight));
  AR::Common::ArrayView<Image<float>> view(maps);
  std::array<Image<float>, 3> points;
  expectIdentical([&](VIO::MapKernel kernel) {
    VIO::setupVSTMap(source_, eye, GetParam().allowOutOfImage, eyeTransform, view, points, 0.7f, kernel);
    return std::vector<const Image<float>*>{&maps[0], &maps[1], &points[0], &points[1], &points[2]};
  });
}

INSTANTIATE_TEST_SUITE_P(LensModels, MapKernelIdentity, testing::ValuesIn(allCases()), caseName);

// A camera far larger than the map: only the part that lands in the map is
// computed, its entries are those of the full-size map, and the call says
// how many pixels it left out.
TEST(MapKernelBoundedWork, LargerCameraGivesTheCornerOfItsFullMap) {
  AR::Common::Logger::getInstance().setLevel(AR::Common::Logger::LEVEL_DEBUG);
  Camera<float> camera;
  ASSERT_TRUE(camera.init(model(kLenses[2], Vec2F(300.0f, 200.0f), 110.0f, Vec2F(150.5f, 99.5f), true)));
  Images full = makeImages(Vec2I(300, 200));
  AR::Common::ArrayView<Image<float>> fullView(full);
  VIO::setupUndistortMap(camera, false, 1.0f, fullView);

  Images small = makeImages(Vec2I(37, 21));
  AR::Common::ArrayView<Image<float>> smallView(small);
  AR::Test::LogCapture log;
  VIO::setupUndistortMap(camera, false, 1.0f, smallView);
  EXPECT_EQ(log.countContaining("59223 pixels of the 300x200 image lie outside the 37x21 map and were left out"), 1u);
  for (int i = 0; i < 2; ++i)
    for (int y = 0; y < 21; ++y)
      for (int x = 0; x < 37; ++x) ASSERT_EQ(small[size_t(i)].at(x, y), full[size_t(i)].at(x, y)) << x << "," << y;
}

}  // namespace
