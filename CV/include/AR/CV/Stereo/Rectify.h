#pragma once

// Calibration of the rectified stereo pair (target cameras, rectifying
// rotation, depth parameters), its checks, and the calibration of the display
// eyes for video see-through.
#include "AR/CV/Stereo/RectifyChecks.h"
#include "AR/CV/Stereo/TargetCalibration.h"
#include "AR/CV/Stereo/SeeThrough.h"
