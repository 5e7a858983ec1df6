/* A C program that knows the library only through its installed package:
 * undistortion maps of a small distortion-free rig. */
#include <StereoRectifyWrapper.h>

#include <math.h>
#include <stdio.h>
#include <string.h>

enum { kWidth = 64, kHeight = 48, kSize = kWidth * kHeight };

static void setCamera(CameraCalibrationMRV* cam, double x) {
  cam->width = kWidth;
  cam->height = kHeight;
  cam->cx = 32.0;
  cam->cy = 24.0;
  cam->fx = 50.0;
  cam->fy = 50.0;
  cam->distortionModel = 0; /* LINEAR */
  cam->pose.orientation.w = 1.0;
  cam->pose.position.x = x;
}

int main(void) {
  static DeviceCalibrationMRV device;
  static float lx[kSize], ly[kSize], rx[kSize], ry[kSize];
  memset(&device, 0, sizeof device);
  device.num_cameras = 2;
  setCamera(&device.cameras[0], 0.0);
  setCamera(&device.cameras[1], -0.1);
  if (!CreateUndistortMap(&device, 0, 1.0f, lx, kSize, ly, kSize, rx, kSize, ry, kSize)) {
    fprintf(stderr, "CreateUndistortMap refused a factor of 1\n");
    return 1;
  }
  /* Without distortion and with factor 1 every pixel maps onto itself. */
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const int i = y * kWidth + x;
      if (fabsf(lx[i] - (float)x) > 1e-3f || fabsf(ly[i] - (float)y) > 1e-3f) {
        fprintf(stderr, "pixel (%d, %d) maps to (%f, %f)\n", x, y, lx[i], ly[i]);
        return 1;
      }
    }
  puts("C consumer ok");
  return 0;
}
