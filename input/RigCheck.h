#pragma once

#include <string>

#include "Rig.h"

namespace StereoMaps {

/// Checks what the library will read of `rig` before any of it is handed
/// over: known lens models, image sizes within the tool's bounds
/// (kMaxImageSide, kMaxImagePixels), every camera and display number finite
/// once rounded to float (the library converts the double records to float
/// on entry), and quaternions whose float squared length is finite and above
/// zero (the library normalises them and a zero length is fatal). Display
/// eyes are checked only when the rig has them. On failure `error` is one
/// sentence naming the camera or display and the field.
bool checkRig(const Rig& rig, std::string& error);

/// Length of the baseline between the two tracking cameras as the library
/// computes it, in float from the float poses. Zero (or NaN) means the
/// library would stop on a fatal assertion when it rectifies.
float baselineInFloat(const Rig& rig);

}  // namespace StereoMaps
