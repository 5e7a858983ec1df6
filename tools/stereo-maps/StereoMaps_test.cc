#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "CalibrationInput.h"
#include "CustomRectify.h"
#include "KalibrImport.h"
#include "Npy.h"
#include "RecordRig.h"

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

/// Runs the installed-to-be tool in a scratch directory of its own.
class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->name()) + "-" + std::to_string(::getpid());
    for (char& c : name)
      if (c == '/') c = '_';
    dir_ = fs::temp_directory_path() / ("stereo-maps-test-" + name);
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  RunResult run(const std::string& args) {
    const std::string out = path("stdout.txt"), err = path("stderr.txt");
    const int raw = std::system((std::string(STEREO_MAPS_EXE) + " " + args + " >" + out + " 2>" + err).c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readFile(out), readFile(err)};
  }

  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  /// The .npy file must be float32 of the given shape and equal `expected` bit for bit.
  void expectMap(const std::string& file, const std::vector<float>& expected, int rows, int cols) {
    NpyArray a;
    std::string error;
    ASSERT_TRUE(readNpy(path(file), a, &error)) << error;
    EXPECT_EQ(a.rows, uint32_t(rows));
    EXPECT_EQ(a.cols, uint32_t(cols));
    EXPECT_TRUE(std::memcmp(a.values.data(), expected.data(), expected.size() * sizeof(float)) == 0 &&
                a.values.size() == expected.size())
        << file;
  }

  bool noOutputIn(const std::string& dir) { return !fs::exists(path(dir)) || fs::is_empty(path(dir)); }

  fs::path dir_;
};

Rig exampleRig() {
  Rig rig;
  std::string error;
  EXPECT_TRUE(loadRig(STEREO_MAPS_EXAMPLE, CalibrationFormat::Auto, rig, error)) << error;
  return rig;
}

/// Maps of one library call, each of the size the subcommand uses.
struct Maps {
  int rows = 0, cols = 0;
  std::vector<float> lx, ly, rx, ry;
  Maps(int width, int height) : rows(height), cols(width) {
    for (auto* m : {&lx, &ly, &rx, &ry}) m->assign(size_t(width) * height, 0.f);
  }
  uint32_t n() const { return uint32_t(lx.size()); }
};

struct Subcommand {
  const char* name;
  const char* args;
  std::function<Maps(Rig&)> expected;  // the same maps straight from the library
};

class ToolSubcommandTest : public ToolTest, public ::testing::WithParamInterface<Subcommand> {};

TEST_P(ToolSubcommandTest, WritesTheLibrarysMapsAndAPreview) {
  const std::string name = GetParam().name;
  const std::string command = name.rfind("rectify", 0) == 0 ? "rectify" : name;
  const RunResult r = run(command + " " + GetParam().args + " --out " + path("maps"));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("valid pixels"), std::string::npos);
  Rig rig = exampleRig();
  const Maps m = GetParam().expected(rig);
  expectMap("maps/left_x.npy", m.lx, m.rows, m.cols);
  expectMap("maps/left_y.npy", m.ly, m.rows, m.cols);
  expectMap("maps/right_x.npy", m.rx, m.rows, m.cols);
  expectMap("maps/right_y.npy", m.ry, m.rows, m.cols);
  EXPECT_FALSE(cv::imread(path("maps/preview.png")).empty());
  // Only results remain: the staging directory is gone.
  for (const auto& entry : fs::directory_iterator(path("maps")))
    EXPECT_EQ(entry.path().filename().string().rfind(".stereo-maps-partial", 0), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Example, ToolSubcommandTest,
    ::testing::Values(
        Subcommand{"rectify", "",
                   [](Rig& rig) {
                     Maps m(rig.device.cameras[0].width, rig.device.cameras[0].height);
                     float depth = 0.f;
                     CameraCalibrationMRV rectified{};
                     CreateRectifyMap(&rig.device, 0, m.lx.data(), m.n(), m.ly.data(), m.n(), m.rx.data(), m.n(),
                                      m.ry.data(), m.n(), &depth, &rectified);
                     return m;
                   }},
        Subcommand{"rectifyFitted", "--disparities 96 --min-depth 0.5 --max-depth 8 --width 600",
                   [](Rig& rig) {
                     const RectifyTarget target{96, 0.5f, 8.0f, 600};
                     Maps m(600, rig.device.cameras[0].height);
                     RectifyResult result;
                     std::string error;
                     EXPECT_TRUE(buildRectifyMaps(rig.device, target, false, m.lx.data(), m.ly.data(), m.rx.data(),
                                                  m.ry.data(), result, error))
                         << error;
                     return m;
                   }},
        Subcommand{"undistort", "--fov 0.8 --allow-out-of-image",
                   [](Rig& rig) {
                     Maps m(rig.device.cameras[0].width, rig.device.cameras[0].height);
                     CreateUndistortMap(&rig.device, 1, 0.8f, m.lx.data(), m.n(), m.ly.data(), m.n(), m.rx.data(),
                                        m.n(), m.ry.data(), m.n());
                     return m;
                   }},
        Subcommand{"vst", "--plane-depth 1.5",
                   [](Rig& rig) {
                     Maps m(rig.leftDisplay.width, rig.leftDisplay.height);
                     CreateFixedPlaneVSTMaps(&rig.device, &rig.leftDisplay, &rig.rightDisplay, 1.5f, 0, m.lx.data(),
                                             m.n(), m.ly.data(), m.n(), m.rx.data(), m.n(), m.ry.data(), m.n());
                     return m;
                   }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ToolTest, InfoAndRectifySummariseTheRig) {
  const RunResult info = run("info");
  ASSERT_EQ(info.status, 0) << info.err;
  for (const char* part : {"camera 0", "camera 1", "baseline 0.1", "relative rotation", "spline"})
    EXPECT_NE(info.out.find(part), std::string::npos) << part;
  const RunResult rectify = run("rectify --out " + path("maps"));
  EXPECT_NE(rectify.out.find("depth constant"), std::string::npos);
  EXPECT_TRUE(fs::exists(path("maps/rectified.xml")));
}

TEST_F(ToolTest, NumpyLoadsTheMapsAsFloat32) {
  if (std::system("/usr/bin/python3 -c 'import numpy' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "Debian's python3-numpy is not installed";
  ASSERT_EQ(run("undistort --out " + path("maps")).status, 0);
  const CameraCalibrationMRV& cam = exampleRig().device.cameras[0];
  const std::string check = "/usr/bin/python3 -c \"import numpy; a = numpy.load('" + path("maps/left_x.npy") +
                            "'); assert a.dtype == numpy.float32 and a.shape == (" + std::to_string(cam.height) +
                            ", " + std::to_string(cam.width) + ")\"";
  EXPECT_EQ(std::system(check.c_str()), 0);
}

TEST_F(ToolTest, UserImagesAreUsedAndTheirSizeChecked) {
  const CameraCalibrationMRV& cam = exampleRig().device.cameras[0];
  cv::Mat image(cam.height, cam.width, CV_8UC1);
  for (int y = 0; y < cam.height; ++y)
    for (int x = 0; x < cam.width; ++x) image.at<unsigned char>(y, x) = ((x / 16 + y / 16) & 1) ? 200 : 0;
  ASSERT_TRUE(cv::imwrite(path("left.png"), image) && cv::imwrite(path("right.png"), image));
  ASSERT_TRUE(cv::imwrite(path("small.png"), cv::Mat(cam.height / 2, cam.width / 2, CV_8UC1, cv::Scalar(10))));

  ASSERT_EQ(run("rectify --images " + path("left.png") + " " + path("right.png") + " --out " + path("maps")).status, 0);
  // The top-left quarter of the preview is the left input itself.
  const cv::Mat preview = cv::imread(path("maps/preview.png"), cv::IMREAD_GRAYSCALE);
  ASSERT_FALSE(preview.empty());
  EXPECT_EQ(cv::norm(preview(cv::Rect(0, 0, cam.width, cam.height)), image, cv::NORM_INF), 0.0);

  const RunResult bad = run("undistort --images " + path("small.png") + " " + path("right.png") + " --out " + path("bad"));
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("small.png"), std::string::npos) << bad.err;
  EXPECT_TRUE(noOutputIn("bad"));
}

struct ErrorCase {
  const char* name;
  const char* fileContent;  // nullptr: the file does not exist
  const char* fileName;
  const char* args;
  const char* expectedText;
};

class ToolErrorTest : public ToolTest, public ::testing::WithParamInterface<ErrorCase> {};

TEST_P(ToolErrorTest, ExitsWithStatusTwoAndLeavesNoOutput) {
  const ErrorCase& c = GetParam();
  if (c.fileContent) std::ofstream(path(c.fileName)) << c.fileContent;
  const RunResult r = run(std::string(c.args) + " --calib " + path(c.fileName) + " --out " + path("maps"));
  EXPECT_EQ(r.status, 2) << r.out << r.err;
  EXPECT_NE(r.err.find(c.expectedText), std::string::npos) << r.err;
  EXPECT_TRUE(noOutputIn("maps"));
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, ToolErrorTest,
    ::testing::Values(
        ErrorCase{"missing", nullptr, "absent.xml", "rectify", "absent.xml"},
        ErrorCase{"badXml", "<DeviceConfiguration><Camera>", "broken.xml", "rectify", "broken.xml"},
        ErrorCase{"shortRecord", "0123456789", "device.bin", "rectify", "1504"},
        ErrorCase{"kalibrOmni",
                  "cam0:\n  camera_model: omni\n  intrinsics: [1, 400, 400, 320, 240]\n  resolution: [640, 480]\n",
                  "camchain.yaml", "rectify", "omni"},
        ErrorCase{"kalibrBadNumber",
                  "cam0:\n  camera_model: pinhole\n  distortion_model: none\n  intrinsics: [400, x, 320, 240]\n"
                  "  resolution: [640, 480]\n",
                  "camchain.yaml", "rectify", "cam0.intrinsics"},
        ErrorCase{"badFormat", "", "rig.xml", "rectify --format json", "--format"},
        // Found by its header although .yml would otherwise be a Kalibr camchain.
        ErrorCase{"opencvWithoutSize", "%YAML:1.0\nK1: 1\n", "stereo.yml", "rectify", "key 'image_size' is missing"},
        ErrorCase{"opencvSixCoefficients",
                  "%YAML:1.0\nimage_size: [640, 480]\nK1: !!opencv-matrix\n  rows: 3\n  cols: 3\n  dt: d\n"
                  "  data: [300, 0, 320, 0, 300, 240, 0, 0, 1]\nD1: !!opencv-matrix\n  rows: 1\n  cols: 6\n"
                  "  dt: d\n  data: [0, 0, 0, 0, 0, 0]\n",
                  "stereo.txt", "rectify --format opencv", "key 'D1' holds 6 coefficients"},
        ErrorCase{"badFov", "", "rig.xml", "undistort --fov -1", "--fov"},
        ErrorCase{"badPlaneDepth", "", "rig.xml", "vst --plane-depth 0", "--plane-depth"},
        ErrorCase{"oneImage", "", "rig.xml", "rectify --images only-one.png", "--images"}),
    [](const ::testing::TestParamInfo<ErrorCase>& info) { return std::string(info.param.name); });

TEST_F(ToolTest, RectificationTargetsAreCheckedAndReported) {
  const RunResult fitted = run("rectify --min-depth 1 --max-depth 10 --out " + path("maps"));
  ASSERT_EQ(fitted.status, 0) << fitted.err;
  // 64 disparities over 1..10 m: offset 64/9, constant 10 times that.
  EXPECT_NE(readFile(path("maps/rectified.xml")).find("<DepthOffset>7.11111"), std::string::npos);
  for (const auto& [args, text] : std::vector<std::pair<std::string, std::string>>{
           {"--min-depth 5 --max-depth 5", "--min-depth: must be below --max-depth"},
           {"--width 641", "--width: must be between 1 and camera 0's width 640"},
           {"--disparities 0", "--disparities: must be between 1"},
           {"--min-depth 9.999 --max-depth 10", "the rectified pair has no baseline"}}) {
    const RunResult bad = run("rectify " + args + " --out " + path("bad"));
    EXPECT_EQ(bad.status, 2) << args;
    EXPECT_NE(bad.err.find(text), std::string::npos) << bad.err;
    EXPECT_TRUE(noOutputIn("bad"));
  }
}

TEST_F(ToolTest, RecordsTheLibraryWouldRejectAreRefusedBeforeTheCall) {
  const Rig rig = exampleRig();
  const auto writeRecord = [&](const std::string& name, const DeviceCalibrationMRV& device) {
    std::ofstream(path(name), std::ios::binary).write(reinterpret_cast<const char*>(&device), sizeof device);
    return path(name);
  };
  // A raw record of the example rig gives the maps the XML file gives.
  ASSERT_EQ(run("undistort --calib " + writeRecord("good.bin", rig.device) + " --out " + path("record")).status, 0);
  ASSERT_EQ(run("undistort --out " + path("xml")).status, 0);
  EXPECT_EQ(readFile(path("record/left_x.npy")), readFile(path("xml/left_x.npy")));

  DeviceCalibrationMRV badFocal = rig.device, sameCentre = rig.device, zeroQuaternion = rig.device;
  badFocal.cameras[1].fx = 0.0;
  sameCentre.cameras[1].pose = sameCentre.cameras[0].pose;
  zeroQuaternion.cameras[0].pose.orientation = XrQuaterniondMRV_t{0, 0, 0, 0};
  const std::pair<std::string, const char*> cases[] = {
      {"rectify --calib " + writeRecord("focal.bin", badFocal), "camera 1"},
      {"rectify --calib " + writeRecord("centre.bin", sameCentre), "baseline"},
      {"undistort --calib " + writeRecord("quaternion.bin", zeroQuaternion), "quaternion"}};
  for (const auto& [args, text] : cases) {
    const RunResult r = run(args + " --out " + path("maps"));
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_NE(r.err.find(text), std::string::npos) << r.err;
  }
  EXPECT_TRUE(noOutputIn("maps"));
}

// A Kalibr camchain: cam1 sits 10 cm to the side of cam0, turned 0.02 rad about y.
std::string camchain(const std::string& distortionModel, const std::string& coeffs) {
  const double c = std::cos(0.02), s = std::sin(0.02);
  const std::string cam = "  camera_model: pinhole\n  distortion_model: " + distortionModel +
                          "\n  distortion_coeffs: " + coeffs +
                          "\n  intrinsics: [458.6, 457.3, 367.2, 248.4]\n  resolution: [752, 480]\n";
  return "cam0:\n" + cam + "cam1:\n" + cam + "  T_cn_cnm1:\n  - [" + std::to_string(c) + ", 0.0, " +
         std::to_string(s) + ", -0.1]\n  - [0.0, 1.0, 0.0, 0.001]\n  - [" + std::to_string(-s) + ", 0.0, " +
         std::to_string(c) + ", 0.002]\n  - [0.0, 0.0, 0.0, 1.0]\n";
}

/// The map position (whole pixels) whose entry is nearest to source pixel (u, v).
bool nearestEntry(const std::vector<float>& mx, const std::vector<float>& my, int w, double u, double v, int& x,
                  int& y) {
  double best = 2.0;  // squared pixels: farther than that the point is not in the map
  for (size_t i = 0; i < mx.size(); ++i) {
    const double d = (mx[i] - u) * (mx[i] - u) + (my[i] - v) * (my[i] - v);
    if (mx[i] != -1.0f && d < best) {
      best = d;
      x = int(i % size_t(w));
      y = int(i / size_t(w));
    }
  }
  return best < 2.0;
}

class KalibrTest : public ToolTest, public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(KalibrTest, ImportsModelsPosesAndRectifiesToCommonRows) {
  std::ofstream(path("camchain.yaml")) << camchain(GetParam().first, GetParam().second);
  Rig rig;
  std::string error;
  ASSERT_TRUE(loadKalibrCamchain(path("camchain.yaml"), rig, error)) << error;
  const CameraCalibrationMRV& c0 = rig.device.cameras[0];
  const CameraCalibrationMRV& c1 = rig.device.cameras[1];
  EXPECT_EQ(c0.distortionModel, std::string(GetParam().first) == "radtan" ? RADIAL_2_PARAMETERS : FISHEYE_4_PARAMETERS);
  EXPECT_EQ(c0.width, 752);
  EXPECT_DOUBLE_EQ(c0.fx, 458.6);
  EXPECT_DOUBLE_EQ(c0.cy, 248.4);
  EXPECT_DOUBLE_EQ(c0.pose.orientation.w, 1.0);
  EXPECT_NEAR(c1.pose.orientation.y, std::sin(0.01), 1e-6);
  EXPECT_NEAR(c1.pose.position.x, -0.1, 1e-12);

  Maps m(c0.width, c0.height);
  float depth = 0.f;
  CameraCalibrationMRV rectified{};
  CreateRectifyMap(&rig.device, 0, m.lx.data(), m.n(), m.ly.data(), m.n(), m.rx.data(), m.n(), m.ry.data(), m.n(),
                   &depth, &rectified);
  // A point 3 m ahead lands on the same rectified row in both images.
  const RecordRig::Vec3d p0(0.2, -0.15, 3.0);
  const RecordRig::Vec3d p1 = RecordRig::rotationOf(c1.pose.orientation) * p0 + RecordRig::positionOf(c1.pose);
  double u0, v0, u1, v1, rSq;
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  ASSERT_TRUE(RecordRig::projectClosedForm(c0, p0, u0, v0, rSq) && RecordRig::projectClosedForm(c1, p1, u1, v1, rSq));
  ASSERT_TRUE(nearestEntry(m.lx, m.ly, c0.width, u0, v0, x0, y0));
  ASSERT_TRUE(nearestEntry(m.rx, m.ry, c0.width, u1, v1, x1, y1));
  EXPECT_LE(std::abs(y0 - y1), 1);
  EXPECT_GT(x0, x1);  // positive disparity for a point in front
}

INSTANTIATE_TEST_SUITE_P(Models, KalibrTest,
                         ::testing::Values(std::make_pair("radtan", "[-0.28, 0.07, 0.0002, 0.00002]"),
                                           std::make_pair("equidistant", "[-0.013, 0.021, -0.017, 0.004]")),
                         [](const auto& info) { return std::string(info.param.first); });

}  // namespace
}  // namespace StereoMaps
