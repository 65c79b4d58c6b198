// A small model of animated layers: a layer keeps its resting values, and keyed animations
// override them for a while. What is drawn at a moment is a pure function of the layer and that
// moment, so motion is tested with a manual clock and the window only asks what to paint now.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tidewatch {

using MotionTime = std::chrono::nanoseconds;

// A cubic Bézier timing curve from (0, 0) to (1, 1) through two control points.
struct TimingCurve {
  double x1 = 0;
  double y1 = 0;
  double x2 = 1;
  double y2 = 1;

  // The eased progress for a linear progress in [0, 1].
  double valueAt(double progress) const;
  friend bool operator==(const TimingCurve&, const TimingCurve&) = default;
};

namespace TimingCurves {
inline constexpr TimingCurve linear{0, 0, 1, 1};
inline constexpr TimingCurve easeInEaseOut{0.42, 0, 0.58, 1};
// The quick start and long settle the island's surfaces move with.
inline constexpr TimingCurve surface{0.23, 1.0, 0.32, 1.0};
// The count's roll: slow, fast, slow.
inline constexpr TimingCurve roll{0.77, 0.0, 0.175, 1.0};
}  // namespace TimingCurves

enum class LayerProperty { opacity, translationX, translationY, scale, scaleX };

// Values at evenly spaced key times (two values make a plain from-to animation).
struct LayerAnimation {
  LayerProperty property = LayerProperty::opacity;
  std::vector<double> values;
  MotionTime begin{0};
  MotionTime duration{0};
  TimingCurve curve = TimingCurves::linear;
  // Repeats forever; `phase` shifts where in the cycle it stands at `begin`, in cycles.
  bool repeats = false;
  double phase = 0;

  bool runningAt(MotionTime now) const { return repeats || now < begin + duration; }
  double valueAt(MotionTime now) const;
};

// What a layer shows at a moment.
struct LayerPresentation {
  double opacity = 1;
  double translationX = 0;
  double translationY = 0;
  double scaleX = 1;
  double scaleY = 1;
};

class MotionLayer {
 public:
  // The resting values, shown when no animation says otherwise.
  double opacity = 1;
  double translationX = 0;
  double translationY = 0;
  double scale = 1;

  // Replaces whatever ran under the key.
  void add(const std::string& key, std::vector<LayerAnimation> animations);
  void remove(std::string_view key);
  void removeAll();
  bool has(std::string_view key) const;
  // Whether anything still moves at that moment; finished animations are forgotten here.
  bool isMoving(MotionTime now);

  LayerPresentation presentationAt(MotionTime now) const;

 private:
  // Later keys win over earlier ones on the same property, as the order they were added in.
  std::vector<std::pair<std::string, std::vector<LayerAnimation>>> animations_;
};

// A plain animation from one value to another.
LayerAnimation basicAnimation(LayerProperty property, double from, double to, MotionTime begin, MotionTime duration,
                              TimingCurve curve);

}  // namespace tidewatch
