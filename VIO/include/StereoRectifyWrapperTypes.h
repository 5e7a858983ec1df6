/* Binary records exchanged with StereoRectifyWrapper's callers.
 *
 * Usable from C (C11) and C++. The layouts are the library's external binary
 * interface: little-endian, naturally aligned (8 bytes for doubles and 64-bit
 * integers, 4 for 32-bit ones). Regions the library never reads are kept as
 * reserved byte arrays so that a caller's content there survives untouched.
 * Every offset and size is checked at compile time below.
 */
#ifndef STEREO_RECTIFY_WRAPPER_TYPES_H
#define STEREO_RECTIFY_WRAPPER_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define SRW_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define SRW_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Quaternion (vector part x, y, z; scalar part w). Need not be normalised,
 * must not be zero. */
typedef struct XrQuaterniondMRV_t {
  double x;
  double y;
  double z;
  double w;
} XrQuaterniondMRV_t;

typedef struct XrVector3dMRV_t {
  double x;
  double y;
  double z;
} XrVector3dMRV_t;

/* A pose (56 bytes). For a device camera it maps device-frame points into the
 * camera's frame (camera-from-device). */
typedef struct XrPosedMRV_t {
  XrQuaterniondMRV_t orientation; /* offset 0 */
  XrVector3dMRV_t position;       /* offset 32 */
} XrPosedMRV_t;

/* One camera or one display eye (312 bytes). */
typedef struct CameraCalibrationMRV {
  uint8_t reserved0[64];   /* never read nor written by the library */
  int32_t width;           /* image width in pixels */
  int32_t height;          /* image height in pixels */
  double cx;               /* principal point x, pixels */
  double cy;               /* principal point y, pixels */
  double fx;               /* focal length x, pixels */
  double fy;               /* focal length y, pixels */
  double k[6];             /* k1..k6: the camera model's six radial coefficients, in order */
  double p[2];             /* p1, p2: tangential coefficients */
  double noiseX;           /* feature noise std. deviation, pixels; written on output only */
  double noiseY;           /* feature noise std. deviation, pixels; written on output only */
  int32_t distortionModel; /* DistortionModel value (0..5) */
  uint8_t padding0[4];
  XrPosedMRV_t pose;       /* camera (or display eye) pose */
  uint8_t reserved1[56];   /* never read by the library */
  int64_t cameraIntegerField; /* read from camera 0 only, copied to DeviceFrameParams[27] */
} CameraCalibrationMRV;

/* A whole device: a header and the camera slots (1504 bytes as far as the
 * library reads it; a caller's record may be longer, further camera slots
 * following with the same 312-byte stride). */
typedef struct DeviceCalibrationMRV {
  uint8_t reserved0[200];
  double headerVectorA[3]; /* copied into DeviceFrameParams 9..11 */
  double headerVectorB[3]; /* copied into DeviceFrameParams 3..5 */
  double reserved1[3];
  double headerVectorC[3]; /* copied into DeviceFrameParams 6..8 */
  double headerVectorD[3]; /* copied into DeviceFrameParams 0..2 */
  uint8_t reserved2[552];
  uint32_t num_cameras;    /* every entry point requires exactly 2 */
  uint8_t padding0[4];
  CameraCalibrationMRV cameras[2]; /* 0: left tracking camera, 1: right */
} DeviceCalibrationMRV;

/* Number of floats in DeviceFrameParams. */
#define DEVICE_FRAME_PARAMS_COUNT 28

/* Side record produced with the stereo calibration (112 bytes):
 *   0..2   header vector D        3..5   header vector B
 *   6..8   header vector C        9..11  header vector A
 *   12..17 zero                   18..20 rotation vector of the reference rotation (zero)
 *   21..23 rotation vector (axis times angle) of camera 0's inverse rotation
 *   24..26 translation of camera 0's inverse pose
 *   27     camera 0's cameraIntegerField as float */
typedef struct DeviceFrameParams {
  float values[DEVICE_FRAME_PARAMS_COUNT];
} DeviceFrameParams;

#ifdef __cplusplus
}
#endif

SRW_STATIC_ASSERT(sizeof(XrQuaterniondMRV_t) == 32, "XrQuaterniondMRV_t size");
SRW_STATIC_ASSERT(sizeof(XrVector3dMRV_t) == 24, "XrVector3dMRV_t size");
SRW_STATIC_ASSERT(offsetof(XrQuaterniondMRV_t, x) == 0, "orientation x offset");
SRW_STATIC_ASSERT(offsetof(XrQuaterniondMRV_t, y) == 8, "orientation y offset");
SRW_STATIC_ASSERT(offsetof(XrQuaterniondMRV_t, z) == 16, "orientation z offset");
SRW_STATIC_ASSERT(offsetof(XrQuaterniondMRV_t, w) == 24, "orientation w offset");
SRW_STATIC_ASSERT(offsetof(XrVector3dMRV_t, x) == 0, "position x offset");
SRW_STATIC_ASSERT(offsetof(XrVector3dMRV_t, y) == 8, "position y offset");
SRW_STATIC_ASSERT(offsetof(XrVector3dMRV_t, z) == 16, "position z offset");
SRW_STATIC_ASSERT(sizeof(XrPosedMRV_t) == 56, "XrPosedMRV_t size");
SRW_STATIC_ASSERT(offsetof(XrPosedMRV_t, orientation) == 0, "orientation offset");
SRW_STATIC_ASSERT(offsetof(XrPosedMRV_t, position) == 32, "position offset");

SRW_STATIC_ASSERT(sizeof(CameraCalibrationMRV) == 312, "CameraCalibrationMRV size");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, reserved0) == 0, "reserved0 offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, width) == 64, "width offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, height) == 68, "height offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, cx) == 72, "cx offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, cy) == 80, "cy offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, fx) == 88, "fx offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, fy) == 96, "fy offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, k) == 104, "k offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, p) == 152, "p offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, noiseX) == 168, "noiseX offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, noiseY) == 176, "noiseY offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, distortionModel) == 184, "distortionModel offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, padding0) == 188, "padding0 offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, pose) == 192, "pose offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, reserved1) == 248, "reserved1 offset");
SRW_STATIC_ASSERT(offsetof(CameraCalibrationMRV, cameraIntegerField) == 304,
                  "cameraIntegerField offset");

SRW_STATIC_ASSERT(sizeof(DeviceCalibrationMRV) == 1504, "DeviceCalibrationMRV size");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, reserved0) == 0, "reserved0 offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, headerVectorA) == 200, "headerVectorA offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, headerVectorB) == 224, "headerVectorB offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, reserved1) == 248, "reserved1 offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, headerVectorC) == 272, "headerVectorC offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, headerVectorD) == 296, "headerVectorD offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, reserved2) == 320, "reserved2 offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, num_cameras) == 872, "num_cameras offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, padding0) == 876, "padding0 offset");
SRW_STATIC_ASSERT(offsetof(DeviceCalibrationMRV, cameras) == 880, "cameras offset");

SRW_STATIC_ASSERT(sizeof(DeviceFrameParams) == 112, "DeviceFrameParams size");

#endif /* STEREO_RECTIFY_WRAPPER_TYPES_H */
