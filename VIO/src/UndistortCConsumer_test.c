/* A plain C program against the public header and the shared library: builds
 * a two-camera device record and asks for its undistortion maps. Exits 0 on
 * success, prints the reason and exits 1 otherwise. */
#include <StereoRectifyWrapper.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { WIDTH = 160, HEIGHT = 120, MAP_SIZE = WIDTH * HEIGHT };

static void setCamera(CameraCalibrationMRV* cam, double tx) {
  cam->width = WIDTH;
  cam->height = HEIGHT;
  cam->cx = 80.5;
  cam->cy = 59.5;
  cam->fx = 100.0;
  cam->fy = 100.0;
  cam->k[0] = -0.2; /* RADIAL_2_PARAMETERS: k1, k2 */
  cam->k[1] = 0.05;
  cam->distortionModel = 1;
  cam->pose.orientation.w = 1.0;
  cam->pose.position.x = tx;
}

static int fail(const char* what) {
  fprintf(stderr, "UndistortCConsumer: %s\n", what);
  return 1;
}

int main(void) {
  DeviceCalibrationMRV* device = calloc(1, sizeof(DeviceCalibrationMRV));
  float* maps = malloc(4 * MAP_SIZE * sizeof(float));
  if (device == NULL || maps == NULL) return fail("out of memory");
  device->num_cameras = 2;
  setCamera(&device->cameras[0], 0.0);
  setCamera(&device->cameras[1], -0.1);

  bool ok = CreateUndistortMap(device, 0, 1.0f, maps, MAP_SIZE, maps + MAP_SIZE, MAP_SIZE,
                               maps + 2 * MAP_SIZE, MAP_SIZE, maps + 3 * MAP_SIZE, MAP_SIZE);
  if (!ok) return fail("CreateUndistortMap returned false");

  /* The principal point sees itself; identical cameras have identical maps. */
  const int centre = 80 + WIDTH * 60;
  if (fabsf(maps[centre] - 80.0f) > 0.6f || fabsf(maps[MAP_SIZE + centre] - 60.0f) > 0.6f)
    return fail("centre pixel does not map near itself");
  if (memcmp(maps, maps + 2 * MAP_SIZE, 2 * MAP_SIZE * sizeof(float)) != 0)
    return fail("identical cameras gave different maps");

  if (CreateUndistortMap(device, 0, 0.0f, maps, MAP_SIZE, maps + MAP_SIZE, MAP_SIZE,
                         maps + 2 * MAP_SIZE, MAP_SIZE, maps + 3 * MAP_SIZE, MAP_SIZE))
    return fail("a zero field-of-view factor was accepted");

  free(maps);
  free(device);
  puts("UndistortCConsumer: ok");
  return 0;
}
