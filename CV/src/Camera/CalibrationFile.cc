#include "AR/CV/Camera/CalibrationFile.h"

#include <tinyxml2.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>

#include "AR/Math/internal/MatrixFunctions.h"
#include "CameraModel/CameraModel.h"

namespace AR {
namespace CV {

namespace {

using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;

constexpr const char* kRootElement = "DeviceConfiguration";
constexpr int kFileVersion = 1;

/// Lens coefficients beyond this magnitude are rejected: no real lens has
/// them, and the range analysis of the rational model would overflow in
/// single precision (cubes of the coefficients).
constexpr double kMaxCoefficientMagnitude = 1e4;

/// A rotation read from a file may deviate from orthonormal by rounding of
/// its printed digits; beyond this it is not a rotation at all.
constexpr double kMaxRotationError = 1e-3;

/// The rotation as a file holds it: orthonormal to within a few units of
/// rounding of T. A matrix already that close is returned bit for bit; one
/// further off gets orthonormalisation steps until it is (from the loader's
/// tolerance, three steps at most in practice). Both saving and loading go
/// through this, so a saved rotation loads back bit for bit and saving what
/// was loaded writes the same digits again.
template <typename T>
AR::Math::Matrix<T, 3, 3> fileRotation(AR::Math::Matrix<T, 3, 3> R) {
  const T exactEnough = T(8) * std::numeric_limits<T>::epsilon();
  for (int step = 0; step < 16 && !(AR::Math::orthogonalityError(R) <= exactEnough); ++step)
    AR::Math::enforceRotation(R);
  return R;
}

// ---------------------------------------------------------------------------
// Writing

/// Shortest decimal form that reads back to the same value of T.
template <typename T>
std::string formatNumber(T value) {
  char buffer[48];
  std::snprintf(buffer, sizeof(buffer), "%.*g", std::numeric_limits<T>::max_digits10,
                static_cast<double>(value));
  return buffer;
}

/// Values separated and terminated by a blank, as the camera writes its
/// vectors, but with round-trip precision.
template <typename T>
std::string formatValues(const T* values, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += formatNumber(values[i]);
    text += ' ';
  }
  return text;
}

template <typename T>
XMLElement* newPoseElement(XMLDocument& doc, const AR::Math::SE3<T>& pose) {
  XMLElement* element = doc.NewElement("Pose");
  element->SetAttribute("rotation", formatValues(fileRotation(pose.rotation().matrix()).data(), 9).c_str());
  element->SetAttribute("translation", formatValues(pose.translation().data(), 3).c_str());
  return element;
}

XMLElement* newDisplayEyeElement(XMLDocument& doc, const char* side, const DisplayEye& eye) {
  XMLElement* element = doc.NewElement("DisplayEye");
  element->SetAttribute("side", side);
  element->SetAttribute("width", eye.width);
  element->SetAttribute("height", eye.height);
  element->SetAttribute("fx", formatNumber(eye.fx).c_str());
  element->SetAttribute("fy", formatNumber(eye.fy).c_str());
  element->InsertEndChild(newPoseElement(doc, eye.eyeFromDevice));
  return element;
}

// ---------------------------------------------------------------------------
// Reading

/// Reads attributes of one element and describes the first problem it meets
/// with the element, the camera (or eye) it belongs to, the line and the
/// attribute.
class ElementReader {
 public:
  ElementReader(const XMLElement* element, std::string owner, std::string& error)
      : mElement(element), mOwner(std::move(owner)), mError(error) {}

  const XMLElement* element() const { return mElement; }

  /// Records "<context>: <problem>" and returns false.
  bool fail(const std::string& problem) const {
    mError = context() + ": " + problem;
    return false;
  }
  bool failAttribute(const char* attribute, const std::string& problem) const {
    return fail(std::string("attribute '") + attribute + "' " + problem);
  }

  bool has(const char* attribute) const { return mElement->Attribute(attribute) != nullptr; }

  bool readText(const char* attribute, std::string& value) const {
    const char* text = mElement->Attribute(attribute);
    if (text == nullptr) return failAttribute(attribute, "is missing");
    value = text;
    return true;
  }

  /// Exactly `count` finite numbers, each representable in T.
  template <typename T>
  bool readNumbers(const char* attribute, int count, T* values) const {
    const char* text = mElement->Attribute(attribute);
    if (text == nullptr) return failAttribute(attribute, "is missing");
    const char* cursor = text;
    int found = 0;
    while (true) {
      while (*cursor == ' ' || *cursor == '\t' || *cursor == '\n' || *cursor == '\r') ++cursor;
      if (*cursor == '\0') break;
      const char* tokenEnd = cursor;
      while (*tokenEnd != '\0' && *tokenEnd != ' ' && *tokenEnd != '\t' && *tokenEnd != '\n' &&
             *tokenEnd != '\r')
        ++tokenEnd;
      const std::string token(cursor, tokenEnd);
      cursor = tokenEnd;
      // Values beyond the expected count are only counted, for the message:
      // the caller's array holds exactly `count`.
      if (found >= count) {
        ++found;
        continue;
      }
      double value = 0.0;
      if (!parseDouble(token, value))
        return failAttribute(attribute, "value '" + token + "' is not a number");
      if (!std::isfinite(value))
        return failAttribute(attribute, "value '" + token + "' is not finite");
      if (std::fabs(value) > static_cast<double>(std::numeric_limits<T>::max()))
        return failAttribute(attribute, "value '" + token + "' is out of range");
      values[found++] = static_cast<T>(value);
    }
    if (found != count)
      return failAttribute(attribute, "holds " + std::to_string(found) + " value" +
                                          (found == 1 ? "" : "s") + ", expected " +
                                          std::to_string(count));
    return true;
  }

  template <typename T>
  bool readNumber(const char* attribute, T& value) const {
    return readNumbers(attribute, 1, &value);
  }

  bool readInt(const char* attribute, int32_t& value) const {
    const char* text = mElement->Attribute(attribute);
    if (text == nullptr) return failAttribute(attribute, "is missing");
    errno = 0;
    char* end = nullptr;
    const long long parsed = std::strtoll(text, &end, 10);
    if (end == text || !onlyBlanks(end))
      return failAttribute(attribute, std::string("value '") + text + "' is not an integer");
    if (errno == ERANGE || parsed < std::numeric_limits<int32_t>::min() ||
        parsed > std::numeric_limits<int32_t>::max())
      return failAttribute(attribute, std::string("value '") + text + "' is out of range");
    value = static_cast<int32_t>(parsed);
    return true;
  }

  bool readBool(const char* attribute, bool& value) const {
    const char* text = mElement->Attribute(attribute);
    if (text == nullptr) return failAttribute(attribute, "is missing");
    const std::string s(text);
    if (s == "true" || s == "1") {
      value = true;
      return true;
    }
    if (s == "false" || s == "0") {
      value = false;
      return true;
    }
    return failAttribute(attribute, "value '" + s + "' is not a boolean (true or false)");
  }

  /// A required child element, reported as missing otherwise.
  const XMLElement* child(const char* name) const {
    const XMLElement* found = mElement->FirstChildElement(name);
    if (found == nullptr) fail(std::string("missing child element '") + name + "'");
    return found;
  }

 private:
  static bool onlyBlanks(const char* text) {
    while (*text == ' ' || *text == '\t' || *text == '\n' || *text == '\r') ++text;
    return *text == '\0';
  }

  static bool parseDouble(const std::string& token, double& value) {
    const char* begin = token.c_str();
    char* end = nullptr;
    value = std::strtod(begin, &end);
    // An overflowing literal parses as infinity and is then reported as not
    // finite; only the syntax is judged here.
    return end != begin && *end == '\0';
  }

  std::string context() const {
    std::string text = std::string("element '") + mElement->Name() + "'";
    if (!mOwner.empty()) text += " of " + mOwner;
    text += " (line " + std::to_string(mElement->GetLineNum()) + ")";
    return text;
  }

  const XMLElement* mElement;
  std::string mOwner;
  std::string& mError;
};

bool parseModelName(const std::string& name, DistortionModel& model) {
  for (uint32_t value = LINEAR; value <= FISHEYE_4_PARAMETERS; ++value) {
    if (CamModel::modelName(static_cast<DistortionModel>(value)) == name) {
      model = static_cast<DistortionModel>(value);
      return true;
    }
  }
  return false;
}

/// A rigid transform from a "Pose" element: "rotation" (row-major 3x3) and
/// "translation". A rotation that is orthonormal to the precision of T is
/// kept bit for bit (so saved files load back exactly); a slightly rounded
/// one is re-orthogonalised as saving would (fileRotation); anything further
/// off is rejected.
template <typename T>
bool readPose(const ElementReader& reader, AR::Math::SE3<T>& pose) {
  AR::Math::Matrix<T, 3, 3> R;
  AR::Math::Vector<T, 3> t;
  if (!reader.readNumbers("rotation", 9, R.data())) return false;
  if (!reader.readNumbers("translation", 3, t.data())) return false;
  const double error = static_cast<double>(AR::Math::orthogonalityError(R));
  if (!(error <= kMaxRotationError) || !(AR::Math::determinant(R) > T(0)))
    return reader.failAttribute("rotation",
                                "is not a rotation matrix (orthonormal, determinant +1)");
  pose = AR::Math::SE3<T>(AR::Math::SO3<T>::fromOrthonormal(fileRotation(R)), t);
  return true;
}

template <typename PREC>
bool readCamera(const XMLElement* cameraElement, FullCamera<PREC>& camera, std::string& error) {
  const ElementReader cameraReader(cameraElement, "", error);
  std::string id;
  if (!cameraReader.readText("id", id)) return false;
  if (id.empty()) return cameraReader.failAttribute("id", "is empty");
  if (id.size() >= CamImageId::CamName::CAPACITY)
    return cameraReader.failAttribute("id", "'" + id + "' is longer than " +
                                                std::to_string(CamImageId::CamName::CAPACITY - 1) +
                                                " characters");
  const std::string owner = "camera '" + id + "'";
  const ElementReader ownedCameraReader(cameraElement, owner, error);

  // Intrinsics.
  const XMLElement* calibrationElement = ownedCameraReader.child("Calibration");
  if (calibrationElement == nullptr) return false;
  const ElementReader calib(calibrationElement, owner, error);
  CamModel::CameraModel<PREC> model;
  std::string modelName;
  if (!calib.readNumbers("size", 2, model.size.data()) ||
      !calib.readNumbers("principal_point", 2, model.principalPoint.data()) ||
      !calib.readNumbers("focal_length", 2, model.focalLength.data()) ||
      !calib.readText("model", modelName))
    return false;
  if (!parseModelName(modelName, model.model))
    return calib.failAttribute("model", "names an unknown distortion model '" + modelName + "'");
  if (!calib.readNumbers("radial_distortion", 6, model.radialDistortionCoeffs.data())) return false;
  if (calib.has("tangential_distortion") &&
      !calib.readNumbers("tangential_distortion", 2, model.tangentialDistortionCoeffs.data()))
    return false;
  // The limits are derived from the coefficients on loading; when present
  // they are only checked to be numbers.
  double limit = 0.0;
  for (const char* attribute : {"distortion_limit", "undistortion_limit"})
    if (calib.has(attribute) && !calib.readNumber(attribute, limit)) return false;
  for (int i = 0; i < 6; ++i)
    if (std::fabs(static_cast<double>(model.radialDistortionCoeffs(i))) > kMaxCoefficientMagnitude)
      return calib.failAttribute("radial_distortion", "holds a coefficient beyond +-10000");
  for (int i = 0; i < 2; ++i)
    if (std::fabs(static_cast<double>(model.tangentialDistortionCoeffs(i))) >
        kMaxCoefficientMagnitude)
      return calib.failAttribute("tangential_distortion", "holds a coefficient beyond +-10000");
  if (!model.validateCoeffs())
    return calib.fail("invalid intrinsics (see the message on standard output)");

  // Extrinsics.
  const XMLElement* poseElement = ownedCameraReader.child("Pose");
  if (poseElement == nullptr) return false;
  AR::Math::SE3<PREC> camReferenceToLocal;
  if (!readPose(ElementReader(poseElement, owner, error), camReferenceToLocal)) return false;

  // Optional timing and sensor data.
  bool isRollingShutter = false;
  PREC lineTime = PREC(0);
  bool hasReferenceRow = false;
  PREC referenceRow = PREC(0);
  if (const XMLElement* element = cameraElement->FirstChildElement("RollingShutter")) {
    const ElementReader rs(element, owner, error);
    if (!rs.readBool("enabled", isRollingShutter) || !rs.readNumber("line_time", lineTime))
      return false;
    hasReferenceRow = rs.has("reference_row");
    if (hasReferenceRow && !rs.readNumber("reference_row", referenceRow)) return false;
  }
  CaptureDetails details;
  if (const XMLElement* element = cameraElement->FirstChildElement("CaptureDetails")) {
    const ElementReader cd(element, owner, error);
    if (!cd.readInt("nativeSensorWidth", details.nativeSensorWidth) ||
        !cd.readInt("nativeSensorHeight", details.nativeSensorHeight) ||
        !cd.readInt("cropL", details.cropL) || !cd.readInt("cropR", details.cropR) ||
        !cd.readInt("cropT", details.cropT) || !cd.readInt("cropB", details.cropB) ||
        !cd.readInt("binningH", details.binningH) || !cd.readInt("binningV", details.binningV))
      return false;
  }
  double delta = 0.0;
  if (const XMLElement* element = cameraElement->FirstChildElement("TimeAlignment")) {
    if (!ElementReader(element, owner, error).readNumber("delta", delta)) return false;
  }

  model.maxValidDistortionRSq = PREC(81);
  model.maxValidUndistortionRSq = PREC(81);
  model.setupValidDistortionRange();
  FullCamera<PREC> loaded;
  if (!loaded.init(model, camReferenceToLocal, CamImageId(id.c_str()), isRollingShutter, lineTime,
                   details, delta) ||
      !loaded.isInitialized())
    return calib.fail(
        "the intrinsics were rejected (the distortion cannot be approximated over its valid "
        "range)");
  if (hasReferenceRow) loaded.getRSCorrector().referenceRow = referenceRow;
  camera = loaded;
  return true;
}

bool readDisplayEye(const XMLElement* eyeElement, const std::string& side, DisplayEye& eye,
                    std::string& error) {
  const ElementReader reader(eyeElement, "display eye '" + side + "'", error);
  if (!reader.readInt("width", eye.width) || !reader.readInt("height", eye.height)) return false;
  if (eye.width <= 0) return reader.failAttribute("width", "must be positive");
  if (eye.height <= 0) return reader.failAttribute("height", "must be positive");
  if (!reader.readNumber("fx", eye.fx) || !reader.readNumber("fy", eye.fy)) return false;
  if (!(eye.fx > 0.0)) return reader.failAttribute("fx", "must be positive");
  if (!(eye.fy > 0.0)) return reader.failAttribute("fy", "must be positive");
  const XMLElement* poseElement = reader.child("Pose");
  if (poseElement == nullptr) return false;
  return readPose(ElementReader(poseElement, "display eye '" + side + "'", error),
                  eye.eyeFromDevice);
}

bool readDisplayEyes(const XMLElement* root, DisplayEyes& eyes, std::string& error) {
  bool hasLeft = false;
  bool hasRight = false;
  for (const XMLElement* element = root->FirstChildElement("DisplayEye"); element != nullptr;
       element = element->NextSiblingElement("DisplayEye")) {
    const ElementReader reader(element, "", error);
    std::string side;
    if (!reader.readText("side", side)) return false;
    bool* seen = side == "left" ? &hasLeft : side == "right" ? &hasRight : nullptr;
    if (seen == nullptr)
      return reader.failAttribute("side", "value '" + side + "' is neither 'left' nor 'right'");
    if (*seen) return reader.failAttribute("side", "repeats the " + side + " eye");
    *seen = true;
    if (!readDisplayEye(element, side, side == "left" ? eyes.left : eyes.right, error))
      return false;
  }
  if (hasLeft != hasRight) {
    error = std::string("element '") + kRootElement + "': display eyes come in pairs, the " +
            (hasLeft ? "right" : "left") + " 'DisplayEye' is missing";
    return false;
  }
  eyes.present = hasLeft;
  return true;
}

template <typename PREC>
bool readDocument(const XMLDocument& doc, FullStereoCameraCalibration<PREC>& calibration,
                  DisplayEyes* displayEyes, std::string& error) {
  const XMLElement* root = doc.RootElement();
  if (root == nullptr) {
    error = "the document has no root element";
    return false;
  }
  if (std::string(root->Name()) != kRootElement) {
    error = std::string("root element is '") + root->Name() + "', expected '" + kRootElement + "'";
    return false;
  }

  FullStereoCameraCalibration<PREC> loaded;
  if (const char* uid = root->Attribute("deviceUID")) loaded.setDeviceUID(uid);

  for (const XMLElement* element = root->FirstChildElement("Camera"); element != nullptr;
       element = element->NextSiblingElement("Camera")) {
    FullCamera<PREC> camera;
    if (!readCamera(element, camera, error)) return false;
    for (const FullCamera<PREC>& other : loaded)
      if (other.getCamId() == camera.getCamId()) {
        error = std::string("element 'Camera' (line ") + std::to_string(element->GetLineNum()) +
                "): attribute 'id' repeats camera '" + camera.getNameStr() + "'";
        return false;
      }
    loaded.push_back(camera);
  }
  if (loaded.empty()) {
    error = std::string("element '") + kRootElement + "' holds no 'Camera' element";
    return false;
  }

  DisplayEyes eyes;
  if (!readDisplayEyes(root, eyes, error)) return false;

  calibration = loaded;
  if (displayEyes != nullptr) *displayEyes = eyes;
  return true;
}

template <typename PREC>
bool buildDocument(const FullStereoCameraCalibration<PREC>& calibration,
                   const DisplayEyes* displayEyes, XMLDocument& doc, std::string& error) {
  doc.InsertEndChild(doc.NewDeclaration());
  XMLElement* root = doc.NewElement(kRootElement);
  doc.InsertEndChild(root);
  root->SetAttribute("deviceUID", calibration.getDeviceUID().c_str());
  root->SetAttribute("version", kFileVersion);
  for (size_t i = 0; i < calibration.size(); ++i) {
    const FullCamera<PREC>& camera = calibration[i];
    if (!camera.hasIntrinsics()) {
      error = "camera " + std::to_string(i) + " ('" +
              std::string(camera.getCamId().getCamName().rawName()) +
              "') has no intrinsics and cannot be saved";
      return false;
    }
    if (camera.getCamId().empty()) {
      error = "camera " + std::to_string(i) + " has no id and cannot be saved";
      return false;
    }
    root->InsertEndChild(
        camera.toXMLNode(doc, true, Camera<PREC>::XML_FORMAT_CURRENT, true, static_cast<int>(i)));
  }
  if (displayEyes != nullptr && displayEyes->present) {
    root->InsertEndChild(newDisplayEyeElement(doc, "left", displayEyes->left));
    root->InsertEndChild(newDisplayEyeElement(doc, "right", displayEyes->right));
  }
  return true;
}

void setError(std::string* error, const std::string& text) {
  if (error != nullptr) *error = text;
}

}  // namespace

// ---------------------------------------------------------------------------
// FullCamera's element

template <typename PREC>
tinyxml2::XMLElement* FullCamera<PREC>::toXMLNode(tinyxml2::XMLDocument& doc, bool writeExtrinsics,
                                                  typename Camera<PREC>::XMLFormat format,
                                                  bool writeTiming, int index) const {
  if (mCamera == nullptr) return nullptr;
  XMLElement* element = doc.NewElement("Camera");
  element->SetAttribute("id", std::string(mCamId.getCamName().rawName()).c_str());
  if (index >= 0) element->SetAttribute("index", index);

  // The camera's own element, with its numbers rewritten at full precision:
  // the calibration file must give back exactly what was saved.
  XMLElement* calibration = mCamera->toXMLNode(doc, format);
  const CamModel::CameraModel<PREC>& model = mCamera->getCamModel();
  calibration->SetAttribute("size", formatValues(model.size.data(), 2).c_str());
  calibration->SetAttribute("principal_point",
                            formatValues(model.principalPoint.data(), 2).c_str());
  calibration->SetAttribute("focal_length", formatValues(model.focalLength.data(), 2).c_str());
  if (calibration->Attribute("radial_distortion") != nullptr)
    calibration->SetAttribute("radial_distortion",
                              formatValues(model.radialDistortionCoeffs.data(), 6).c_str());
  if (calibration->Attribute("tangential_distortion") != nullptr)
    calibration->SetAttribute("tangential_distortion",
                              formatValues(model.tangentialDistortionCoeffs.data(), 2).c_str());
  element->InsertEndChild(calibration);

  if (writeExtrinsics) element->InsertEndChild(newPoseElement(doc, mCamReferenceToLocal));

  if (writeTiming) {
    XMLElement* rs = doc.NewElement("RollingShutter");
    rs->SetAttribute("enabled", mRSCorrector.isRollingShutter);
    rs->SetAttribute("line_time", formatNumber(mRSCorrector.lineTime).c_str());
    rs->SetAttribute("reference_row", formatNumber(mRSCorrector.referenceRow).c_str());
    element->InsertEndChild(rs);

    XMLElement* cd = doc.NewElement("CaptureDetails");
    cd->SetAttribute("nativeSensorWidth", mCaptureDetails.nativeSensorWidth);
    cd->SetAttribute("nativeSensorHeight", mCaptureDetails.nativeSensorHeight);
    cd->SetAttribute("cropL", mCaptureDetails.cropL);
    cd->SetAttribute("cropR", mCaptureDetails.cropR);
    cd->SetAttribute("cropT", mCaptureDetails.cropT);
    cd->SetAttribute("cropB", mCaptureDetails.cropB);
    cd->SetAttribute("binningH", mCaptureDetails.binningH);
    cd->SetAttribute("binningV", mCaptureDetails.binningV);
    element->InsertEndChild(cd);

    XMLElement* ta = doc.NewElement("TimeAlignment");
    ta->SetAttribute("delta", formatNumber(mDelta).c_str());
    element->InsertEndChild(ta);
  }
  return element;
}

// ---------------------------------------------------------------------------
// The file

template <typename PREC>
bool loadCalibrationFromString(const std::string& xml,
                               FullStereoCameraCalibration<PREC>& calibration,
                               DisplayEyes* displayEyes, std::string* error) {
  XMLDocument doc;
  if (doc.Parse(xml.c_str(), xml.size()) != tinyxml2::XML_SUCCESS) {
    setError(error, std::string("XML parse error: ") + doc.ErrorStr());
    return false;
  }
  std::string message;
  if (!readDocument(doc, calibration, displayEyes, message)) {
    setError(error, message);
    return false;
  }
  return true;
}

template <typename PREC>
bool loadCameraCalibFromDeviceConfig(const std::string& path,
                                     FullStereoCameraCalibration<PREC>& calibration,
                                     DisplayEyes* displayEyes, std::string* error) {
  XMLDocument doc;
  if (doc.LoadFile(path.c_str()) != tinyxml2::XML_SUCCESS) {
    setError(error, path + ": " + doc.ErrorStr());
    return false;
  }
  std::string message;
  if (!readDocument(doc, calibration, displayEyes, message)) {
    setError(error, path + ": " + message);
    return false;
  }
  return true;
}

template <typename PREC>
bool saveCalibrationToString(const FullStereoCameraCalibration<PREC>& calibration,
                             const DisplayEyes* displayEyes, std::string& xml, std::string* error) {
  XMLDocument doc;
  std::string message;
  if (!buildDocument(calibration, displayEyes, doc, message)) {
    setError(error, message);
    return false;
  }
  tinyxml2::XMLPrinter printer;
  doc.Print(&printer);
  xml = printer.CStr();
  return true;
}

template <typename PREC>
bool saveCalibration(const std::string& path, const FullStereoCameraCalibration<PREC>& calibration,
                     const DisplayEyes* displayEyes, std::string* error) {
  XMLDocument doc;
  std::string message;
  if (!buildDocument(calibration, displayEyes, doc, message)) {
    setError(error, message);
    return false;
  }
  if (doc.SaveFile(path.c_str()) != tinyxml2::XML_SUCCESS) {
    setError(error, path + ": " + doc.ErrorStr());
    return false;
  }
  return true;
}

#define AR_INSTANTIATE_CALIBRATION_FILE(PREC)                                                    \
  template AR_EXPORT tinyxml2::XMLElement* FullCamera<PREC>::toXMLNode(                          \
      tinyxml2::XMLDocument&, bool, Camera<PREC>::XMLFormat, bool, int) const;                   \
  template AR_EXPORT bool loadCalibrationFromString<PREC>(                                       \
      const std::string&, FullStereoCameraCalibration<PREC>&, DisplayEyes*, std::string*);       \
  template AR_EXPORT bool loadCameraCalibFromDeviceConfig<PREC>(                                 \
      const std::string&, FullStereoCameraCalibration<PREC>&, DisplayEyes*, std::string*);       \
  template AR_EXPORT bool saveCalibrationToString<PREC>(                                         \
      const FullStereoCameraCalibration<PREC>&, const DisplayEyes*, std::string&, std::string*); \
  template AR_EXPORT bool saveCalibration<PREC>(const std::string&,                              \
                                                const FullStereoCameraCalibration<PREC>&,        \
                                                const DisplayEyes*, std::string*);

AR_INSTANTIATE_CALIBRATION_FILE(float)
AR_INSTANTIATE_CALIBRATION_FILE(double)

#undef AR_INSTANTIATE_CALIBRATION_FILE

}  // namespace CV
}  // namespace AR
