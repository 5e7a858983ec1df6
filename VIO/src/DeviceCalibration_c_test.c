/* Compiled as C: the record header must be valid C, and the C compiler must
 * lay the records out exactly as the C++ compiler does. */
#include <stddef.h>
#include <stdint.h>

#include "StereoRectifyWrapper.h"

size_t srwTestCSizeOfPose(void) { return sizeof(XrPosedMRV_t); }
size_t srwTestCSizeOfCamera(void) { return sizeof(CameraCalibrationMRV); }
size_t srwTestCSizeOfDevice(void) { return sizeof(DeviceCalibrationMRV); }
size_t srwTestCSizeOfFrameParams(void) { return sizeof(DeviceFrameParams); }

/* Offsets of the fields that C code reads most, for comparison with C++. */
size_t srwTestCOffsetOfCameraPose(void) { return offsetof(CameraCalibrationMRV, pose); }
size_t srwTestCOffsetOfCameraIntegerField(void) {
  return offsetof(CameraCalibrationMRV, cameraIntegerField);
}
size_t srwTestCOffsetOfNumCameras(void) { return offsetof(DeviceCalibrationMRV, num_cameras); }
size_t srwTestCOffsetOfSecondCamera(void) { return offsetof(DeviceCalibrationMRV, cameras[1]); }

/* Fills a record through the C view so that C++ can read it back. */
void srwTestCFillCamera(CameraCalibrationMRV* camera) {
  camera->width = 640;
  camera->height = 480;
  camera->fx = 250.5;
  camera->k[5] = -0.25;
  camera->p[1] = 0.125;
  camera->distortionModel = 5;
  camera->pose.orientation.w = 1.0;
  camera->pose.position.z = -0.5;
  camera->cameraIntegerField = INT64_C(-1234567890123);
}
