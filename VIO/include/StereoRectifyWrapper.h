/* StereoRectifyWrapper: remap tables from a stereo camera device calibration.
 *
 * Usable from C and C++. Every entry point runs synchronously on the caller's
 * thread, writes only into the caller's buffers, and keeps nothing between
 * calls except the logger's settings. Each map is one float per output pixel
 * in row-major order holding the source position in the distorted camera
 * image; -1.0 marks an output pixel without a valid source.
 *
 * Every failed argument check is logged and the call goes on; writes never
 * leave a buffer as its size argument declares it, and a null pointer is never
 * written through.
 */
#ifndef STEREO_RECTIFY_WRAPPER_H
#define STEREO_RECTIFY_WRAPPER_H

#include <stdbool.h>
#include <stdint.h>

#include "StereoRectifyWrapperTypes.h"

#if defined(__GNUC__)
#define SRW_API __attribute__((visibility("default")))
#else
#define SRW_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Stereo rectification maps for cameras 0 and 1 of `deviceCalibration`, the
 * rectified left camera in `rectifiedCam` and the disparity-to-depth constant
 * in `depthParamOut` (depth = constant / (disparity + offsetX)). */
SRW_API bool CreateRectifyMap(const DeviceCalibrationMRV* deviceCalibration, uint32_t allowOutOfImage,
                              float* mapLeftX, uint32_t mapLeftX_size, float* mapLeftY,
                              uint32_t mapLeftY_size, float* mapRightX, uint32_t mapRightX_size,
                              float* mapRightY, uint32_t mapRightY_size, float* depthParamOut,
                              CameraCalibrationMRV* rectifiedCam);

/* Undistortion maps for cameras 0 and 1, both of camera 0's image size. The
 * virtual distortion-free camera has `fovFactor` times the real focal length;
 * returns false only when `fovFactor` is zero or negative. */
SRW_API bool CreateUndistortMap(const DeviceCalibrationMRV* deviceCalibration, uint32_t allowOutOfImage,
                                float fovFactor, float* mapLeftX, uint32_t mapLeftX_size,
                                float* mapLeftY, uint32_t mapLeftY_size, float* mapRightX,
                                uint32_t mapRightX_size, float* mapRightY, uint32_t mapRightY_size);

/* Fixed-plane video-see-through maps: for every pixel of each display eye, the
 * tracking-camera pixel that shows the scene point seen through it when the
 * scene is a plane at `planeDepth` metres. All four maps take the left
 * display's size. Always returns true. */
SRW_API bool CreateFixedPlaneVSTMaps(const DeviceCalibrationMRV* deviceCalibration,
                                     const CameraCalibrationMRV* leftDisplay,
                                     const CameraCalibrationMRV* rightDisplay, float planeDepth,
                                     uint32_t allowOutOfImage, float* mapLeftX, uint32_t mapLeftX_size,
                                     float* mapLeftY, uint32_t mapLeftY_size, float* mapRightX,
                                     uint32_t mapRightX_size, float* mapRightY,
                                     uint32_t mapRightY_size);

/* Whether the three entry points above can run on `device` without reaching
 * a fatal assertion (a zero quaternion, a zero baseline, a distortion model
 * outside 0..5, a lens whose rational denominator has no defined root, ...)
 * and without non-finite intrinsics or poses. It evaluates what the entry
 * points compute, in the same single precision, so its answer agrees with
 * them; call it first on any record that does not come from a trusted
 * source. The display-eye records of CreateFixedPlaneVSTMaps are not part of
 * the device record and are not examined.
 *
 * Returns true and writes an empty string when the record is usable;
 * otherwise returns false and writes one sentence naming the camera and the
 * field. `message` may be null or `messageSize` 0 (nothing is written);
 * otherwise at most messageSize bytes are written, NUL included, the
 * sentence cut to fit. Like the entry points it builds both cameras, so it
 * prints their lens range lines and logs what they log. */
SRW_API bool ValidateDeviceCalibration(const DeviceCalibrationMRV* device, char* message, uint32_t messageSize);

#ifdef __cplusplus
}
#endif

#endif /* STEREO_RECTIFY_WRAPPER_H */
