#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
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
#include "OutputDirectory.h"
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
    // A hang is a failure too: timeout's own status (124) is not 2.
    const int raw =
        std::system(("timeout 120 " + std::string(STEREO_MAPS_EXE) + " " + args + " >" + out + " 2>" + err).c_str());
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

/// Every file and directory below `root`, with the size of each file, so
/// that a run which must write nothing can be shown to have written nothing.
std::vector<std::string> listing(const fs::path& root) {
  std::vector<std::string> entries;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = fs::relative(entry.path(), root).string();
    if (name == "stdout.txt" || name == "stderr.txt") continue;
    entries.push_back(name + (entry.is_regular_file() ? " " + std::to_string(entry.file_size()) : " dir"));
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

std::string writeText(const fs::path& file, const std::string& text) {
  std::ofstream(file) << text;
  return file.string();
}

/// A raw record of the example rig after `change`.
std::string writeRecord(const fs::path& file, const std::function<void(DeviceCalibrationMRV&)>& change) {
  DeviceCalibrationMRV device = exampleRig().device;
  change(device);
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(&device), sizeof device);
  return file.string();
}

/// The example XML file with its first occurrence of `from` replaced by `to`.
std::string writeXml(const fs::path& file, const std::string& from, const std::string& to) {
  std::string text = readFile(STEREO_MAPS_EXAMPLE);
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return writeText(file, text);
}

std::string kalibrCamchain(const std::string& fx, const std::string& k1) {
  const std::string cam = "  camera_model: pinhole\n  distortion_model: radtan\n  distortion_coeffs: [" + k1 +
                          ", 0.07, 0.0002, 0.00002]\n  intrinsics: [" + fx +
                          ", 457.3, 367.2, 248.4]\n  resolution: [752, 480]\n";
  return "cam0:\n" + cam + "cam1:\n" + cam +
         "  T_cn_cnm1:\n  - [1, 0, 0, -0.1]\n  - [0, 1, 0, 0]\n  - [0, 0, 1, 0]\n  - [0, 0, 0, 1]\n";
}

struct ErrorCase {
  const char* name;
  /// Prepares the inputs in the scratch directory and returns the arguments
  /// (without --out).
  std::function<std::string(const fs::path& dir)> arguments;
  const char* expectedText;
};

class ToolErrorTest : public ToolTest, public ::testing::WithParamInterface<ErrorCase> {};

TEST_P(ToolErrorTest, ExitsWithStatusTwoAndWritesNothing) {
  const ErrorCase& c = GetParam();
  const std::string args = c.arguments(dir_) + " --out " + path("maps");
  const std::vector<std::string> before = listing(dir_);
  const RunResult r = run(args);
  EXPECT_EQ(r.status, 2) << args << "\n" << r.out << r.err;
  EXPECT_NE(r.err.find(c.expectedText), std::string::npos) << r.err;
  // One sentence: a single line on standard error.
  EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
  // Neither the output directory nor a staging directory beside it.
  EXPECT_EQ(listing(dir_), before);
}

const auto kCalib = [](const std::string& args, const std::string& file) { return args + " --calib " + file; };

INSTANTIATE_TEST_SUITE_P(
    Inputs, ToolErrorTest,
    ::testing::Values(
        ErrorCase{"missing", [](const fs::path& d) { return kCalib("rectify", (d / "absent.xml").string()); },
                  "absent.xml"},
        ErrorCase{"badXml",
                  [](const fs::path& d) {
                    return kCalib("rectify", writeText(d / "broken.xml", "<DeviceConfiguration><Camera>"));
                  },
                  "broken.xml"},
        ErrorCase{"shortRecord",
                  [](const fs::path& d) { return kCalib("rectify", writeText(d / "device.bin", "0123456789")); },
                  "1504"},
        ErrorCase{"kalibrOmni",
                  [](const fs::path& d) {
                    return kCalib("rectify", writeText(d / "camchain.yaml",
                                                       "cam0:\n  camera_model: omni\n  intrinsics: [1, 400, 400, "
                                                       "320, 240]\n  resolution: [640, 480]\n"));
                  },
                  "omni"},
        ErrorCase{"kalibrInfinite",
                  [](const fs::path& d) {
                    return kCalib("rectify", writeText(d / "camchain.yaml", kalibrCamchain(".inf", "-0.28")));
                  },
                  "cam0.intrinsics"},
        ErrorCase{"kalibrBeyondFloat",
                  [](const fs::path& d) {
                    return kCalib("undistort", writeText(d / "camchain.yaml", kalibrCamchain("458.6", "1e39")));
                  },
                  "camera 0: k1 = 1e+39"},
        ErrorCase{"directoryAsRecord",
                  [](const fs::path& d) {
                    fs::create_directory(d / "device.bin");
                    return kCalib("rectify", (d / "device.bin").string());
                  },
                  "is a directory"},
        ErrorCase{"directoryAsXml",
                  [](const fs::path& d) {
                    fs::create_directory(d / "rig.xml");
                    return kCalib("undistort", (d / "rig.xml").string());
                  },
                  "is a directory"},
        ErrorCase{"deviceAsRecord", [](const fs::path&) { return kCalib("rectify", "/dev/zero"); },
                  "not a regular file"},
        ErrorCase{"fifoAsKalibr",
                  [](const fs::path& d) {
                    EXPECT_EQ(::mkfifo((d / "camchain.yaml").c_str(), 0600), 0);
                    return kCalib("undistort", (d / "camchain.yaml").string());
                  },
                  "not a regular file"},
        ErrorCase{"fifoAsImage",
                  [](const fs::path& d) {
                    EXPECT_EQ(::mkfifo((d / "left.png").c_str(), 0600), 0);
                    return "rectify --images " + (d / "left.png").string() + " " + STEREO_MAPS_EXAMPLE;
                  },
                  "not a regular file"},
        ErrorCase{"emptyCalib", [](const fs::path&) { return std::string("rectify --calib ''"); }, "empty path"},
        ErrorCase{"camera1OfInt32MaxWidth",
                  [](const fs::path& d) {
                    return kCalib("rectify", writeRecord(d / "device.bin", [](DeviceCalibrationMRV& device) {
                                    device.cameras[1].width = INT32_MAX;
                                  }));
                  },
                  "camera 1: size 2147483647 x"},
        ErrorCase{"displayTooLarge",
                  [](const fs::path& d) {
                    return kCalib("vst", writeXml(d / "rig.xml", "width=\"1280\" height=\"1280\"",
                                                  "width=\"65535\" height=\"65535\""));
                  },
                  "left display eye: size 65535 x 65535"},
        ErrorCase{"infiniteFocalRecord",
                  [](const fs::path& d) {
                    return kCalib("rectify", writeRecord(d / "device.bin", [](DeviceCalibrationMRV& device) {
                                    device.cameras[0].fx = HUGE_VAL;
                                  }));
                  },
                  "camera 0: fx = inf"},
        ErrorCase{"nanCoefficientRecord",
                  [](const fs::path& d) {
                    return kCalib("undistort", writeRecord(d / "device.bin", [](DeviceCalibrationMRV& device) {
                                    device.cameras[1].k[3] = std::nan("");
                                  }));
                  },
                  "camera 1: k4 = nan"},
        ErrorCase{"infiniteFocalXml",
                  [](const fs::path& d) {
                    return kCalib("rectify", writeXml(d / "rig.xml", "focal_length=\"279.73", "focal_length=\"inf"));
                  },
                  "focal_length"},
        ErrorCase{"displayFocalBeyondFloat",
                  [](const fs::path& d) {
                    return kCalib("vst", writeXml(d / "rig.xml", "fx=\"612\"", "fx=\"1e39\""));
                  },
                  "left display eye: fx = 1e+39"},
        ErrorCase{"quaternionZeroInFloat",
                  [](const fs::path& d) {
                    return kCalib("undistort", writeRecord(d / "device.bin", [](DeviceCalibrationMRV& device) {
                                    device.cameras[0].pose.orientation = XrQuaterniondMRV_t{0, 0, 1e-30, 1e-30};
                                  }));
                  },
                  "camera 0: pose orientation is not a usable quaternion"},
        ErrorCase{"baselineZeroInFloat",
                  [](const fs::path& d) {
                    // 5 mm apart at 10 000 km: distinct doubles, one float.
                    return kCalib("rectify", writeRecord(d / "device.bin", [](DeviceCalibrationMRV& device) {
                                    for (auto& cam : device.cameras) cam.pose.orientation = {0, 0, 0, 1};
                                    device.cameras[0].pose.position = {1e7, 0, 0};
                                    device.cameras[1].pose.position = {1e7 + 0.005, 0, 0};
                                  }));
                  },
                  "baseline"},
        ErrorCase{"rational6RootNaN",
                  [](const fs::path& d) {
                    // The library's own validation: its message, and none of
                    // the log lines the camera build writes on the way.
                    return kCalib("undistort", writeRecord(d / "device.bin", [](DeviceCalibrationMRV& device) {
                                    CameraCalibrationMRV& cam = device.cameras[0];
                                    cam.distortionModel = RADIAL_6_PARAMETERS;
                                    for (double& k : cam.k) k = 0.0;
                                    cam.k[5] = 1e10;
                                  }));
                  },
                  "camera 0 (trackingA0) distortion model"},
        ErrorCase{"positionSquaresBeyondFloat",
                  [](const fs::path& d) {
                    return kCalib("undistort", writeRecord(d / "device.bin", [](DeviceCalibrationMRV& device) {
                                    device.cameras[1].pose.position.z = 1e26;
                                  }));
                  },
                  "camera 1: pose position"},
        ErrorCase{"badFormat", [](const fs::path&) { return std::string("rectify --format json"); }, "--format"},
        ErrorCase{"negativeFov", [](const fs::path&) { return std::string("undistort --fov -1"); }, "--fov"},
        ErrorCase{"fovBeyondFloat", [](const fs::path&) { return std::string("undistort --fov 1e39"); }, "--fov"},
        ErrorCase{"planeDepthBeyondFloat", [](const fs::path&) { return std::string("vst --plane-depth 1e39"); },
                  "--plane-depth"},
        ErrorCase{"planeDepthNaN", [](const fs::path&) { return std::string("vst --plane-depth nan"); },
                  "--plane-depth"},
        ErrorCase{"oneImage", [](const fs::path&) { return std::string("rectify --images only-one.png"); },
                  "--images"},
        ErrorCase{"outputNameTakenByADirectory",
                  [](const fs::path& d) {
                    // Files before it in the commit order must not appear either.
                    fs::create_directories(d / "maps" / "right_x.npy");
                    writeText(d / "maps" / "left_x.npy", "an older map");
                    writeText(d / "maps" / "right_x.npy" / "kept", "x");
                    return std::string("rectify");
                  },
                  "right_x.npy: exists and is not a regular file"},
        // Found by its header although .yml would otherwise be a Kalibr camchain.
        ErrorCase{"opencvWithoutSize",
                  [](const fs::path& d) {
                    return kCalib("rectify", writeText(d / "stereo.yml", "%YAML:1.0\nK1: 1\n"));
                  },
                  "key 'image_size' is missing"},
        ErrorCase{"opencvSixCoefficients",
                  [](const fs::path& d) {
                    return kCalib("rectify --format opencv",
                                  writeText(d / "stereo.txt",
                                            "%YAML:1.0\nimage_size: [640, 480]\nK1: !!opencv-matrix\n  rows: 3\n"
                                            "  cols: 3\n  dt: d\n  data: [300, 0, 320, 0, 300, 240, 0, 0, 1]\n"
                                            "D1: !!opencv-matrix\n  rows: 1\n  cols: 6\n  dt: d\n"
                                            "  data: [0, 0, 0, 0, 0, 0]\n"));
                  },
                  "key 'D1' holds 6 coefficients"},
        ErrorCase{"opencvDirectory",
                  [](const fs::path& d) {
                    fs::create_directory(d / "stereo.yml");
                    return kCalib("rectify --format opencv", (d / "stereo.yml").string());
                  },
                  "is a directory"}),
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

TEST_F(ToolTest, AFailedCommitPutsBackWhatItReplaced) {
  // A staged file that vanished makes the second rename fail after the first
  // has replaced an older file: the older file must come back.
  const fs::path out = dir_ / "maps";
  fs::create_directories(out);
  writeText(out / "a.npy", "older");
  const std::vector<std::string> before = listing(dir_);
  {
    OutputDirectory directory;
    std::string error;
    ASSERT_TRUE(directory.open(out.string(), error)) << error;
    writeText(directory.stage("a.npy"), "newer");
    directory.stage("b.npy");  // staged, never written
    EXPECT_FALSE(directory.commit(error));
    EXPECT_NE(error.find("b.npy"), std::string::npos) << error;
  }
  EXPECT_EQ(listing(dir_), before);
  EXPECT_EQ(readFile((out / "a.npy").string()), "older");
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
