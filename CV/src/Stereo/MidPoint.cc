#include <cmath>

#include "AR/CV/Stereo/RectifyChecks.h"
#include "AR/Math/SE3.h"

namespace AR {
namespace CV {
namespace MidPoint {

template <typename T>
bool twoPoints(const AR::Math::Vector<T, 3>& origin1, const AR::Math::Vector<T, 3>& direction1,
               const AR::Math::Vector<T, 3>& origin2, const AR::Math::Vector<T, 3>& direction2,
               AR::Math::Vector<T, 3>& point, TriangulationDetails<T>* details) {
  using Vec3 = AR::Math::Vector<T, 3>;
  // The common normal of the two rays; it vanishes exactly when they are
  // parallel, and then every point of one ray is equally near the other.
  const Vec3 n = AR::Math::cross(direction1, direction2);
  const T nSq = AR::Math::squaredNorm(n);
  if (nSq == T(0)) return false;

  // Closest points: origin1 + s*direction1 and origin2 + t*direction2 with the
  // connecting segment parallel to n (Cramer's rule on the 3x3 system).
  const Vec3 delta = origin2 - origin1;
  const T s = AR::Math::dot(AR::Math::cross(delta, direction2), n) / nSq;
  const T t = AR::Math::dot(AR::Math::cross(delta, direction1), n) / nSq;
  const Vec3 q1 = origin1 + direction1 * s;
  const Vec3 q2 = origin2 + direction2 * t;
  point = (q1 + q2) * T(0.5);

  if (details) {
    details->pointOnRay1 = q1;
    details->pointOnRay2 = q2;
    details->distance = AR::Math::norm(q1 - q2);
    details->cosAngle = AR::Math::dot(AR::Math::unit(direction1), AR::Math::unit(direction2));
    // A rounded cosine outside [-1, 1] gives 0, also below -1: callers only
    // ever triangulate rays that point the same way.
    details->angle = (details->cosAngle >= T(-1) && details->cosAngle <= T(1))
                         ? std::acos(details->cosAngle)
                         : T(0);
  }
  return true;
}

template AR_EXPORT bool twoPoints<float>(const AR::Math::Vector<float, 3>&, const AR::Math::Vector<float, 3>&,
                                         const AR::Math::Vector<float, 3>&, const AR::Math::Vector<float, 3>&,
                                         AR::Math::Vector<float, 3>&, TriangulationDetails<float>*);
template AR_EXPORT bool twoPoints<double>(const AR::Math::Vector<double, 3>&,
                                          const AR::Math::Vector<double, 3>&,
                                          const AR::Math::Vector<double, 3>&,
                                          const AR::Math::Vector<double, 3>&, AR::Math::Vector<double, 3>&,
                                          TriangulationDetails<double>*);

}  // namespace MidPoint
}  // namespace CV
}  // namespace AR
