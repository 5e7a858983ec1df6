#pragma once

#include "AR/CV/Camera/StereoCamera.h"
#include "AR/CV/Stereo/TargetCalibration.h"
#include "AR/Math/SO3.h"

namespace VIO {

/// The rectified target of CreateRectifyMap for a converted device rig: the
/// target pair, the common rectifying rotation S and the depth parameters,
/// with the entry point's fixed choices (64 disparities, no depth fitting,
/// the left camera's width, no leaning). With a null `refusal` this is the
/// entry point's computation, fatal assertions included, and returns true.
/// With a non-null one, a step that would abort is refused instead: false,
/// and `*refusal` says why.
bool rectifyTarget(const AR::CV::FullStereoCameraCalibration<float>& calibration,
                   AR::CV::FullStereoCameraCalibration<float>& target, AR::Math::SO3<float>& S,
                   AR::CV::DepthParams<float>& depthParams, const char** refusal);

}  // namespace VIO
