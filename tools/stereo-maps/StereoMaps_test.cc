#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "CalibrationInput.h"
#include "KalibrImport.h"
#include "Npy.h"

namespace fs = std::filesystem;

namespace StereoMaps {
namespace {

struct RunResult {
  int status = -1;
  std::string out, err;
};

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = fs::temp_directory_path() /
           ("stereo-maps-test-" + std::to_string(::getpid()) + "-" + info->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  RunResult run(const std::string& args) {
    const std::string outFile = (dir_ / "stdout.txt").string(), errFile = (dir_ / "stderr.txt").string();
    const std::string command = std::string(STEREO_MAPS_EXE) + " " + args + " >" + outFile + " 2>" + errFile;
    RunResult r;
    const int raw = std::system(command.c_str());
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = readFile(outFile);
    r.err = readFile(errFile);
    return r;
  }

  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  NpyArray load(const std::string& file) {
    NpyArray a;
    std::string error;
    EXPECT_TRUE(readNpy(file, a, &error)) << error;
    return a;
  }

  fs::path dir_;
};

Rig exampleRig() {
  Rig rig;
  std::string error;
  EXPECT_TRUE(loadRig(STEREO_MAPS_EXAMPLE, CalibrationFormat::Auto, rig, error)) << error;
  return rig;
}

void expectEqualMap(const NpyArray& a, const std::vector<float>& expected, int rows, int cols) {
  ASSERT_EQ(a.rows, static_cast<uint32_t>(rows));
  ASSERT_EQ(a.cols, static_cast<uint32_t>(cols));
  ASSERT_EQ(a.values.size(), expected.size());
  size_t differing = 0;
  for (size_t i = 0; i < expected.size(); ++i)
    if (std::memcmp(&a.values[i], &expected[i], sizeof(float)) != 0) ++differing;
  EXPECT_EQ(differing, 0u);
}

TEST_F(ToolTest, RectifyWritesTheLibrarysMapsAndPreview) {
  const RunResult r = run("rectify --out " + path("maps"));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("depth constant"), std::string::npos);
  EXPECT_NE(r.out.find("valid pixels"), std::string::npos);

  Rig rig = exampleRig();
  const int w = rig.device.cameras[0].width, h = rig.device.cameras[0].height;
  const uint32_t n = static_cast<uint32_t>(w * h);
  std::vector<float> lx(n), ly(n), rx(n), ry(n);
  float depth = 0.f;
  CameraCalibrationMRV rectified{};
  ASSERT_TRUE(CreateRectifyMap(&rig.device, 0, lx.data(), n, ly.data(), n, rx.data(), n, ry.data(), n, &depth,
                               &rectified));
  expectEqualMap(load(path("maps/left_x.npy")), lx, h, w);
  expectEqualMap(load(path("maps/left_y.npy")), ly, h, w);
  expectEqualMap(load(path("maps/right_x.npy")), rx, h, w);
  expectEqualMap(load(path("maps/right_y.npy")), ry, h, w);
  EXPECT_TRUE(fs::exists(path("maps/rectified.xml")));
  const cv::Mat preview = cv::imread(path("maps/preview.png"));
  ASSERT_FALSE(preview.empty());
  EXPECT_EQ(preview.rows, 2 * h);
  EXPECT_EQ(preview.cols, 2 * w);
  // Only the results remain: no staging directory is left behind.
  for (const auto& entry : fs::directory_iterator(path("maps")))
    EXPECT_EQ(entry.path().filename().string().rfind(".stereo-maps-partial", 0), std::string::npos);
}

TEST_F(ToolTest, UndistortWritesTheLibrarysMaps) {
  const RunResult r = run("undistort --fov 0.8 --allow-out-of-image --out " + path("maps"));
  ASSERT_EQ(r.status, 0) << r.err;
  Rig rig = exampleRig();
  const int w = rig.device.cameras[0].width, h = rig.device.cameras[0].height;
  const uint32_t n = static_cast<uint32_t>(w * h);
  std::vector<float> lx(n), ly(n), rx(n), ry(n);
  ASSERT_TRUE(CreateUndistortMap(&rig.device, 1, 0.8f, lx.data(), n, ly.data(), n, rx.data(), n, ry.data(), n));
  expectEqualMap(load(path("maps/left_x.npy")), lx, h, w);
  expectEqualMap(load(path("maps/right_y.npy")), ry, h, w);
  EXPECT_TRUE(fs::exists(path("maps/preview.png")));
  EXPECT_FALSE(fs::exists(path("maps/rectified.xml")));
}

TEST_F(ToolTest, SeeThroughMapsTakeTheLeftDisplaySize) {
  const RunResult r = run("vst --plane-depth 1.5 --out " + path("maps"));
  ASSERT_EQ(r.status, 0) << r.err;
  Rig rig = exampleRig();
  ASSERT_TRUE(rig.hasDisplays);
  const int w = rig.leftDisplay.width, h = rig.leftDisplay.height;
  const uint32_t n = static_cast<uint32_t>(w * h);
  std::vector<float> lx(n), ly(n), rx(n), ry(n);
  ASSERT_TRUE(CreateFixedPlaneVSTMaps(&rig.device, &rig.leftDisplay, &rig.rightDisplay, 1.5f, 0, lx.data(), n,
                                      ly.data(), n, rx.data(), n, ry.data(), n));
  expectEqualMap(load(path("maps/left_y.npy")), ly, h, w);
  expectEqualMap(load(path("maps/right_x.npy")), rx, h, w);
}

TEST_F(ToolTest, InfoDescribesBothCamerasAndTheBaseline) {
  const RunResult r = run("info");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("camera 0"), std::string::npos);
  EXPECT_NE(r.out.find("camera 1"), std::string::npos);
  EXPECT_NE(r.out.find("baseline"), std::string::npos);
  EXPECT_NE(r.out.find("spline"), std::string::npos);
}

TEST_F(ToolTest, NumpyLoadsTheMapsAsFloat32) {
  if (::access("/usr/bin/python3", X_OK) != 0 ||
      std::system("/usr/bin/python3 -c 'import numpy' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "Debian's python3-numpy is not installed";
  ASSERT_EQ(run("undistort --out " + path("maps")).status, 0);
  Rig rig = exampleRig();
  const std::string check = "/usr/bin/python3 -c \"import numpy; a = numpy.load('" + path("maps/left_x.npy") +
                            "'); assert a.dtype == numpy.float32 and a.shape == (" +
                            std::to_string(rig.device.cameras[0].height) + ", " +
                            std::to_string(rig.device.cameras[0].width) + ")\"";
  EXPECT_EQ(std::system(check.c_str()), 0);
}

TEST_F(ToolTest, UserImagesAreUsedAndTheirSizeChecked) {
  Rig rig = exampleRig();
  const int w = rig.device.cameras[0].width, h = rig.device.cameras[0].height;
  cv::Mat image(h, w, CV_8UC1);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) image.at<unsigned char>(y, x) = static_cast<unsigned char>(((x / 16 + y / 16) & 1) * 200);
  ASSERT_TRUE(cv::imwrite(path("left.png"), image));
  ASSERT_TRUE(cv::imwrite(path("right.png"), image));
  cv::Mat small(h / 2, w / 2, CV_8UC1, cv::Scalar(10));
  ASSERT_TRUE(cv::imwrite(path("small.png"), small));

  const RunResult ok = run("rectify --images " + path("left.png") + " " + path("right.png") + " --out " + path("maps"));
  ASSERT_EQ(ok.status, 0) << ok.err;
  const cv::Mat preview = cv::imread(path("maps/preview.png"), cv::IMREAD_GRAYSCALE);
  ASSERT_FALSE(preview.empty());
  // The top-left quarter of the preview is the left input itself.
  EXPECT_EQ(cv::norm(preview(cv::Rect(0, 0, w, h)), image, cv::NORM_INF), 0.0);

  const RunResult bad =
      run("undistort --images " + path("small.png") + " " + path("right.png") + " --out " + path("bad"));
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("small.png"), std::string::npos) << bad.err;
  EXPECT_TRUE(!fs::exists(path("bad")) || fs::is_empty(path("bad")));
}

struct ErrorCase {
  const char* name;
  const char* fileContent;  // written to the calibration file; nullptr: no file
  const char* fileName;
  const char* extraArgs;
  const char* expectedText;
};

class ToolErrorTest : public ToolTest, public ::testing::WithParamInterface<ErrorCase> {};

TEST_P(ToolErrorTest, ExitsWithStatusTwoAndLeavesNoOutput) {
  const ErrorCase& c = GetParam();
  const std::string calib = path(c.fileName);
  if (c.fileContent) {
    std::ofstream(calib) << c.fileContent;
  }
  const RunResult r = run(std::string("rectify --calib ") + calib + " " + c.extraArgs + " --out " + path("maps"));
  EXPECT_EQ(r.status, 2) << r.out << r.err;
  EXPECT_NE(r.err.find(c.expectedText), std::string::npos) << r.err;
  EXPECT_TRUE(!fs::exists(path("maps")) || fs::is_empty(path("maps")));
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, ToolErrorTest,
    ::testing::Values(
        ErrorCase{"missing", nullptr, "absent.xml", "", "absent.xml"},
        ErrorCase{"badXml", "<DeviceConfiguration><Camera>", "broken.xml", "", "broken.xml"},
        ErrorCase{"shortRecord", "0123456789", "device.bin", "", "1504"},
        ErrorCase{"kalibrOmni",
                  "cam0:\n  camera_model: omni\n  intrinsics: [1, 400, 400, 320, 240]\n  resolution: [640, 480]\n",
                  "camchain.yaml", "", "omni"},
        ErrorCase{"kalibrBadNumber",
                  "cam0:\n  camera_model: pinhole\n  distortion_model: none\n  intrinsics: [400, x, 320, 240]\n"
                  "  resolution: [640, 480]\n",
                  "camchain.yaml", "", "cam0.intrinsics"},
        ErrorCase{"badFormat", "", "rig.xml", "--format json", "--format"}),
    [](const ::testing::TestParamInfo<ErrorCase>& info) { return std::string(info.param.name); });

TEST_F(ToolTest, RecordsTheLibraryWouldRejectAreRefusedBeforeTheCall) {
  Rig rig = exampleRig();
  auto writeRecord = [&](const std::string& name, const DeviceCalibrationMRV& device) {
    std::ofstream(path(name), std::ios::binary).write(reinterpret_cast<const char*>(&device), sizeof device);
    return path(name);
  };
  // A round trip through the raw record gives the same maps as the XML file.
  const std::string good = writeRecord("good.bin", rig.device);
  ASSERT_EQ(run("undistort --calib " + good + " --out " + path("fromRecord")).status, 0);
  ASSERT_EQ(run("undistort --out " + path("fromXml")).status, 0);
  NpyArray a = load(path("fromRecord/left_x.npy")), b = load(path("fromXml/left_x.npy"));
  EXPECT_EQ(a.values, b.values);

  DeviceCalibrationMRV badFocal = rig.device;
  badFocal.cameras[1].fx = 0.0;
  RunResult r = run("rectify --calib " + writeRecord("focal.bin", badFocal) + " --out " + path("maps"));
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("camera 1"), std::string::npos) << r.err;

  DeviceCalibrationMRV sameCentre = rig.device;
  sameCentre.cameras[1].pose = sameCentre.cameras[0].pose;
  r = run("rectify --calib " + writeRecord("centre.bin", sameCentre) + " --out " + path("maps"));
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("baseline"), std::string::npos) << r.err;

  DeviceCalibrationMRV zeroQuaternion = rig.device;
  zeroQuaternion.cameras[0].pose.orientation = XrQuaterniondMRV_t{0, 0, 0, 0};
  r = run("undistort --calib " + writeRecord("quaternion.bin", zeroQuaternion) + " --out " + path("maps"));
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("quaternion"), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(path("maps")));
}

TEST_F(ToolTest, BadOptionValuesExitWithStatusTwo) {
  EXPECT_EQ(run("undistort --fov -1 --out " + path("maps")).status, 2);
  EXPECT_EQ(run("vst --plane-depth 0 --out " + path("maps")).status, 2);
  EXPECT_EQ(run("rectify --images only-one.png --out " + path("maps")).status, 2);
  EXPECT_FALSE(fs::exists(path("maps")));
}

// A Kalibr camchain written here: cam1 sits 10 cm to the right of cam0 and is
// turned by a small rotation about the vertical axis.
std::string camchain(const std::string& distortionModel, const std::string& coeffs) {
  const double a = 0.02;  // radians
  const double c = std::cos(a), s = std::sin(a);
  char t[512];
  std::snprintf(t, sizeof t,
                "  T_cn_cnm1:\n  - [%.17g, 0.0, %.17g, -0.1]\n  - [0.0, 1.0, 0.0, 0.001]\n"
                "  - [%.17g, 0.0, %.17g, 0.002]\n  - [0.0, 0.0, 0.0, 1.0]\n",
                c, s, -s, c);
  const std::string cam = "  camera_model: pinhole\n  distortion_model: " + distortionModel +
                          "\n  distortion_coeffs: " + coeffs +
                          "\n  intrinsics: [458.6, 457.3, 367.2, 248.4]\n  resolution: [752, 480]\n";
  return "cam0:\n" + cam + "cam1:\n" + cam + t;
}

/// Pinhole projection with radial-tangential or equidistant distortion,
/// written out here so the check does not depend on the library's lens code.
bool project(const CameraCalibrationMRV& cam, const double p[3], double& u, double& v) {
  if (p[2] <= 0) return false;
  const double x = p[0] / p[2], y = p[1] / p[2];
  double xd, yd;
  if (cam.distortionModel == 1) {
    const double r2 = x * x + y * y;
    const double f = 1 + cam.k[0] * r2 + cam.k[1] * r2 * r2;
    xd = x * f + 2 * cam.p[0] * x * y + cam.p[1] * (r2 + 2 * x * x);
    yd = y * f + cam.p[0] * (r2 + 2 * y * y) + 2 * cam.p[1] * x * y;
  } else {
    const double r = std::sqrt(x * x + y * y);
    const double th = std::atan(r);
    const double th2 = th * th;
    const double thd = th * (1 + cam.k[0] * th2 + cam.k[1] * th2 * th2 + cam.k[2] * th2 * th2 * th2 +
                             cam.k[3] * th2 * th2 * th2 * th2);
    const double scale = r > 1e-12 ? thd / r : 1.0;
    xd = x * scale;
    yd = y * scale;
  }
  u = cam.fx * xd + cam.cx;
  v = cam.fy * yd + cam.cy;
  return true;
}

/// The rectified pixel whose map entry is nearest to the source pixel (u, v),
/// refined to sub-pixel by the local gradient of the map.
bool invertMap(const std::vector<float>& mx, const std::vector<float>& my, int w, int h, double u, double v,
               double& rx, double& ry) {
  double best = 1e30;
  int bx = -1, by = -1;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const size_t i = static_cast<size_t>(y) * w + x;
      if (mx[i] == -1.0f) continue;
      const double d = (mx[i] - u) * (mx[i] - u) + (my[i] - v) * (my[i] - v);
      if (d < best) {
        best = d;
        bx = x;
        by = y;
      }
    }
  if (bx < 1 || by < 1 || bx >= w - 1 || by >= h - 1 || best > 4.0) return false;
  const auto at = [&](const std::vector<float>& m, int x, int y) { return double(m[size_t(y) * w + x]); };
  // Solve J * (dx, dy) = (u, v) - map(bx, by) with central differences.
  const double j00 = 0.5 * (at(mx, bx + 1, by) - at(mx, bx - 1, by)), j01 = 0.5 * (at(mx, bx, by + 1) - at(mx, bx, by - 1));
  const double j10 = 0.5 * (at(my, bx + 1, by) - at(my, bx - 1, by)), j11 = 0.5 * (at(my, bx, by + 1) - at(my, bx, by - 1));
  const double det = j00 * j11 - j01 * j10;
  if (std::fabs(det) < 1e-9) return false;
  const double eu = u - at(mx, bx, by), ev = v - at(my, bx, by);
  rx = bx + (j11 * eu - j01 * ev) / det;
  ry = by + (-j10 * eu + j00 * ev) / det;
  return true;
}

class KalibrTest : public ToolTest, public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(KalibrTest, ImportsModelsPosesAndRectifiesToCommonRows) {
  const std::string file = path("camchain.yaml");
  std::ofstream(file) << camchain(GetParam().first, GetParam().second);
  Rig rig;
  std::string error;
  ASSERT_TRUE(loadKalibrCamchain(file, rig, error)) << error;
  const CameraCalibrationMRV& c0 = rig.device.cameras[0];
  const CameraCalibrationMRV& c1 = rig.device.cameras[1];
  EXPECT_EQ(c0.distortionModel, std::string(GetParam().first) == "radtan" ? 1 : 5);
  EXPECT_EQ(c0.width, 752);
  EXPECT_EQ(c0.height, 480);
  EXPECT_DOUBLE_EQ(c0.fx, 458.6);
  EXPECT_DOUBLE_EQ(c0.cy, 248.4);
  EXPECT_DOUBLE_EQ(c0.pose.orientation.w, 1.0);
  // cam1 = T_cn_cnm1: a rotation of 0.02 rad about y and the translation as written.
  EXPECT_NEAR(c1.pose.orientation.y, std::sin(0.01), 1e-12);
  EXPECT_NEAR(c1.pose.position.x, -0.1, 1e-12);
  EXPECT_NEAR(c1.pose.position.z, 0.002, 1e-12);

  const int w = c0.width, h = c0.height;
  const uint32_t n = static_cast<uint32_t>(w * h);
  std::vector<float> lx(n), ly(n), rx(n), ry(n);
  float depth = 0.f;
  CameraCalibrationMRV rectified{};
  ASSERT_TRUE(CreateRectifyMap(&rig.device, 0, lx.data(), n, ly.data(), n, rx.data(), n, ry.data(), n, &depth,
                               &rectified));
  // A point 3 m ahead, seen by both cameras, lands on the same rectified row.
  const double p0[3] = {0.2, -0.15, 3.0};
  const Pose rel = fromPoseRecord(c1.pose);
  double p1[3];
  for (int r = 0; r < 3; ++r) p1[r] = rel.R[r * 3] * p0[0] + rel.R[r * 3 + 1] * p0[1] + rel.R[r * 3 + 2] * p0[2] + rel.t[r];
  double u0, v0, u1, v1, x0, y0, x1, y1;
  ASSERT_TRUE(project(c0, p0, u0, v0));
  ASSERT_TRUE(project(c1, p1, u1, v1));
  ASSERT_TRUE(invertMap(lx, ly, w, h, u0, v0, x0, y0));
  ASSERT_TRUE(invertMap(rx, ry, w, h, u1, v1, x1, y1));
  EXPECT_NEAR(y0, y1, 0.1);
  EXPECT_GT(x0, x1);  // positive disparity for a point in front
}

INSTANTIATE_TEST_SUITE_P(Models, KalibrTest,
                         ::testing::Values(std::make_pair("radtan", "[-0.28, 0.07, 0.0002, 0.00002]"),
                                           std::make_pair("equidistant", "[-0.013, 0.021, -0.017, 0.004]")),
                         [](const auto& info) { return std::string(info.param.first); });

}  // namespace
}  // namespace StereoMaps
