#include "app/layer_motion.h"

#include <algorithm>
#include <cmath>

namespace tidewatch {

namespace {

double bezier(double a, double b, double t) {
  // One coordinate of a cubic from 0 to 1 with control values a and b.
  const double u = 1 - t;
  return 3 * u * u * t * a + 3 * u * t * t * b + t * t * t;
}

}  // namespace

double TimingCurve::valueAt(double progress) const {
  const double x = std::clamp(progress, 0.0, 1.0);
  if (x == 0 || x == 1) return x;
  // Solve for the curve's parameter at x by bisection: monotonic in x for control x in [0, 1].
  double low = 0;
  double high = 1;
  double t = x;
  for (int i = 0; i < 40; ++i) {
    t = (low + high) / 2;
    const double at = bezier(x1, x2, t);
    if (std::abs(at - x) < 1e-7) break;
    (at < x ? low : high) = t;
  }
  return bezier(y1, y2, t);
}

double LayerAnimation::valueAt(MotionTime now) const {
  if (values.empty()) return 0;
  if (values.size() == 1 || duration <= MotionTime::zero()) return values.back();
  double progress = std::chrono::duration<double>(now - begin) / std::chrono::duration<double>(duration);
  if (repeats) {
    progress += phase;
    progress -= std::floor(progress);
  }
  progress = std::clamp(progress, 0.0, 1.0);
  // Each segment between key values eases on its own, as key-frame animations do.
  const double segments = static_cast<double>(values.size() - 1);
  const double position = progress * segments;
  const size_t index = std::min(static_cast<size_t>(position), values.size() - 2);
  const double local = curve.valueAt(position - static_cast<double>(index));
  return values[index] + (values[index + 1] - values[index]) * local;
}

LayerAnimation basicAnimation(LayerProperty property, double from, double to, MotionTime begin, MotionTime duration,
                              TimingCurve curve) {
  LayerAnimation animation;
  animation.property = property;
  animation.values = {from, to};
  animation.begin = begin;
  animation.duration = duration;
  animation.curve = curve;
  return animation;
}

void MotionLayer::add(const std::string& key, std::vector<LayerAnimation> animations) {
  remove(key);
  animations_.emplace_back(key, std::move(animations));
}

void MotionLayer::remove(std::string_view key) {
  std::erase_if(animations_, [&](const auto& entry) { return entry.first == key; });
}

void MotionLayer::removeAll() { animations_.clear(); }

bool MotionLayer::has(std::string_view key) const {
  return std::any_of(animations_.begin(), animations_.end(), [&](const auto& entry) { return entry.first == key; });
}

bool MotionLayer::isMoving(MotionTime now) {
  for (auto& entry : animations_) {
    std::erase_if(entry.second, [&](const LayerAnimation& animation) { return !animation.runningAt(now); });
  }
  std::erase_if(animations_, [](const auto& entry) { return entry.second.empty(); });
  return !animations_.empty();
}

LayerPresentation MotionLayer::presentationAt(MotionTime now) const {
  LayerPresentation shown{opacity, translationX, translationY, scale, scale};
  for (const auto& [key, animations] : animations_) {
    for (const auto& animation : animations) {
      if (!animation.runningAt(now)) continue;
      const double value = animation.valueAt(now);
      switch (animation.property) {
        case LayerProperty::opacity: shown.opacity = value; break;
        case LayerProperty::translationX: shown.translationX = value; break;
        case LayerProperty::translationY: shown.translationY = value; break;
        case LayerProperty::scale: shown.scaleX = shown.scaleY = value; break;
        case LayerProperty::scaleX: shown.scaleX = value; break;
      }
    }
  }
  return shown;
}

}  // namespace tidewatch
